// The tag extension is installed once per process, chained to the extender
// installed before it, even when two threads make their first foreground
// dump at the same time.
//
// Every check runs in a fresh child process (nothing in this program's own
// process installs the extension), so each child sees a true first use.
#include <gtest/gtest.h>

#include <TavrinDebug.h>
#include <tiffio.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "test_files.h"

namespace {

std::string scratchDir() { return tavrin_test::scratchDir("tiff_tags"); }

// The extender a caller had installed before the library's.
std::atomic<int> callerExtenderCalls{0};
std::atomic<bool> callerSawPrivateTagsMissing{false};
void callerExtender(TIFF* tif) {
    ++callerExtenderCalls;
    // Chained after the merge: the private tags are known by now.
    if (TIFFFindField(tif, TAVRIN_TIFFTAG_CIC_MASKOFFSET, TIFF_ANY) == nullptr)
        callerSawPrivateTagsMissing = true;
}

TIFFExtendProc currentExtender() {
    TIFFExtendProc current = TIFFSetTagExtender(nullptr);
    TIFFSetTagExtender(current);
    return current;
}

// A plain two-page TIFF, written before any extension is installed.
void writeSample(const std::string& path) {
    TIFF* tif = TIFFOpen(path.c_str(), "w");
    ASSERT_NE(tif, nullptr);
    uint8_t row[1] = {0x5A};
    for (int page = 0; page < 2; ++page) {
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, 8u);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, 1u);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
        TIFFWriteEncodedStrip(tif, 0, row, 1);
        TIFFWriteDirectory(tif);
    }
    TIFFClose(tif);
}

// Calls of the caller's extender while every page of the sample is read.
int extenderCallsForReading(const std::string& path) {
    const int before = callerExtenderCalls;
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    if (tif == nullptr) return -1;
    while (TIFFReadDirectory(tif)) {
    }
    TIFFClose(tif);
    return callerExtenderCalls - before;
}

// Both private tags come back from a dump with the values that went in.
bool dumpHasTags(const std::string& path, int16_t x, uint8_t red) {
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    if (tif == nullptr) return false;
    int32_t* offset = nullptr;
    uint16_t* colour = nullptr;
    bool ok = TIFFNumberOfDirectories(tif) == 2 &&
              TIFFGetField(tif, TAVRIN_TIFFTAG_CIC_MASKOFFSET, &offset) && offset[0] == x &&
              offset[1] == -x && TIFFGetField(tif, TAVRIN_TIFFTAG_CIC_MASK_COLOR, &colour) &&
              colour[0] == red && colour[1] == 0 && colour[2] == 255;
    TIFFClose(tif);
    return ok;
}

enum ChildFailure {
    kBaseline = 10,        // sample could not be read
    kNotInstalled,         // the current extender is not the library's
    kNotChainedOnce,       // caller's extender not called once per directory
    kTagsMissing,          // caller's extender ran before the merge
    kDumpUnreadable,       // a dump lacks its pages or tags
    kReinstalled,          // a second _XTIFFInitialize changed something
};

// Exit code of the child, or -1 when it crashed, or -2 when it did not end
// within the time limit (an extender calling itself loops for ever once the
// compiler turns the call into a jump).
int waitForChild(pid_t child) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return -2;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Child body: two threads start their first foreground dump together.
int raceInChild(const std::string& dir, int round) {
    TIFFSetTagExtender(callerExtender);
    const std::string sample = dir + "/sample.tif";
    const int baseline = extenderCallsForReading(sample);
    if (baseline <= 0) return kBaseline;
    callerSawPrivateTagsMissing = false;  // nothing installed them yet

    std::atomic<int> ready{0};
    auto dump = [&](int t) {
        uint8_t data[4] = {0x01, 0x02, 0x03, static_cast<uint8_t>(t)};
        std::vector<SoftCicResult> slots(3);
        slots[0].iLayerNum = 3;
        for (int s = 1; s < 3; ++s) {
            strFgImgInfo& l = slots[s].stFgImgInfo;
            l = strFgImgInfo{};
            l.lMmrSize = 4;
            l.pucMmrData = data;
            l.usWidth = l.usHeight = 8;
            l.sMaskOffsetX = static_cast<int16_t>(100 * t + 1);
            l.sMaskOffsetY = static_cast<int16_t>(-(100 * t + 1));
            l.aucMaskColor[0] = static_cast<uint8_t>(t);
            l.aucMaskColor[2] = 255;
        }
        std::string path = dir + "/race" + std::to_string(round) + "_" + std::to_string(t) + ".tif";
        ++ready;
        while (ready < 2) {
        }
        TavrinApp_DebugFGImg(slots.data(), &path[0]);
    };
    std::thread t1(dump, 1), t2(dump, 2);
    t1.join();
    t2.join();

    if (currentExtender() != &_XTIFFDefaultDirectory) return kNotInstalled;
    if (extenderCallsForReading(sample) != baseline) return kNotChainedOnce;
    if (callerSawPrivateTagsMissing) return kTagsMissing;
    for (int t = 1; t <= 2; ++t) {
        std::string path = dir + "/race" + std::to_string(round) + "_" + std::to_string(t) + ".tif";
        if (!dumpHasTags(path, static_cast<int16_t>(100 * t + 1), static_cast<uint8_t>(t)))
            return kDumpUnreadable;
    }
    _XTIFFInitialize();
    if (currentExtender() != &_XTIFFDefaultDirectory) return kReinstalled;
    if (extenderCallsForReading(sample) != baseline) return kReinstalled;
    return 0;
}

TEST(TiffTagExtension, TwoThreadsFirstDumpInstallOnceAndChain) {
    const std::string dir = scratchDir();
    writeSample(dir + "/sample.tif");
    for (int round = 0; round < 12; ++round) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) _exit(raceInChild(dir, round));
        // -1 crashed, -2 hung: both mean the extender called itself.
        ASSERT_EQ(waitForChild(child), 0) << "round " << round;
    }
}

// Child body: without a caller's extender, two initialisations install the
// library's extender once; a sample is read without recursion.
int twiceInChild(const std::string& dir) {
    TIFFSetTagExtender(nullptr);
    _XTIFFInitialize();
    _XTIFFInitialize();
    if (currentExtender() != &_XTIFFDefaultDirectory) return kNotInstalled;
    // Installing a caller's extender afterwards and initialising again must
    // leave the caller's extender in place.
    TIFFSetTagExtender(callerExtender);
    _XTIFFInitialize();
    if (currentExtender() != &callerExtender) return kReinstalled;
    TIFFSetTagExtender(&_XTIFFDefaultDirectory);
    return extenderCallsForReading(dir + "/sample.tif") == 0 ? 0 : kNotChainedOnce;
}

TEST(TiffTagExtension, SecondInitialisationDoesNothing) {
    const std::string dir = scratchDir();
    writeSample(dir + "/sample.tif");
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) _exit(twiceInChild(dir));
    EXPECT_EQ(waitForChild(child), 0);
}

}  // namespace
