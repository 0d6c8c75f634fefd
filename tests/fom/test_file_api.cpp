// The fom_* functions on the process registry: POSIX-like reads, writes and
// seeks bounded by fixed buffers, record-only files and their recordings.
#include <TavrinFom.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Registers files and opens descriptors, and undoes all of it afterwards so
// that every test starts with an empty store.
class FomApi : public ::testing::Test {
protected:
    void TearDown() override {
        for (int fd : fds_) fom_close(fd);
        for (const std::string& n : names_) fom_unset(n.c_str());
    }
    unsigned char* reg(const char* name, int mode, size_t capacity, unsigned long length = 0,
                       bool recordOnly = false) {
        buffers_.emplace_back(capacity + 16, 0xEE);  // 16 guard bytes after the file
        EXPECT_EQ(fom_set(name, mode, buffers_.back().data(), capacity, length, recordOnly, nullptr), 0);
        names_.push_back(name);
        return buffers_.back().data();
    }
    int open(const char* name, int flags) {
        int fd = fom_open(name, flags);
        if (fd >= 0) fds_.push_back(fd);
        return fd;
    }
    static bool guardIntact(const unsigned char* buffer, size_t capacity) {
        for (size_t i = 0; i < 16; ++i)
            if (buffer[capacity + i] != 0xEE) return false;
        return true;
    }
    std::vector<std::vector<unsigned char>> buffers_;
    std::vector<std::string> names_;
    std::vector<int> fds_;
};

const unsigned char kBytes[256] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};

TEST_F(FomApi, SetRefusals) {
    unsigned char b[8];
    EXPECT_EQ(fom_set("r", O_RDWR, b, 0, 0, 0, nullptr), -1);       // capacity 0
    EXPECT_EQ(fom_set("r", O_RDWR, b, 4, 5, 0, nullptr), -1);       // length beyond
    EXPECT_EQ(fom_set("r", O_RDWR, nullptr, 4, 0, 0, nullptr), -1); // no buffer
    EXPECT_EQ(fom_set(nullptr, O_RDWR, b, 4, 0, 0, nullptr), -1);
    EXPECT_EQ(fom_set("r", O_RDONLY, b, 4, 0, 1, nullptr), -1);     // read-only + record-only
    if (sizeof(unsigned long) > 4) {
        EXPECT_EQ(fom_set("r", O_RDWR, b, 0x100000000ul, 0, 0, nullptr), -1);
    }
    EXPECT_EQ(fom_isOnMemory("r"), 0);
    reg("r", O_RDWR, 8);
    EXPECT_EQ(fom_set("r", O_RDWR, b, 8, 0, 0, nullptr), -1);      // already registered
    EXPECT_EQ(fom_isOnMemory("r"), 1);
    EXPECT_EQ(fom_isOnMemory(nullptr), 0);
    EXPECT_EQ(fom_unset("never"), -1);
}

TEST_F(FomApi, OpenCloseAndNumbering) {
    reg("rw", O_RDWR, 10);
    reg("ro", O_RDONLY, 10, 10);
    EXPECT_EQ(open("rw", O_WRONLY), -1);                     // access mode differs
    EXPECT_EQ(open("ro", O_RDWR), -1);
    EXPECT_EQ(open("none", O_RDWR), -1);
    EXPECT_EQ(open(nullptr, O_RDWR), -1);
    EXPECT_EQ(open("rw", O_RDWR | O_CREAT | O_TRUNC), 0);    // creation bits ignored
    EXPECT_EQ(open("ro", O_RDONLY), 1);
    EXPECT_EQ(open("rw", O_RDWR), 2);
    EXPECT_EQ(fom_close(1), 0);
    EXPECT_EQ(fom_close(1), -1);                             // closed twice
    EXPECT_EQ(fom_close(77), -1);                            // never opened
    EXPECT_EQ(fom_open("rw", O_RDWR), 3);
    fds_.push_back(3);
    EXPECT_EQ(fom_close(2), 0);
    EXPECT_EQ(fom_close(3), 0);
    EXPECT_EQ(open("rw", O_RDWR), 1);
}

TEST_F(FomApi, WriteStopsAtTheBuffer) {
    unsigned char* b = reg("w10", O_RDWR, 10);
    int fd = open("w10", O_RDWR);
    EXPECT_EQ(fom_write(fd, kBytes, 16), 10);
    EXPECT_EQ(fom_tell(fd), 10);
    EXPECT_EQ(fom_write(fd, kBytes, 1), 0);
    EXPECT_EQ(fom_fill(fd, 7, 3), 0);
    EXPECT_EQ(fom_eof(fd), 1);
    EXPECT_EQ(fom_getWritedBytes("w10"), 10);  // plain file: its length
    EXPECT_EQ(std::memcmp(b, kBytes, 10), 0);
    EXPECT_TRUE(guardIntact(b, 10));
    EXPECT_EQ(fom_write(fd, nullptr, 1), -1);
    EXPECT_EQ(fom_write(fd, kBytes, -1), -1);
    EXPECT_EQ(fom_fill(fd, 0, -1), -1);
    EXPECT_EQ(fom_write(99, kBytes, 1), -1);
    // Back to the start: data overwritten in place, length kept.
    EXPECT_EQ(fom_lseek(fd, 2, SEEK_SET), 2);
    EXPECT_EQ(fom_fill(fd, 0x1AB, 3), 3);  // only the low byte is stored
    EXPECT_EQ(b[1], 2);
    EXPECT_EQ(b[2], 0xAB);
    EXPECT_EQ(b[4], 0xAB);
    EXPECT_EQ(b[5], 6);
    EXPECT_EQ(fom_getWritedBytes("w10"), 10);
}

TEST_F(FomApi, ReadOnlyFile) {
    unsigned char* b = reg("ro", O_RDONLY, 100, 40);
    for (int i = 0; i < 100; ++i) b[i] = static_cast<unsigned char>(i);
    int fd = open("ro", O_RDONLY);
    unsigned char out[64] = {};
    EXPECT_EQ(fom_read(fd, out, 64), 40);
    EXPECT_EQ(out[39], 39);
    EXPECT_EQ(out[40], 0);
    EXPECT_EQ(fom_read(fd, out, 64), 0);
    EXPECT_EQ(fom_write(fd, kBytes, 4), 0);
    EXPECT_EQ(fom_fill(fd, 1, 4), 0);
    EXPECT_EQ(fom_lseek(fd, 101, SEEK_SET), -1);  // beyond the buffer
    EXPECT_EQ(fom_tell(fd), 40);
    // Within the buffer but past the end: the zero-fill stores nothing.
    EXPECT_EQ(fom_lseek(fd, 60, SEEK_SET), -1);
    EXPECT_EQ(fom_tell(fd), 40);
    EXPECT_EQ(b[45], 45);
    EXPECT_EQ(fom_read(fd, nullptr, 1), -1);
    EXPECT_EQ(fom_read(fd, out, -1), -1);
    EXPECT_EQ(fom_lseek(fd, 0, SEEK_SET), 0);
    EXPECT_EQ(fom_read(fd, out, 0), 0);
    EXPECT_EQ(fom_eof(fd), 0);
}

TEST_F(FomApi, SeekPastTheEndZeroFills) {
    unsigned char* b = reg("rw", O_RDWR, 100, 10);
    std::memset(b, 0x55, 100);
    int fd = open("rw", O_RDWR);
    EXPECT_EQ(fom_lseek(fd, 50, SEEK_SET), 50);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(b[i], 0x55);
    for (int i = 10; i < 50; ++i) ASSERT_EQ(b[i], 0) << i;
    EXPECT_EQ(b[50], 0x55);
    EXPECT_EQ(fom_lseek(fd, 0, SEEK_END), 50);  // the length became 50
    EXPECT_EQ(fom_lseek(fd, 101, SEEK_SET), -1);
    EXPECT_EQ(fom_lseek(fd, 50, SEEK_CUR), 100);  // exactly the capacity
    EXPECT_EQ(fom_eof(fd), 1);
    EXPECT_EQ(fom_lseek(fd, -100, SEEK_END), 0);
    EXPECT_EQ(fom_lseek(fd, -101, SEEK_END), -1);
    EXPECT_EQ(fom_lseek(fd, 3, SEEK_SET), 3);
    EXPECT_EQ(fom_lseek(fd, -5, SEEK_CUR), -1);
    EXPECT_EQ(fom_lseek(fd, INT_MIN, SEEK_CUR), -1);
    EXPECT_EQ(fom_lseek(fd, 0, 3), -1);
    EXPECT_EQ(fom_lseek(fd, -1, SEEK_SET), -1);
    EXPECT_EQ(fom_tell(fd), 3);
    EXPECT_EQ(fom_lseek(42, 0, SEEK_SET), -1);
    EXPECT_EQ(fom_tell(42), -1);
}

TEST_F(FomApi, WriteOnlyFile) {
    reg("wo", O_WRONLY, 20, 15);
    int fd = open("wo", O_WRONLY);
    EXPECT_EQ(fom_eof(fd), 1);  // starts with length 0
    EXPECT_EQ(fom_write(fd, kBytes, 5), 5);
    EXPECT_EQ(fom_lseek(fd, 0, SEEK_SET), 0);
    unsigned char out[8];
    EXPECT_EQ(fom_read(fd, out, 5), 0);
    EXPECT_EQ(fom_eof(fd), 0);
}

TEST_F(FomApi, DescriptorsShareThePosition) {
    unsigned char* b = reg("shared", O_RDWR, 16, 16);
    std::memcpy(b, kBytes, 16);
    int a = open("shared", O_RDWR);
    unsigned char out[4];
    EXPECT_EQ(fom_read(a, out, 4), 4);
    int c = open("shared", O_RDWR);  // opening does not reset the position
    EXPECT_EQ(fom_tell(c), 4);
    EXPECT_EQ(fom_read(c, out, 4), 4);
    EXPECT_EQ(out[0], 5);
    EXPECT_EQ(fom_tell(a), 8);
}

TEST_F(FomApi, DescriptorOutlivesItsName) {
    reg("gone", O_RDWR, 8);
    int fd = open("gone", O_RDWR);
    ASSERT_EQ(fom_unset("gone"), 0);
    names_.clear();
    EXPECT_EQ(fom_write(fd, kBytes, 1), -1);
    EXPECT_EQ(fom_tell(fd), -1);
    EXPECT_EQ(fom_eof(fd), 1);
    unsigned char* fresh = reg("gone", O_RDWR, 8);
    EXPECT_EQ(fom_write(fd, kBytes, 3), 3);  // reaches the new file
    EXPECT_EQ(fresh[2], 3);
    EXPECT_EQ(fom_close(fd), 0);
    fds_.clear();
}

TEST_F(FomApi, RecordOnlyFileKeepsTheRecordedSection) {
    unsigned char* b = reg("rec", O_RDWR, 100, 0, true);
    int fd = open("rec", O_RDWR);
    unsigned char data[230];
    for (int i = 0; i < 230; ++i) data[i] = static_cast<unsigned char>(i + 1);
    EXPECT_EQ(fom_write(fd, data, 8), 8);  // counted, not stored
    EXPECT_EQ(b[0], 0xEE);
    fom_startRecording("rec");
    EXPECT_EQ(fom_getWritedBytes("rec"), 0);  // while recording
    EXPECT_EQ(fom_write(fd, data + 8, 30), 30);
    fom_stopRecording("rec");
    EXPECT_EQ(std::memcmp(b, data + 8, 30), 0);
    EXPECT_EQ(b[30], 0xEE);
    EXPECT_EQ(fom_write(fd, data, 200), 200);
    EXPECT_EQ(b[30], 0xEE);
    EXPECT_EQ(fom_getWritedBytes("rec"), 30);
    unsigned char out[8];
    EXPECT_EQ(fom_read(fd, out, 8), 0);
    EXPECT_EQ(fom_tell(fd), -1);  // 238 is beyond 100 + 8
    EXPECT_EQ(fom_lseek(fd, 0, SEEK_END), -1);
    EXPECT_EQ(fom_eof(fd), 1);
    EXPECT_TRUE(guardIntact(b, 100));
}

TEST_F(FomApi, RecordingNeverPassesTheBuffer) {
    unsigned char* b = reg("rec", O_RDWR, 100, 0, true);
    int fd = open("rec", O_RDWR);
    EXPECT_EQ(fom_fill(fd, 0, 8), 8);
    EXPECT_EQ(fom_getWritedBytes("rec"), 0);  // no recording has ended
    fom_startRecording(static_cast<long>(fd));
    std::vector<unsigned char> data(150, 0x77);
    EXPECT_EQ(fom_write(fd, data.data(), 150), 100);
    EXPECT_EQ(fom_write(fd, data.data(), 1), 0);  // full
    EXPECT_EQ(fom_tell(fd), 108);
    EXPECT_EQ(fom_lseek(fd, 4, SEEK_SET), 4);
    EXPECT_EQ(fom_write(fd, data.data(), 1), -1);  // before the recording start
    EXPECT_EQ(fom_lseek(fd, 109, SEEK_SET), -1);  // beyond capacity + start
    fom_stopRecording(static_cast<long>(fd));
    EXPECT_EQ(fom_getWritedBytes("rec"), 0);  // stopped at 4, before the start
    EXPECT_TRUE(guardIntact(b, 100));
    fom_startRecording(99L);  // unknown descriptor: nothing happens
}

TEST_F(FomApi, SecondRecordingIsBoundedByTheFirstEnd) {
    reg("rec", O_RDWR, 100, 0, true);
    int fd = open("rec", O_RDWR);
    fom_startRecording("rec");
    EXPECT_EQ(fom_write(fd, kBytes, 10), 10);
    fom_stopRecording("rec");
    EXPECT_EQ(fom_lseek(fd, 2, SEEK_SET), 2);
    fom_startRecording("rec");
    EXPECT_EQ(fom_write(fd, kBytes, 8), 8);   // ends exactly on the old mark
    EXPECT_EQ(fom_write(fd, kBytes, 1), -1);  // would pass it
    fom_stopRecording("rec");
    EXPECT_EQ(fom_getWritedBytes("rec"), 8);
}

TEST_F(FomApi, RecordOnlySeekOutsideARecordingIsCounted) {
    unsigned char* b = reg("rec", O_RDWR, 16, 0, true);
    int fd = open("rec", O_RDWR);
    EXPECT_EQ(fom_lseek(fd, 12, SEEK_SET), 12);  // the gap is counted only
    EXPECT_EQ(b[0], 0xEE);
    EXPECT_EQ(fom_lseek(fd, 17, SEEK_SET), -1);  // seek limit: capacity + 0
    fom_startRecording("rec");
    EXPECT_EQ(fom_lseek(fd, 20, SEEK_SET), 20);  // limit now 16 + 12; zero-filled
    for (int i = 0; i < 8; ++i) EXPECT_EQ(b[i], 0) << i;
    EXPECT_EQ(b[8], 0xEE);
    fom_stopRecording("rec");
    EXPECT_EQ(fom_getWritedBytes("rec"), 8);
}

TEST_F(FomApi, NullAndUnknownNamesFindNothing) {
    fom_startRecording(static_cast<const char*>(nullptr));
    fom_stopRecording("unknown");
    EXPECT_EQ(fom_getWritedBytes(nullptr), 0);
    EXPECT_EQ(fom_getWritedBytes("unknown"), 0);
    EXPECT_EQ(fom_unset(nullptr), -1);
    EXPECT_EQ(fom_eof(12345), 1);
}

}  // namespace
