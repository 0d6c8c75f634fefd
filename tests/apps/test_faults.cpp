// Faults while the tavrin program runs: a full disk (a file-size limit) while
// each output is written, an interrupt in the middle of a multi-page run, an
// unreadable page in the middle of a TIFF, a page too large for memory (an
// address-space limit). Each must end with one message line and its exit
// code, leave no temporary file, and leave outputs of an earlier run as
// they were.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "TavrinEncode.h"
#include "e2e_support.h"
#include "formats/write_png.h"
#include "generated_pages.h"

using namespace e2e;

namespace {

const char kOld[] = "output of an earlier run\n";

struct Limits {
    rlim_t fileSize = RLIM_INFINITY, addressSpace = RLIM_INFINITY;
    int signal = 0;           // sent once `whenExists` exists
    std::string whenExists;
};

struct Outcome {
    int code = -1;
    std::string err;
};

// Runs tavrin in `dir` (where its outputs go by default) under the limits.
Outcome run(const std::vector<std::string>& args, const std::string& dir, const Limits& lim = {}) {
    const std::string errPath = dir + "/err";
    const pid_t pid = fork();
    if (pid == 0) {
        if (chdir(dir.c_str()) != 0) _exit(127);
        const rlimit fsize{lim.fileSize, lim.fileSize}, as{lim.addressSpace, lim.addressSpace};
        setrlimit(RLIMIT_FSIZE, &fsize);
        setrlimit(RLIMIT_AS, &as);
        signal(SIGXFSZ, SIG_IGN);  // a write past the limit then fails with EFBIG
        dup2(open("/dev/null", O_WRONLY), 1);
        dup2(open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
        std::vector<char*> argv{const_cast<char*>(TAVRIN_BINARY)};
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(TAVRIN_BINARY, argv.data());
        _exit(127);
    }
    int status = 0;
    if (lim.signal != 0) {
        while (waitpid(pid, &status, WNOHANG) == 0 && !fileExists(lim.whenExists))
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        kill(pid, lim.signal);
    }
    waitpid(pid, &status, 0);
    Outcome o{WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), readFile(errPath)};
    std::remove(errPath.c_str());
    return o;
}

// One line "tavrin: ..." holding `what`; the outputs of the earlier run
// unchanged; nothing else in the directory.
void expectCleanFailure(const Outcome& o, int code, const std::string& what, const std::string& dir,
                        const std::vector<std::string>& outputs, const std::vector<std::string>& inputs) {
    EXPECT_EQ(o.code, code) << o.err;
    EXPECT_EQ(o.err.rfind("tavrin: ", 0), 0u) << o.err;
    EXPECT_NE(o.err.find(what), std::string::npos) << o.err;
    EXPECT_EQ(std::count(o.err.begin(), o.err.end(), '\n'), 1) << o.err;
    for (const std::string& out : outputs) EXPECT_EQ(readFile(dir + "/" + out), kOld) << out;
    std::vector<std::string> expected = outputs;
    expected.insert(expected.end(), inputs.begin(), inputs.end());
    std::vector<std::string> found = listDir(dir);
    std::sort(expected.begin(), expected.end());
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, expected);
}

void writeOld(const std::string& dir, const std::vector<std::string>& names) {
    for (const std::string& n : names) {
        FILE* f = std::fopen((dir + "/" + n).c_str(), "wb");
        std::fputs(kOld, f);
        std::fclose(f);
    }
}

std::vector<tavrin::Page> textPages(int count, int width, int height) {
    std::vector<tavrin::Page> pages;
    for (int i = 0; i < count; ++i) pages.push_back(makeTextPage(width, height, false, 100 + i).page);
    return pages;
}

struct DiskFullCase {
    const char* output;   // the output that does not fit
    int side;             // page side in pixels
    rlim_t limit;         // file-size limit in bytes
};

void PrintTo(const DiskFullCase& c, std::ostream* os) { *os << c.output; }

class FullDisk : public ::testing::TestWithParam<DiskFullCase> {};

// A 600-pixel page makes a PDF and an overlay of many kilobytes; a 16-pixel
// blank page makes an overlay of a few hundred bytes and a longer report.
TEST_P(FullDisk, LeavesEarlierOutputsAlone) {
    const DiskFullCase c = GetParam();
    const std::string dir = scratchDir(std::string("full-") + c.output);
    tavrin::Page page = makeTextPage(c.side, c.side, false, 3).page;
    tavrin::writePng(page, dir + "/p.png");
    const std::vector<std::string> outputs = {"p.pdf", "p-overlay.png", "p.json"};
    writeOld(dir, outputs);
    Limits lim;
    lim.fileSize = c.limit;
    const bool pdf = std::string(c.output) == "p.pdf";
    const Outcome o = run({pdf ? "compress" : "detect", "p.png"}, dir, lim);
    expectCleanFailure(o, 1, std::string(c.output) + ": cannot write: File too large", dir, outputs, {"p.png"});
}

INSTANTIATE_TEST_SUITE_P(Faults, FullDisk,
                         ::testing::Values(DiskFullCase{"p.pdf", 600, 4096}, DiskFullCase{"p-overlay.png", 600, 4096},
                                           DiskFullCase{"p.json", 16, 700}),
                         [](const auto& info) {
                             std::string name = info.param.output;
                             for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                             return name;
                         });

TEST(Faults, InterruptInTheMiddleOfAMultiPageRun) {
    const std::string dir = scratchDir("interrupt");
    writeTiff(textPages(12, 900, 1200), dir + "/pages.tif");
    const std::vector<std::string> outputs = {"pages.pdf", "pages-overlay.png", "pages-overlay-p2.png", "pages.json"};
    for (const auto& [command, sig, name] : {std::make_tuple("detect", SIGINT, "SIGINT"),
                                             std::make_tuple("compress", SIGTERM, "SIGTERM")}) {
        writeOld(dir, outputs);
        // The debug dump of page 3 appears once pages 1 and 2 are done.
        Limits lim;
        lim.signal = sig;
        lim.whenExists = dir + "/dump/page-003";
        const Outcome o = run({command, "pages.tif", "--dump", "dump"}, dir, lim);
        std::system(("rm -rf '" + dir + "/dump'").c_str());
        expectCleanFailure(o, 128 + sig, std::string("interrupted by ") + name, dir, outputs, {"pages.tif"});
    }
}

// Page 2's first strip is overwritten with bytes that are no LZW data.
TEST(Faults, UnreadablePageInTheMiddleOfATiff) {
    const std::string dir = scratchDir("bad-page");
    const std::string tif = dir + "/pages.tif";
    writeTiff(textPages(3, 400, 300), tif);
    TIFF* t = TIFFOpen(tif.c_str(), "r");
    ASSERT_TRUE(t && TIFFSetDirectory(t, 1));
    uint64_t *offsets = nullptr, *counts = nullptr;
    ASSERT_TRUE(TIFFGetField(t, TIFFTAG_STRIPOFFSETS, &offsets) && TIFFGetField(t, TIFFTAG_STRIPBYTECOUNTS, &counts));
    const uint64_t at = offsets[0], n = counts[0];
    TIFFClose(t);
    std::string bytes = readFile(tif);
    std::fill(bytes.begin() + at, bytes.begin() + at + n, '\xFF');
    FILE* f = std::fopen(tif.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
    const std::vector<std::string> outputs = {"pages.pdf", "pages-overlay.png", "pages.json"};
    writeOld(dir, outputs);
    for (const char* command : {"detect", "compress"})
        expectCleanFailure(run({command, "pages.tif"}, dir), 4, "pages.tif: damaged TIFF, page 2", dir, outputs,
                           {"pages.tif"});
}

// A 16 x 16 JPEG whose header claims 20000 x 20000 pixels: 1.1 GiB as RGB,
// beyond an address space of 768 MiB.
TEST(Faults, PageTooLargeForMemory) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "AddressSanitizer's shadow memory alone exceeds the address-space limit";
#endif
    const std::string dir = scratchDir("memory");
    std::vector<uint8_t> rgb(16 * 16 * 3, 128), stream(rgb.size());
    ImgTavrin img{rgb.data(), 16, 16, 30000, 30000, 1};
    strBgImgInfo info{0, stream.data()};
    ASSERT_EQ(Tavrin_MakeJPGStream(&info, &img, 75, 0, 0), 0);
    for (uint32_t i = 0; i + 8 < info.ulStreamSize; ++i)
        if (stream[i] == 0xFF && stream[i + 1] == 0xC0) {  // start of frame: height, width at +5
            stream[i + 5] = stream[i + 7] = 20000 >> 8;
            stream[i + 6] = stream[i + 8] = 20000 & 0xFF;
            break;
        }
    FILE* f = std::fopen((dir + "/big.jpg").c_str(), "wb");
    std::fwrite(stream.data(), 1, info.ulStreamSize, f);
    std::fclose(f);
    const std::vector<std::string> outputs = {"big.pdf", "big-overlay.png", "big.json"};
    writeOld(dir, outputs);
    Limits lim;
    lim.addressSpace = rlim_t(768) << 20;
    for (const char* command : {"detect", "compress"})
        expectCleanFailure(run({command, "big.jpg"}, dir, lim), 1,
                           "big.jpg: not enough memory for a page of 20000 x 20000 pixels", dir, outputs,
                           {"big.jpg"});
}

}  // namespace
