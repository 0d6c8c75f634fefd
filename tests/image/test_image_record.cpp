// Image record family: the general byte rule, placement in a work buffer,
// copying modes and the raw dump.
#include <gtest/gtest.h>

#include <TavrinImage.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::string scratchFile(const char* name) {
    const char* dir = std::getenv("TAVRIN_TEST_TMP");
    return std::string(dir ? dir : "/tmp") + "/image_record_" + name;
}

std::vector<uint8_t> readFile(const std::string& path) {
    std::vector<uint8_t> bytes;
    if (std::FILE* fp = std::fopen(path.c_str(), "rb")) {
        int c;
        while ((c = std::fgetc(fp)) != EOF) bytes.push_back(static_cast<uint8_t>(c));
        std::fclose(fp);
    }
    return bytes;
}

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
    uint8_t a[4], b[4];
    ImgTavrin from{}, img{};
    set_ImageTavrinP(&from, a, 2, 2, 0, 7500, 7600, false);
    img.pucImage = b;
    set_ImageTavrinFI(&img, &from, false);
    EXPECT_EQ(img.pucImage, b);
    EXPECT_EQ(img.usXReso, 7500);
    EXPECT_EQ(img.usYReso, 7600);
    set_ImageTavrinFIP(&img, &from, a, false);
    EXPECT_EQ(img.pucImage, a);
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

    copy_ImageTavrin(&src, &dst, 2);  // the whole record
    EXPECT_EQ(dst.pucImage, srcPix);
}

TEST(ImageRecord, DebugOutWritesRawBytesByTheGeneralRule) {
    uint8_t pix[10 * 2 * 3];
    for (int i = 0; i < 60; ++i) pix[i] = static_cast<uint8_t>(i);
    ImgTavrin img{};
    set_ImageTavrinP(&img, pix, 10, 2, 3, 0, 0, false);  // bi-level still counts 3 bytes
    const std::string path = scratchFile("raw.bin");
    EXPECT_EQ(debugOut_ImageTavrin(&img, const_cast<char*>(path.c_str())), 0);
    const std::vector<uint8_t> bytes = readFile(path);
    ASSERT_EQ(bytes.size(), 60u);
    EXPECT_EQ(bytes[59], 59);
    char bad[] = "/nonexistent-dir/x.raw";
    EXPECT_EQ(debugOut_ImageTavrin(&img, bad), 0);
}

}  // namespace
