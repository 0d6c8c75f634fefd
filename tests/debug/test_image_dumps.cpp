// Plane, stream and scaled dumps: exact bytes written, scaling modulo 256,
// the unscaled TIFF path, and no file for missing inputs.
#include <gtest/gtest.h>

#include <TavrinDebug.h>
#include <tiffio.h>

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "test_files.h"

namespace {

using Bytes = std::vector<uint8_t>;
using tavrin_test::fileExists;
using tavrin_test::mut;
using tavrin_test::readFile;

std::string scratchDir() { return tavrin_test::scratchDir("image_dumps"); }

// Sample bytes of an 8-bit TIFF (gray or RGB), strip by strip.
Bytes readTiff(const std::string& path, uint32_t* width = nullptr, uint32_t* height = nullptr) {
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    if (tif == nullptr) return {};
    uint32_t w = 0, h = 0;
    uint16_t spp = 1;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &h);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
    Bytes pixels(static_cast<size_t>(w) * h * spp);
    tmsize_t at = 0;
    const tmsize_t size = static_cast<tmsize_t>(pixels.size());
    for (uint32_t s = 0; s < TIFFNumberOfStrips(tif); ++s)
        at += TIFFReadEncodedStrip(tif, s, pixels.data() + at, size - at);
    TIFFClose(tif);
    if (width) *width = w;
    if (height) *height = h;
    return pixels;
}

ImgTavrin image(Bytes& pixels, uint16_t w, uint16_t h, uint8_t type) {
    ImgTavrin img{};
    set_ImageTavrinP(&img, pixels.data(), w, h, type, 30000, 30000, false);
    return img;
}

TEST(StreamDump, WritesTheStreamBytesOnly) {
    std::string dir = scratchDir(), path = dir + "/bg.jpg";
    Bytes stream(300);
    for (size_t i = 0; i < stream.size(); ++i) stream[i] = static_cast<uint8_t>(i * 7);
    strBgImgInfo info{200, stream.data()};
    EXPECT_EQ(TavrinApp_DebugBGImg(&info, mut(path), 1), 0);
    EXPECT_EQ(readFile(path), Bytes(stream.begin(), stream.begin() + 200));

    std::string none = dir + "/none.jpg";
    strBgImgInfo noBuffer{200, nullptr};
    EXPECT_EQ(TavrinApp_DebugBGImg(&noBuffer, mut(none), 0), 0);
    EXPECT_FALSE(fileExists(none));
    std::string unopenable = dir + "/missing/bg.jpg";
    EXPECT_EQ(TavrinApp_DebugBGImg(&info, mut(unopenable), 0), 0);
}

TEST(RawImageDump, WritesBytesByTheGeneralRule) {
    std::string dir = scratchDir(), colour = "colour.raw", gray = "gray.raw", none = "none.raw";
    Bytes pixels(100);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i + 1);
    ImgTavrin rgb = image(pixels, 10, 2, TAVRIN_TYPE_RGB);  // 10 x 2 x 3
    EXPECT_EQ(Tavrin_Debug_RawImage(mut(dir), mut(colour), &rgb), 0);
    EXPECT_EQ(readFile(dir + "/colour.raw"), Bytes(pixels.begin(), pixels.begin() + 60));
    ImgTavrin g = image(pixels, 10, 2, TAVRIN_TYPE_GRAY);
    EXPECT_EQ(Tavrin_Debug_RawImage(mut(dir), mut(gray), &g), 0);
    EXPECT_EQ(readFile(dir + "/gray.raw").size(), 20u);

    g.pucImage = nullptr;
    EXPECT_EQ(Tavrin_Debug_RawImage(mut(dir), mut(none), &g), 0);
    EXPECT_FALSE(fileExists(dir + "/none.raw"));
}

TEST(ImageDump, WritesATiffOrPassesTheWriterStatus) {
    std::string dir = scratchDir(), name = "plane.tif", none = "none.tif", bilevel = "bi.tif";
    Bytes pixels(6 * 130);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i * 13);
    ImgTavrin g = image(pixels, 6, 130, TAVRIN_TYPE_GRAY);
    EXPECT_EQ(Tavrin_Debug_Image(mut(dir), mut(name), &g), 0);
    uint32_t w = 0, h = 0;
    EXPECT_EQ(readTiff(dir + "/plane.tif", &w, &h), pixels);
    EXPECT_EQ(w, 6u);
    EXPECT_EQ(h, 130u);

    ImgTavrin bi = image(pixels, 6, 10, TAVRIN_TYPE_BILEVEL);
    EXPECT_EQ(Tavrin_Debug_Image(mut(dir), mut(bilevel), &bi), -1);
    std::string flatName = "flat.tif";
    ImgTavrin flat = image(pixels, 6, 0, TAVRIN_TYPE_GRAY);
    EXPECT_EQ(Tavrin_Debug_Image(mut(dir), mut(flatName), &flat), -1);
    EXPECT_FALSE(fileExists(dir + "/flat.tif"));
    g.pucImage = nullptr;
    EXPECT_EQ(Tavrin_Debug_Image(mut(dir), mut(none), &g), 0);
    EXPECT_FALSE(fileExists(dir + "/none.tif"));
}

TEST(ScaledRawDump, ScalesModulo256) {
    std::string base = scratchDir() + "/mask";
    Bytes pixels = {0, 1, 2, 128, 255, 3};  // 3 x 2
    struct Case {
        int scale;
        Bytes expected;
    };
    for (const Case& c : {Case{255, {0, 255, 254, 128, 1, 253}},  // 2*255 = 510 -> 254
                          Case{256, {0, 0, 0, 0, 0, 0}},          // low 8 bits: 0
                          Case{-1, {0, 255, 254, 128, 1, 253}},   // low 8 bits: 255
                          Case{1, pixels}, Case{2, {0, 2, 4, 0, 254, 6}}}) {
        EXPECT_EQ(DebugOut(base.c_str(), pixels.data(), 3, 2, c.scale), 0);
        EXPECT_EQ(readFile(base + ".raw"), c.expected) << "scale " << c.scale;
    }
    EXPECT_EQ(pixels, (Bytes{0, 1, 2, 128, 255, 3}));  // source untouched
}

TEST(ScaledRawDump, PathMustFitItsBuffer) {
    std::string dir = scratchDir();
    // "%s.raw" with its terminating zero must fit in 260 bytes.
    const size_t longest = 259 - 4;
    if (dir.size() + 2 > longest) GTEST_SKIP() << "scratch path too long";
    std::string fits = dir + "/" + std::string(longest - dir.size() - 1, 'f');
    std::string tooLong = dir + "/" + std::string(longest - dir.size(), 'g');
    uint8_t pixel = 1;
    DebugOut(fits.c_str(), &pixel, 1, 1, 255);
    EXPECT_EQ(readFile(fits + ".raw"), Bytes{255});
    DebugOut(tooLong.c_str(), &pixel, 1, 1, 255);
    EXPECT_FALSE(fileExists(tooLong + ".raw"));
    EXPECT_FALSE(fileExists((tooLong + ".raw").substr(0, 259)));  // nor a cut name
}

TEST(ScaledRawDump, EmptyAndMissingInputs) {
    std::string base = scratchDir() + "/empty";
    EXPECT_EQ(DebugOut(base.c_str(), nullptr, 0, 5, 255), 0);
    EXPECT_TRUE(fileExists(base + ".raw"));
    EXPECT_TRUE(readFile(base + ".raw").empty());
    std::string none = scratchDir() + "/none";
    EXPECT_EQ(DebugOut(none.c_str(), nullptr, 2, 2, 255), 0);
    uint8_t pixel = 0;
    EXPECT_EQ(DebugOut(none.c_str(), &pixel, -1, 2, 255), 0);
    EXPECT_FALSE(fileExists(none + ".raw"));
    EXPECT_EQ(DebugOut(nullptr, &pixel, 1, 1, 255), 0);
}

TEST(ScaledTiffDump, ScaleOneIsTheImageDump) {
    std::string dir = scratchDir(), name = "same.tif";
    Bytes pixels(17 * 9);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i * 31);
    ImgTavrin g = image(pixels, 17, 9, TAVRIN_TYPE_GRAY);
    // The file records its own path, so both dumps use the same one.
    ASSERT_EQ(Tavrin_Debug_Image(mut(dir), mut(name), &g), 0);
    const Bytes direct = readFile(dir + "/same.tif");
    ASSERT_FALSE(direct.empty());
    std::remove((dir + "/same.tif").c_str());
    EXPECT_EQ(DebugOutTiff(mut(dir), mut(name), &g, 1), 0);
    EXPECT_EQ(readFile(dir + "/same.tif"), direct);
}

TEST(ScaledTiffDump, ScalesAPlaneWithoutTouchingIt) {
    std::string dir = scratchDir(), n255 = "s255.tif", n256 = "s256.tif";
    Bytes mask(20 * 7);
    for (size_t i = 0; i < mask.size(); ++i) mask[i] = static_cast<uint8_t>(i % 3 == 0);
    const Bytes original = mask;
    ImgTavrin g = image(mask, 20, 7, TAVRIN_TYPE_GRAY);
    EXPECT_EQ(DebugOutTiff(mut(dir), mut(n255), &g, 255), 0);
    EXPECT_EQ(DebugOutTiff(mut(dir), mut(n256), &g, 256), 0);
    EXPECT_EQ(mask, original);
    EXPECT_EQ(g.pucImage, mask.data());

    Bytes expected(mask.size());
    for (size_t i = 0; i < mask.size(); ++i) expected[i] = mask[i] ? 255 : 0;
    EXPECT_EQ(readTiff(dir + "/s255.tif"), expected);
    EXPECT_EQ(readTiff(dir + "/s256.tif"), Bytes(mask.size(), 0));
}

TEST(ScaledTiffDump, ColourImageIsScaledOverAllItsBytes) {
    std::string dir = scratchDir(), name = "rgb.tif";
    Bytes rgb(4 * 3 * 3);
    for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = static_cast<uint8_t>(i * 9);
    ImgTavrin img = image(rgb, 4, 3, TAVRIN_TYPE_RGB);
    EXPECT_EQ(DebugOutTiff(mut(dir), mut(name), &img, 2), 0);
    Bytes expected(rgb.size());
    for (size_t i = 0; i < rgb.size(); ++i) expected[i] = static_cast<uint8_t>(rgb[i] * 2);
    EXPECT_EQ(readTiff(dir + "/rgb.tif"), expected);
}

TEST(ScaledTiffDump, MissingInputsCreateNoFile) {
    std::string dir = scratchDir(), empty = "";
    std::string name = "tavrin_no_dump_" + std::to_string(getpid()) + ".tif";
    Bytes pixels(4, 1);
    ImgTavrin g = image(pixels, 2, 2, TAVRIN_TYPE_GRAY);
    for (int scale : {1, 255}) {
        EXPECT_EQ(DebugOutTiff(mut(empty), mut(name), &g, scale), 0);
        EXPECT_FALSE(fileExists("/" + name));  // where an empty directory would lead
        EXPECT_EQ(DebugOutTiff(mut(dir), nullptr, &g, scale), 0);
        EXPECT_EQ(DebugOutTiff(nullptr, mut(name), &g, scale), 0);
        ImgTavrin noPixels = g;
        noPixels.pucImage = nullptr;
        EXPECT_EQ(DebugOutTiff(mut(dir), mut(name), &noPixels, scale), 0);
        EXPECT_FALSE(fileExists(dir + "/" + name));
    }
}

}  // namespace
