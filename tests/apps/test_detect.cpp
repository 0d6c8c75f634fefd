// tavrin detect end to end: the photographs of the sample page are found,
// a text-only page has no picture, and regions are page rectangles.
#include <gtest/gtest.h>

#include "e2e_support.h"
#include "formats/write_png.h"
#include "generated_pages.h"

using namespace e2e;

namespace {

// Share of the regions' area that lies outside every photograph.
double strayShare(const std::vector<tavrin::Rect>& regions, const std::vector<tavrin::Rect>& photos) {
    double total = 0, stray = 0;
    for (const tavrin::Rect& r : regions) {
        const double area = double(r.width()) * r.height();
        total += area;
        stray += area * (1.0 - coveredShare(r, photos));
    }
    return total > 0 ? stray / total : 0;
}

}  // namespace

TEST(DetectE2E, SamplePageShowsBothPhotographs) {
    const std::string dir = scratchDir("detect-sample");
    // No PAGE: the bundled sample page.
    const RunResult r = runTavrin({"detect", "--overlay", dir + "/o.png", "--json", dir + "/r.json"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::string json = readFile(dir + "/r.json");
    EXPECT_EQ(jsonField(json, "picturePage"), "true");
    EXPECT_EQ(jsonField(json, "width"), "2480");
    EXPECT_EQ(jsonField(json, "height"), "3508");
    const std::vector<tavrin::Rect> regions = jsonRegions(json);
    ASSERT_FALSE(regions.empty()) << json;
    EXPECT_GE(coveredShare(samplePhotoCoffee(), regions), 0.9) << json;
    EXPECT_GE(coveredShare(samplePhotoCat(), regions), 0.9) << json;
    EXPECT_LE(strayShare(regions, {samplePhotoCoffee(), samplePhotoCat()}), 0.1) << json;
    // The overlay is the page reduced for viewing.
    const tavrin::Page overlay = readPage(dir + "/o.png");
    EXPECT_EQ(overlay.channels, 3);
    EXPECT_EQ(overlay.width, 827);
    EXPECT_EQ(overlay.height, 1170);
    EXPECT_NE(r.out.find("picture page, 2 regions"), std::string::npos) << r.out;
}

// The detector sees the luma of a colour page: hand-worked BT.601 weights
// in 8-bit fixed point (red 77, green 150, blue 29 of 256).
TEST(DetectE2E, ColourPagesAreSeenAsTheirLuma) {
    tavrin::Page page;
    page.width = 4, page.height = 1, page.channels = 3;
    page.pixels = {255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255};
    const tavrin::Plane gray = tavrin::grayOf(page);
    EXPECT_EQ(std::vector<uint8_t>(gray.data.begin(), gray.data.end()), (std::vector<uint8_t>{77, 149, 29, 255}));
}

TEST(DetectE2E, TextOnlyPageHasNoPicture) {
    const std::string dir = scratchDir("detect-text");
    const RunResult r = runTavrin({"detect", sampleTextPage(), "--json", "-", "--overlay", dir + "/o.png"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(jsonField(r.out, "picturePage"), "false");
    EXPECT_EQ(jsonField(r.out, "iPictPixelNum"), "0");
    EXPECT_TRUE(jsonRegions(r.out).empty()) << r.out;
}

TEST(DetectE2E, GeneratedPagesTextAndBlank) {
    const std::string dir = scratchDir("detect-generated");
    const GeneratedPage text = makeTextPage(2480, 3508, false, 11);
    writePnm(text.page, dir + "/text.pgm");
    tavrin::Page blank = text.page;
    std::fill(blank.pixels.begin(), blank.pixels.end(), uint8_t(240));
    writePnm(blank, dir + "/blank.pgm");
    for (const char* name : {"text", "blank"}) {
        const RunResult r = runTavrin({"detect", dir + "/" + name + ".pgm", "--json", "-", "--overlay", dir + "/o.png"});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        EXPECT_TRUE(jsonRegions(r.out).empty()) << name << ": " << r.out;
    }
}

TEST(DetectE2E, RegionsAreInPagePixelsAtAnyResolution) {
    const std::string dir = scratchDir("detect-coords");
    GeneratedPage g = makeTextPage(2480, 3508, true, 12, {tavrin::Rect{900, 1500, 2000, 2300}});
    pastePhoto(g, samplePhotoCat(), 960, 1560);
    writePnm(g.page, dir + "/page.ppm");
    // At 300 dpi and declared as 600 dpi (the detector then works on a
    // half-size copy): the same page rectangle either way.
    for (const char* dpi : {"300", "600"}) {
        const RunResult r = runTavrin({"detect", dir + "/page.ppm", "--dpi", dpi, "--json", "-", "--overlay",
                                       dir + "/o.png"});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        const std::vector<tavrin::Rect> regions = jsonRegions(r.out);
        EXPECT_GE(coveredShare(g.photos[0], regions), 0.9) << dpi << " dpi: " << r.out;
        EXPECT_LE(strayShare(regions, g.photos), 0.1) << dpi << " dpi: " << r.out;
    }
}

TEST(DetectE2E, TablesAreLeftOut) {
    const std::string dir = scratchDir("detect-tables");
    GeneratedPage g = makeTextPage(1748, 2480, false, 13, {tavrin::Rect{200, 600, 1250, 1400}});
    pastePhoto(g, samplePhotoCat(), 230, 640);
    tavrin::writePng(g.page, dir + "/page.png");
    const tavrin::Rect& p = g.photos[0];
    FILE* f = std::fopen((dir + "/tables.txt").c_str(), "w");
    std::fprintf(f, "# the photograph, declared a table\n%d %d %d %d\n", p.x0 - 20, p.y0 - 20, p.x1 + 20, p.y1 + 20);
    std::fclose(f);
    RunResult r = runTavrin({"detect", dir + "/page.png", "--json", "-", "--overlay", dir + "/o.png"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_FALSE(jsonRegions(r.out).empty());
    r = runTavrin({"detect", dir + "/page.png", "--tables", dir + "/tables.txt", "--json", "-", "--overlay",
                   dir + "/o.png"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(jsonRegions(r.out).empty()) << r.out;
}

TEST(DetectE2E, DumpsAndParameterFile) {
    const std::string dir = scratchDir("detect-dump");
    FILE* f = std::fopen((dir + "/params.txt").c_str(), "w");
    std::fprintf(f, "# stricter than the defaults\nmin-width = 400\nmin-height = 400\n");
    std::fclose(f);
    const RunResult r = runTavrin({"detect", "--params", dir + "/params.txt", "--dump", dir + "/dump", "--json", "-",
                                   "--overlay", dir + "/o.png"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(jsonField(r.out, "iMinWidth"), "400");
    EXPECT_TRUE(jsonRegions(r.out).empty()) << r.out;  // both photographs are narrower than 400/75 inch
    // The library's dump of the final count: "S,N".
    EXPECT_EQ(readFile(dir + "/dump/pict_count.csv"), jsonField(r.out, "iPictPixelNum") + "," +
                                                          jsonField(r.out, "planePixels") + "\n");
}
