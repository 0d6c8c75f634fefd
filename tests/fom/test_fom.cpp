// The in-memory file store through its public functions: reads, writes and
// seeks bounded by the caller's buffers (guard bytes behind each), record-only
// files, and libtiff handles on in-memory files.
#include <fcntl.h>
#include <tiffio.h>

#include <climits>
#include <cstdarg>
#include <cstring>
#include <list>

#include "support.h"

namespace {

using tt::Ints;

int g_tiffErrors = 0;  // libtiff's error messages, counted instead of printed
void countError(const char*, const char*, va_list) { ++g_tiffErrors; }

// Registers files and opens descriptors, and undoes it all afterwards: every
// test starts with an empty store and descriptor numbering back at 0.
class Fom : public ::testing::Test {
protected:
    void SetUp() override {
        g_tiffErrors = 0;
        oldHandlers_ = {TIFFSetErrorHandler(countError), TIFFSetWarningHandler(nullptr)};
    }
    void TearDown() override {
        TIFFSetErrorHandler(oldHandlers_.first);
        TIFFSetWarningHandler(oldHandlers_.second);
        for (int fd : fds_) fom_close(fd);
        for (const std::string& n : names_) fom_unset(n.c_str());
        unsigned char probe[4];
        fom_set("probe", O_RDWR, probe, 4, 0, 0, nullptr);
        EXPECT_EQ(fom_open("probe", O_RDWR), 0) << "a descriptor was left open";
        fom_close(0);
        fom_unset("probe");
        EXPECT_TRUE(std::all_of(files_.begin(), files_.end(), [](const tt::Guarded& g) { return g.intact(); }));
    }
    unsigned char* reg(const std::string& name, int mode, size_t capacity, unsigned long length = 0, bool recordOnly = false) {
        unsigned char* b = files_.emplace_back(capacity, 0xEE).data();
        EXPECT_EQ(fom_set(name.c_str(), mode, b, capacity, length, recordOnly, nullptr), 0);
        names_.push_back(name);
        return b;
    }
    int open(const char* name, int flags) {
        const int fd = fom_open(name, flags);
        if (fd >= 0) fds_.push_back(fd);
        return fd;
    }
    std::list<tt::Guarded> files_;
    std::vector<std::string> names_;
    std::vector<int> fds_;
    std::pair<TIFFErrorHandler, TIFFErrorHandler> oldHandlers_;
};

const unsigned char kBytes[256] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};

TEST_F(Fom, RegistrationAndDescriptorNumbering) {
    unsigned char b[8];  // refused: no room, a length past it, no buffer or name, read-only record-only, 33 bits
    EXPECT_EQ((Ints{fom_set("r", O_RDWR, b, 0, 0, 0, nullptr), fom_set("r", O_RDWR, b, 4, 5, 0, nullptr),
                    fom_set("r", O_RDWR, nullptr, 4, 0, 0, nullptr), fom_set(nullptr, O_RDWR, b, 4, 0, 0, nullptr),
                    fom_set("r", O_RDONLY, b, 4, 0, 1, nullptr), fom_set("r", O_RDWR, b, 0x100000000ul, 0, 0, nullptr),
                    fom_isOnMemory("r"), fom_isOnMemory(nullptr)}), (Ints{-1, -1, -1, -1, -1, -1, 0, 0}));
    reg("rw", O_RDWR, 10);
    reg("ro", O_RDONLY, 10, 10);
    EXPECT_EQ((Ints{fom_set("rw", O_RDWR, b, 8, 0, 0, nullptr), fom_isOnMemory("rw"), fom_isOnMemory("RW"), fom_unset("never"),
                    fom_unset(nullptr)}), (Ints{-1, 1, 0, -1, -1}));  // no replacement; names are case-sensitive
    EXPECT_EQ((Ints{open("rw", O_WRONLY), open("ro", O_RDWR), open("none", O_RDWR), open(nullptr, O_RDWR),
                    open("rw", O_RDWR | O_CREAT | O_TRUNC), open("ro", O_RDONLY), open("rw", O_RDWR)}),
              (Ints{-1, -1, -1, -1, 0, 1, 2}));  // access modes must match; creation bits are ignored
    EXPECT_EQ((Ints{fom_close(1), fom_close(1), fom_close(77), open("rw", O_RDWR), fom_close(2), fom_close(3), open("rw", O_RDWR)}),
              (Ints{0, -1, -1, 3, 0, 0, 1}));  // holes are not filled: one above the largest open
}

TEST_F(Fom, WritesReadsAndSeeksStayInsideTheBuffer) {
    unsigned char* b = reg("w10", O_RDWR, 10);
    int fd = open("w10", O_RDWR);
    EXPECT_EQ((Ints{fom_write(fd, kBytes, 16), fom_write(fd, kBytes, 1), fom_fill(fd, 7, 3), fom_tell(fd), fom_eof(fd),
                    fom_getWritedBytes("w10"), fom_write(fd, nullptr, 1), fom_write(fd, kBytes, -1), fom_fill(fd, 0, -1),
                    fom_lseek(fd, 2, SEEK_SET), fom_fill(fd, 0x1AB, 3)}), (Ints{10, 0, 0, 10, 1, 10, -1, -1, -1, 2, 3}));
    EXPECT_EQ(tt::Bytes(b, b + 10), (tt::Bytes{1, 2, 0xAB, 0xAB, 0xAB, 6, 7, 8, 9, 10}));  // the low byte, over old data

    unsigned char* r = reg("ro", O_RDONLY, 100, 40);
    for (int i = 0; i < 100; ++i) r[i] = uint8_t(i);
    fd = open("ro", O_RDONLY);
    unsigned char out[64] = {};
    EXPECT_EQ((Ints{fom_read(fd, out, 64), out[39], out[40], fom_read(fd, out, 64), fom_write(fd, kBytes, 4), fom_fill(fd, 1, 4),
                    fom_lseek(fd, 60, SEEK_SET), fom_tell(fd), r[45], fom_read(fd, nullptr, 1), fom_read(fd, out, -1)}),
              (Ints{40, 39, 0, 0, 0, 0, -1, 40, 45, -1, -1}));  // a zero-fill up to 60 cannot be stored

    unsigned char* z = reg("rw", O_RDWR, 100, 10);
    std::memset(z, 0x55, 100);
    fd = open("rw", O_RDWR);
    EXPECT_EQ(fom_lseek(fd, 50, SEEK_SET), 50);
    EXPECT_EQ((Ints{std::count(z, z + 100, 0), z[9], z[50]}), (Ints{40, 0x55, 0x55}));  // a hole filled as file systems do
    const int seeks[][3] = {{0, SEEK_END, 50}, {101, SEEK_SET, -1}, {50, SEEK_CUR, 100}, {-100, SEEK_END, 0}, {-101, SEEK_END, -1},
                            {3, SEEK_SET, 3},  {-5, SEEK_CUR, -1},  {INT_MIN, SEEK_CUR, -1}, {0, 3, -1}, {-1, SEEK_SET, -1}};
    for (auto& s : seeks) EXPECT_EQ(fom_lseek(fd, s[0], s[1]), s[2]) << s[0] << " from " << s[1];
    EXPECT_EQ((Ints{fom_tell(fd), fom_lseek(42, 0, SEEK_SET), fom_tell(42)}), (Ints{3, -1, -1}));
}

TEST_F(Fom, DescriptorsShareThePositionAndFollowTheName) {
    std::memcpy(reg("shared", O_RDWR, 16, 16), kBytes, 16);
    reg("wo", O_WRONLY, 20, 15);
    const int a = open("shared", O_RDWR), w = open("wo", O_WRONLY);
    unsigned char out[4];
    EXPECT_EQ((Ints{fom_read(a, out, 4), fom_read(open("shared", O_RDWR), out, 4), out[0], fom_tell(a), fom_eof(w)}),
              (Ints{4, 4, 5, 8, 1}));  // opening keeps the position; a write-only file starts empty
    ASSERT_EQ(fom_unset("shared"), 0);
    EXPECT_EQ((Ints{fom_write(a, kBytes, 1), fom_tell(a), fom_eof(a)}), (Ints{-1, -1, 1}));
    unsigned char* fresh = reg("shared", O_RDWR, 8);
    EXPECT_EQ((Ints{fom_write(a, kBytes, 3), fresh[2]}), (Ints{3, 3}));  // reaches the new file
}

TEST_F(Fom, RecordOnlyFilesStoreTheRecordedSectionOnly) {
    unsigned char* b = reg("rec", O_RDWR, 100, 0, true);
    int fd = open("rec", O_RDWR);
    EXPECT_EQ((Ints{fom_write(fd, kBytes + 100, 8), b[0], fom_getWritedBytes("rec")}), (Ints{8, 0xEE, 0}));  // counted only
    fom_startRecording("rec");
    EXPECT_EQ((Ints{fom_write(fd, kBytes, 30), fom_getWritedBytes("rec")}), (Ints{30, 0}));  // nothing while recording
    fom_stopRecording("rec");
    unsigned char out[8];
    EXPECT_EQ((Ints{std::memcmp(b, kBytes, 30), fom_write(fd, kBytes, 200), b[30], fom_getWritedBytes("rec"), fom_read(fd, out, 8),
                    fom_tell(fd), fom_lseek(fd, 0, SEEK_END), fom_eof(fd)}),
              (Ints{0, 200, 0xEE, 30, 0, -1, -1, 1}));  // 238 is beyond 100 + 8
    EXPECT_EQ(fom_lseek(fd, 10, SEEK_SET), 10);
    fom_startRecording(long(fd));
    EXPECT_EQ((Ints{fom_write(fd, kBytes, 28), fom_write(fd, kBytes, 1), fom_getWritedBytes("rec")}),
              (Ints{28, -1, 0}));  // not past the first recording's end, 38; nothing reported while recording
    fom_stopRecording(long(fd));
    EXPECT_EQ(fom_getWritedBytes("rec"), 28);

    fom_startRecording(99L);  // unknown names and descriptors: nothing happens
    fom_startRecording(static_cast<const char*>(nullptr));
    fom_stopRecording("unknown");
    EXPECT_EQ((Ints{fom_getWritedBytes(nullptr), fom_getWritedBytes("unknown"), fom_eof(12345)}), (Ints{0, 0, 1}));

}

void writeGray(TIFF* tif, uint32_t w, uint32_t h) {
    tt::Bytes px(w * h);
    for (size_t i = 0; i < px.size(); ++i) px[i] = uint8_t(i * 7 + 3);
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, h);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, h);
    ASSERT_EQ(TIFFWriteEncodedStrip(tif, 0, px.data(), tmsize_t(px.size())), tmsize_t(px.size()));
}

TEST_F(Fom, TiffOnMemoryFiles) {
    const std::string name = tt::scratchDir("fom") + "/memory.tif";  // a path, yet in memory
    unsigned char* file = reg(name, O_RDWR, 4096);
    TIFF* tif = tifomOpen(name.c_str(), "w");
    ASSERT_NE(tif, nullptr);
    EXPECT_EQ(TIFFFileno(tif), 0);  // the store's descriptor
    writeGray(tif, 20, 10);
    TIFFClose(tif);
    const int length = fom_getWritedBytes(name.c_str());
    EXPECT_TRUE(!tt::fileExists(name) && std::memcmp(file, "II*\0", 4) == 0 && length > 208 && file[length] == 0xEE);
    EXPECT_EQ(g_tiffErrors, 0);
}

TEST_F(Fom, RefusedTiffOpensCloseTheirDescriptor) {
    reg("rw", O_RDWR, 1024);
    std::memset(reg("ro", O_RDONLY, 1024, 1024), 0x5A, 1024);  // not a TIFF header
    reg("tiny", O_RDWR, 4);  // too small for the header
    const std::pair<const char*, const char*> refused[] = {{"rw", "r"}, {"ro", "w"}, {"ro", "a"},
                                                           {"ro", "r+"}, {"ro", "r"}, {"tiny", "w"}};
    for (auto [name, mode] : refused) EXPECT_EQ(tifomOpen(name, mode), nullptr) << name << " " << mode;
    EXPECT_GT(g_tiffErrors, 0);  // libtiff said why; TearDown checks that descriptor 0 is free
    g_tiffErrors = 0;
    EXPECT_EQ(tifomOpen("rw", "x"), nullptr);
    EXPECT_EQ(g_tiffErrors, 1);  // reported once
    EXPECT_TRUE(tifomOpen("rw", nullptr) == nullptr && tifomOpen(nullptr, "w") == nullptr);
}

}  // namespace
