// Image record family: the general byte rule, placement in a work buffer,
// copying modes and the raw dump.
#include <gtest/gtest.h>

#include <TavrinImage.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "test_files.h"

namespace {

TEST(ImageRecord, SetAndClearUseThreeBytesForEveryNonZeroType) {
    for (uint8_t type : {1, 2, 3, 7}) {
        std::vector<uint8_t> buf(5 * 2 * 3 + 1, 0xAB);
        ImgTavrin img{};
        set_ImageTavrinP(&img, buf.data(), 5, 2, type, 30000, 20000, true);
        EXPECT_EQ(img.usWidth, 5);
        EXPECT_EQ(img.usHeight, 2);
        EXPECT_EQ(img.ucType, type);
        EXPECT_EQ(img.usXReso, 30000);
        EXPECT_EQ(img.usYReso, 20000);
        for (int i = 0; i < 30; ++i) ASSERT_EQ(buf[i], 0) << "type " << int(type);
        EXPECT_EQ(buf[30], 0xAB) << "cleared past the image";
    }
    std::vector<uint8_t> gray(11, 0xAB);
    ImgTavrin img{};
    set_ImageTavrinP(&img, gray.data(), 5, 2, 0, 0, 0, true);
    EXPECT_EQ(gray[9], 0);
    EXPECT_EQ(gray[10], 0xAB);
}

TEST(ImageRecord, ReleaseForgetsEverythingAndLaterClearWritesNothing) {
    uint8_t pixel = 7;
    ImgTavrin img{};
    set_ImageTavrinP(&img, &pixel, 1, 1, 0, 100, 100, false);
    EXPECT_EQ(release_ImageTavrin(&img), 0);
    EXPECT_EQ(img.pucImage, nullptr);
    EXPECT_EQ(img.usWidth + img.usHeight + img.usXReso + img.usYReso + img.ucType, 0);
    EXPECT_EQ(set_ImageTavrin(&img, 100, 100, 0, 0, 0, true), 0);  // null pointer: no write
    EXPECT_EQ(pixel, 7);
}

TEST(ImageRecord, FromImageKeepsOwnPixels) {
    uint8_t a[18], b[19];
    std::memset(b, 0x55, sizeof b);
    ImgTavrin from{}, img{};
    set_ImageTavrinP(&from, a, 3, 2, 1, 7500, 7600, false);
    img.pucImage = b;
    set_ImageTavrinFI(&img, &from, true);
    EXPECT_EQ(img.pucImage, b);
    EXPECT_EQ(img.usWidth, 3);
    EXPECT_EQ(img.usHeight, 2);
    EXPECT_EQ(img.ucType, 1);
    EXPECT_EQ(img.usXReso, 7500);
    EXPECT_EQ(img.usYReso, 7600);
    EXPECT_EQ(b[17], 0) << "clear covers 3 x 2 x 3 bytes";
    EXPECT_EQ(b[18], 0x55);
    set_ImageTavrinFIP(&img, &from, a, false);
    EXPECT_EQ(img.pucImage, a);
}

TEST(ImageRecord, InitZeroClearsThreeBytesPerPixelForBilevel) {
    std::vector<uint8_t> buf(4 * 3 * 3 + 1, 0xCD);
    ImgTavrin img{};
    set_ImageTavrinP(&img, buf.data(), 4, 3, 3, 0, 0, false);
    EXPECT_EQ(initZero_ImageTavrin(&img), 0);
    for (int i = 0; i < 36; ++i) ASSERT_EQ(buf[i], 0);
    EXPECT_EQ(buf[36], 0xCD);
}

TEST(ImageRecord, WorkBufferPlacementChecksTheLimit) {
    std::vector<uint8_t> work(64, 1);
    ImgTavrin img{};
    set_ImageTavrinP(&img, work.data(), 9, 9, 1, 1, 1, false);
    // 4 x 4 gray is 16 bytes: fits a limit of 16 exactly, and is cleared.
    EXPECT_EQ(set_ImageTavrin_withMemCheck(&img, work.data(), 16, 8, 4, 4, 0, 300, 300, true), 0);
    EXPECT_EQ(img.pucImage, work.data() + 8);
    EXPECT_EQ(work[8], 0);
    EXPECT_EQ(work[23], 0);
    EXPECT_EQ(work[24], 1);
    // One byte over the limit: 2, pointer null, the other fields unchanged.
    EXPECT_EQ(set_ImageTavrin_withMemCheck(&img, work.data(), 16, 8, 17, 1, 0, 1, 1, false), 2);
    EXPECT_EQ(img.pucImage, nullptr);
    EXPECT_EQ(img.usWidth, 4);
    EXPECT_EQ(img.usXReso, 300);
    // Colour types count 3 bytes per pixel against the limit.
    EXPECT_EQ(set_ImageTavrin_withMemCheck(&img, work.data(), 16, 0, 4, 2, 3, 1, 1, false), 2);
}

TEST(ImageRecord, CopyModes) {
    uint8_t srcPix[6] = {1, 2, 3, 4, 5, 6};
    uint8_t dstPix[6] = {};
    ImgTavrin src{}, dst{};
    set_ImageTavrinP(&src, srcPix, 3, 2, 0, 10, 20, false);

    dst.pucImage = dstPix;
    copy_ImageTavrin(&src, &dst, 0);  // fields only
    EXPECT_EQ(dst.pucImage, dstPix);
    EXPECT_EQ(dst.usWidth, 3);
    EXPECT_EQ(dstPix[0], 0);

    copy_ImageTavrin(&src, &dst, 1);  // fields and pixels
    EXPECT_EQ(dst.pucImage, dstPix);
    EXPECT_EQ(dstPix[5], 6);

    ImgTavrin noPixels{};
    copy_ImageTavrin(&src, &noPixels, 1);  // null destination: fields only
    EXPECT_EQ(noPixels.pucImage, nullptr);
    EXPECT_EQ(noPixels.usYReso, 20);

    uint8_t keep[6] = {};
    dst.pucImage = keep;
    copy_ImageTavrin(&src, &dst, 3);  // any other mode: fields only
    EXPECT_EQ(dst.pucImage, keep);
    EXPECT_EQ(keep[0], 0);

    copy_ImageTavrin(&src, &dst, 2);  // the whole record
    EXPECT_EQ(dst.pucImage, srcPix);

    // Colour: mode 1 copies width x height x 3 bytes, not one more.
    uint8_t rgb[2 * 1 * 3] = {1, 2, 3, 4, 5, 6};
    uint8_t out[7] = {0, 0, 0, 0, 0, 0, 99};
    ImgTavrin colour{}, copy{};
    set_ImageTavrinP(&colour, rgb, 2, 1, 1, 0, 0, false);
    copy.pucImage = out;
    copy_ImageTavrin(&colour, &copy, 1);
    EXPECT_EQ(out[5], 6);
    EXPECT_EQ(out[6], 99);
}

TEST(ImageRecord, DebugOutWritesRawBytesByTheGeneralRule) {
    uint8_t pix[10 * 2 * 3];
    for (int i = 0; i < 60; ++i) pix[i] = static_cast<uint8_t>(i);
    ImgTavrin img{};
    set_ImageTavrinP(&img, pix, 10, 2, 3, 0, 0, false);  // bi-level still counts 3 bytes
    const std::string path = tavrin_test::scratchDir("image_record") + "/raw.bin";
    if (std::FILE* fp = std::fopen(path.c_str(), "wb")) {  // a longer file to be replaced
        std::fwrite(std::vector<uint8_t>(500, 1).data(), 1, 500, fp);
        std::fclose(fp);
    }
    EXPECT_EQ(debugOut_ImageTavrin(&img, const_cast<char*>(path.c_str())), 0);
    const std::vector<uint8_t> bytes = tavrin_test::readFile(path);
    ASSERT_EQ(bytes.size(), 60u);
    EXPECT_EQ(bytes[59], 59);
    char bad[] = "/nonexistent-dir/x.raw";
    EXPECT_EQ(debugOut_ImageTavrin(&img, bad), 0);
}

}  // namespace
