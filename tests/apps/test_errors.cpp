// Bad input to the tavrin program: one clear message, the documented exit
// code, no crash, and no file left under the requested output name.
#include <gtest/gtest.h>

#include <cstdio>

#include "e2e_support.h"
#include "formats/write_png.h"
#include "generated_pages.h"

using namespace e2e;

namespace {

void writeText(const std::string& path, const std::string& text) {
    FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
}

// One line on standard error that starts with "tavrin: " and holds `what`.
void expectMessage(const RunResult& r, const std::string& what) {
    EXPECT_EQ(r.err.rfind("tavrin: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(what), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
}

}  // namespace

TEST(ErrorsE2E, MissingAndUnreadableInput) {
    const std::string dir = scratchDir("err-input");
    RunResult r = runTavrin({"compress", dir + "/none.png", "-o", dir + "/x.pdf"});
    EXPECT_EQ(r.exitCode, 3);
    expectMessage(r, "none.png: cannot open: No such file or directory");
    r = runTavrin({"detect", dir, "--json", dir + "/x.json", "--overlay", dir + "/x.png"});
    EXPECT_EQ(r.exitCode, 3);
    expectMessage(r, "cannot read");
    EXPECT_TRUE(listDir(dir).empty());
}

TEST(ErrorsE2E, UnsupportedAndDamagedImages) {
    const std::string dir = scratchDir("err-format");
    writeText(dir + "/notes.txt", "just some text\n");
    RunResult r = runTavrin({"compress", dir + "/notes.txt", "-o", dir + "/x.pdf"});
    EXPECT_EQ(r.exitCode, 4);
    expectMessage(r, "unsupported format (not a PNG, TIFF, JPEG or PNM image)");

    const GeneratedPage g = makeTextPage(600, 400, false, 7);
    tavrin::writePng(g.page, dir + "/page.png");
    const std::string png = readFile(dir + "/page.png");
    writeText(dir + "/cut.png", png.substr(0, png.size() / 2));
    r = runTavrin({"compress", dir + "/cut.png", "-o", dir + "/x.pdf"});
    EXPECT_EQ(r.exitCode, 4);
    expectMessage(r, "cut.png: damaged PNG");

    writeText(dir + "/cut.jpg", readFile(samplePage()).substr(0, 600));
    r = runTavrin({"detect", dir + "/cut.jpg", "--json", dir + "/x.json", "--overlay", dir + "/x.png"});
    EXPECT_EQ(r.exitCode, 4);
    expectMessage(r, "cut.jpg: damaged JPEG");

    writeText(dir + "/short.pgm", "P5\n100 100\n255\n" + std::string(50, '\x80'));
    r = runTavrin({"compress", dir + "/short.pgm", "-o", dir + "/x.pdf"});
    EXPECT_EQ(r.exitCode, 4);
    expectMessage(r, "damaged PNM (file too short)");

    writeText(dir + "/huge.pgm", "P5\n70000 10\n255\n");
    r = runTavrin({"compress", dir + "/huge.pgm", "-o", dir + "/x.pdf"});
    EXPECT_EQ(r.exitCode, 4);
    expectMessage(r, "at most 65535 pixels per side");

    writeText(dir + "/bad.tif", std::string("II*\0garbage", 11));
    r = runTavrin({"compress", dir + "/bad.tif", "-o", dir + "/x.pdf"});
    EXPECT_EQ(r.exitCode, 4);
    expectMessage(r, "damaged TIFF");
    // Nothing was written under the requested names, no temporary left.
    for (const std::string& name : listDir(dir)) EXPECT_TRUE(name.find("x.") == std::string::npos) << name;
}

TEST(ErrorsE2E, BadOptionValues) {
    const std::string dir = scratchDir("err-options");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"compress", "--bg-quality", "0"}, "--bg-quality: expected a whole number from 1 to 100, got '0'"},
        {{"compress", "--picture-psnr", "abc"}, "--picture-psnr: expected a number from 10 to 60, got 'abc'"},
        {{"compress", "--bg-dpi", "5"}, "--bg-dpi: expected a number from 10 to 1200, got '5'"},
        {{"compress", "--sampling", "411"}, "--sampling: expected 420, 422, 444 or a mode from 0 to 5"},
        {{"compress", "--colours", "9"}, "--colours: expected a whole number from 1 to 8, got '9'"},
        {{"compress", "--preset", "tiny"}, "--preset: expected default, pictures or archive, got 'tiny'"},
        {{"detect", "--min-fill", "1.5"}, "--min-fill: expected a number from 0 to 1, got '1.5'"},
        {{"detect", "--dpi", "nan"}, "--dpi: expected a number from 10 to 10000, got 'nan'"},
        {{"detect", "--space-sigma"}, "--space-sigma: missing value"},
        {{"detect", "--bogus"}, "unknown option '--bogus'"},
        {{"detect", "--bg-quality", "50"}, "unknown option '--bg-quality'"},
        {{"detect", "a.png", "b.png"}, "more than one PAGE given"},
        {{"frobnicate"}, "unknown command 'frobnicate'"},
    };
    for (const auto& c : cases) {
        const RunResult r = runTavrin(c.first);
        EXPECT_EQ(r.exitCode, 2) << c.second;
        expectMessage(r, c.second);
    }
    writeText(dir + "/p.txt", "min-fill = 0.3\nwidth-min = 3\n");
    RunResult r = runTavrin({"detect", "--params", dir + "/p.txt"});
    EXPECT_EQ(r.exitCode, 2);
    expectMessage(r, "p.txt:2: unknown parameter 'width-min'");
    writeText(dir + "/t.txt", "10 10 5 20\n");
    r = runTavrin({"detect", "--tables", dir + "/t.txt"});
    EXPECT_EQ(r.exitCode, 2);
    expectMessage(r, "t.txt:1: expected x0 <= x1 and y0 <= y1");
}

TEST(ErrorsE2E, UnwritableOutputLeavesNothing) {
    const std::string dir = scratchDir("err-output");
    const RunResult r = runTavrin({"compress", "-o", dir + "/missing/out.pdf"});
    EXPECT_EQ(r.exitCode, 1);
    expectMessage(r, "missing/out.pdf: cannot create: No such file or directory");
    EXPECT_TRUE(listDir(dir).empty());
}

TEST(ErrorsE2E, PageBeyondDetectorLimitsIsReducedWithANote) {
    const std::string dir = scratchDir("err-large");
    // 5400 pixels wide: a quarter-resolution row of 1350 pixels is more than
    // the detector's smoothing filter takes (1312).
    tavrin::Page p;
    p.width = 5400, p.height = 1200, p.channels = 1;
    p.pixels.assign(p.pixelCount(), 240);
    tavrin::writePng(p, dir + "/wide.png");
    const RunResult r = runTavrin({"detect", dir + "/wide.png", "--json", "-", "--overlay", dir + "/o.png"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    expectMessage(r, "note: " + dir + "/wide.png is 5400 x 1200 pixels, beyond the picture detector's limits; "
                                      "detecting on a copy reduced to 1/2");
    EXPECT_EQ(jsonField(r.out, "detectionReduction"), "2");
    EXPECT_EQ(jsonField(r.out, "reducedForLimits"), "true");
}

TEST(ErrorsE2E, VersionAndHelp) {
    RunResult r = runTavrin({"version"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "libTavrinCommon API for e-Tavrin API, Ver. 5.5.0.1\n");
    r = runTavrin({"compress", "--help"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.out.find("--chroma-offset"), std::string::npos);
    r = runTavrin({});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("usage:"), std::string::npos);
}
