// tifomOpen: libtiff handles on in-memory files, and on disk for names the
// store does not know.
#include <TavrinFom.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "test_files.h"

namespace {

using tavrin_test::fileExists;

// libtiff's error messages, captured instead of printed.
std::vector<std::string> g_errors;
void captureError(const char* module, const char* fmt, va_list ap) {
    char text[512];
    std::vsnprintf(text, sizeof text, fmt, ap);
    g_errors.push_back(std::string(module ? module : "") + ": " + text);
}

class TiffOnMemory : public ::testing::Test {
protected:
    void SetUp() override {
        g_errors.clear();
        oldError_ = TIFFSetErrorHandler(captureError);
        oldWarning_ = TIFFSetWarningHandler(nullptr);
    }
    void TearDown() override {
        TIFFSetErrorHandler(oldError_);
        TIFFSetWarningHandler(oldWarning_);
        for (const std::string& n : names_) fom_unset(n.c_str());
        // No test may leave a descriptor open: numbering is back at 0.
        fom_set("probe", O_RDWR, probe_, sizeof probe_, 0, 0, nullptr);
        EXPECT_EQ(fom_open("probe", O_RDWR), 0);
        fom_close(0);
        fom_unset("probe");
    }
    void reg(const std::string& name, int mode, std::vector<unsigned char>& buffer,
             unsigned long length = 0) {
        ASSERT_EQ(fom_set(name.c_str(), mode, buffer.data(), buffer.size(), length, 0, nullptr), 0);
        names_.push_back(name);
    }
    // A small gray image written with libtiff through handle tif.
    static void writeGray(TIFF* tif, const std::vector<unsigned char>& pixels, uint32_t w, uint32_t h) {
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, w);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, h);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, h);
        ASSERT_EQ(TIFFWriteEncodedStrip(tif, 0, const_cast<unsigned char*>(pixels.data()),
                                        tmsize_t(w) * h),
                  tmsize_t(w) * h);
    }
    TIFFErrorHandler oldError_ = nullptr;
    TIFFErrorHandler oldWarning_ = nullptr;
    std::vector<std::string> names_;
    unsigned char probe_[4] = {};
};

std::vector<unsigned char> ramp(size_t n) {
    std::vector<unsigned char> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 7 + 3);
    return v;
}

TEST_F(TiffOnMemory, WriteThenReadBackThroughMemory) {
    const std::string dir = tavrin_test::scratchDir("fom_tiff");
    const std::string name = dir + "/memory.tif";  // looks like a path, stays in memory
    std::vector<unsigned char> file(4096, 0xCC);
    reg(name, O_RDWR, file);
    const auto pixels = ramp(20 * 10);

    TIFF* tif = tifomOpen(name.c_str(), "w");
    ASSERT_NE(tif, nullptr);
    EXPECT_EQ(TIFFFileno(tif), 0);  // the fom descriptor
    writeGray(tif, pixels, 20, 10);
    TIFFClose(tif);
    EXPECT_FALSE(fileExists(name));
    EXPECT_EQ(fom_isOnMemory(name.c_str()), 1);  // closing does not unregister

    EXPECT_EQ(std::memcmp(file.data(), "II*\0", 4), 0);  // header at offset 0
    const int length = fom_getWritedBytes(name.c_str());
    EXPECT_GT(length, 8 + 200);
    EXPECT_LT(length, 4096);
    EXPECT_EQ(file[length], 0xCC);

    // Same bytes as a read-only file of that length.
    reg("readback", O_RDONLY, file, length);
    TIFF* in = tifomOpen("readback", "r");
    ASSERT_NE(in, nullptr);
    uint32_t w = 0, h = 0;
    TIFFGetField(in, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(in, TIFFTAG_IMAGELENGTH, &h);
    EXPECT_EQ(w, 20u);
    EXPECT_EQ(h, 10u);
    std::vector<unsigned char> back(200);
    EXPECT_EQ(TIFFReadEncodedStrip(in, 0, back.data(), 200), 200);
    EXPECT_EQ(back, pixels);
    TIFFClose(in);
    EXPECT_TRUE(g_errors.empty());
}

TEST_F(TiffOnMemory, UnregisteredNameGoesToDisk) {
    const std::string path = tavrin_test::scratchDir("fom_tiff") + "/disk.tif";
    unlink(path.c_str());
    TIFF* tif = tifomOpen(path.c_str(), "w");
    ASSERT_NE(tif, nullptr);
    writeGray(tif, ramp(16), 4, 4);
    TIFFClose(tif);
    EXPECT_TRUE(fileExists(path));
    TIFF* in = tifomOpen(path.c_str(), "r");
    ASSERT_NE(in, nullptr);
    TIFFClose(in);
    unlink(path.c_str());
}

TEST_F(TiffOnMemory, AccessModeMustMatchTheRegistration) {
    std::vector<unsigned char> rw(1024), ro(1024);
    reg("rw", O_RDWR, rw);
    reg("ro", O_RDONLY, ro, 1024);
    EXPECT_EQ(tifomOpen("rw", "r"), nullptr);
    EXPECT_EQ(tifomOpen("ro", "w"), nullptr);
    EXPECT_EQ(tifomOpen("ro", "a"), nullptr);
    EXPECT_EQ(tifomOpen("ro", "r+"), nullptr);  // "r+" is read-write
    EXPECT_FALSE(g_errors.empty());             // libtiff said why
}

TEST_F(TiffOnMemory, FailedStartClosesTheDescriptor) {
    std::vector<unsigned char> junk(64, 0x5A);  // not a TIFF header
    reg("junk", O_RDONLY, junk, junk.size());
    EXPECT_EQ(tifomOpen("junk", "r"), nullptr);
    std::vector<unsigned char> tiny(4);  // too small for the header
    reg("tiny", O_RDWR, tiny);
    EXPECT_EQ(tifomOpen("tiny", "w"), nullptr);
    EXPECT_FALSE(g_errors.empty());
    // TearDown checks that descriptor 0 is free again.
}

TEST_F(TiffOnMemory, BadModeIsReportedAsTIFFOpen) {
    std::vector<unsigned char> rw(64);
    reg("modes", O_RDWR, rw);
    EXPECT_EQ(tifomOpen("modes", "x"), nullptr);
    ASSERT_EQ(g_errors.size(), 1u);  // reported once
    EXPECT_EQ(g_errors[0], "TIFFOpen: \"x\": Bad mode");
    g_errors.clear();
    EXPECT_EQ(tifomOpen("not-registered", ""), nullptr);
    ASSERT_EQ(g_errors.size(), 1u);
    EXPECT_EQ(g_errors[0].rfind("TIFFOpen: ", 0), 0u);
    EXPECT_EQ(tifomOpen("modes", nullptr), nullptr);
    EXPECT_EQ(tifomOpen(nullptr, "w"), nullptr);
}

TEST_F(TiffOnMemory, ModifierLettersKeepTheAccessMode) {
    std::vector<unsigned char> rw(4096);
    reg("mods", O_RDWR, rw);
    // Big-endian, no strip chopping: still read-write + create + truncate.
    TIFF* tif = tifomOpen("mods", "wbc");
    ASSERT_NE(tif, nullptr);
    writeGray(tif, ramp(64), 8, 8);
    TIFFClose(tif);
    EXPECT_EQ(std::memcmp(rw.data(), "MM\0*", 4), 0);
    // "a" appends a directory. Opening keeps the file position (left after
    // the header patch by the last close), and libtiff reads the header from
    // there: rewind through a descriptor first.
    const int fd = fom_open("mods", O_RDWR);
    EXPECT_EQ(fom_lseek(fd, 0, SEEK_SET), 0);
    fom_close(fd);
    TIFF* more = tifomOpen("mods", "a");
    ASSERT_NE(more, nullptr);
    writeGray(more, ramp(64), 8, 8);
    TIFFClose(more);
    std::vector<unsigned char> ro(rw);
    reg("mods-ro", O_RDONLY, ro, fom_getWritedBytes("mods"));
    TIFF* in = tifomOpen("mods-ro", "rm");  // 'm': no memory mapping anyway
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(TIFFNumberOfDirectories(in), 2);
    TIFFClose(in);
    EXPECT_TRUE(g_errors.empty());
}

}  // namespace
