// tavrin detect end to end: the photographs of the sample page are found,
// a text-only page has no picture, and regions are page rectangles.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "e2e_support.h"
#include "formats/write_png.h"
#include "generated_pages.h"
#include "pipeline/components.h"

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

// Run labelling against a flood fill of each pixel's 8 neighbours: the same
// components (boxes and areas, in the order of their first pixel), and runs
// that cover exactly the set pixels. Widths around the eight bytes read at
// once, set values other than 1, dense and sparse masks, and one large
// enough to be cut into two bands.
TEST(Components, RunsAndUnionsEqualAFloodFill) {
    struct Case { int w, h, percent; };
    for (const Case& c : {Case{1, 9, 50}, Case{7, 5, 60}, Case{8, 8, 90}, Case{9, 6, 30}, Case{63, 40, 45},
                          Case{700, 400, 8}, Case{700, 400, 70}}) {
        tavrin::Plane mask(c.w, c.h);
        uint32_t seed = 99u + uint32_t(c.w);
        const uint8_t setValues[3] = {1, 255, 128};
        for (uint8_t& v : mask.data) {
            seed = seed * 1103515245u + 12345u;
            v = int(seed >> 16) % 100 < c.percent ? setValues[(seed >> 8) % 3] : 0;
        }
        const tavrin::Components got = tavrin::findComponents(mask);
        std::vector<int> label(mask.data.size(), -1);
        std::vector<tavrin::Rect> boxes;
        std::vector<int64_t> areas;
        for (int y = 0; y < c.h; ++y)
            for (int x = 0; x < c.w; ++x) {
                if (!mask.row(y)[x] || label[size_t(y) * c.w + x] >= 0) continue;
                const int id = int(boxes.size());
                tavrin::Rect box{x, y, x, y};
                int64_t area = 0;
                std::vector<std::pair<int, int>> todo{{x, y}};
                label[size_t(y) * c.w + x] = id;
                while (!todo.empty()) {
                    const auto [px, py] = todo.back();
                    todo.pop_back();
                    ++area, box = box.unite({px, py, px, py});
                    for (int dy = -1; dy <= 1; ++dy)
                        for (int dx = -1; dx <= 1; ++dx) {
                            const int nx = px + dx, ny = py + dy;
                            if (nx < 0 || ny < 0 || nx >= c.w || ny >= c.h || !mask.row(ny)[nx]) continue;
                            int& l = label[size_t(ny) * c.w + nx];
                            if (l < 0) l = id, todo.push_back({nx, ny});
                        }
                }
                boxes.push_back(box), areas.push_back(area);
            }
        SCOPED_TRACE(::testing::Message() << c.w << "x" << c.h << ", " << c.percent << "% set");
        ASSERT_EQ(got.count, int(boxes.size()));
        for (int i = 0; i < got.count; ++i) {
            const tavrin::Rect& b = got.boxes[i];
            EXPECT_EQ(std::vector<int>({b.x0, b.y0, b.x1, b.y1}),
                      std::vector<int>({boxes[i].x0, boxes[i].y0, boxes[i].x1, boxes[i].y1})) << "component " << i;
            EXPECT_EQ(got.area[i], areas[i]) << "component " << i;
        }
        std::vector<int> covered(mask.data.size(), -1);
        for (const tavrin::Run& r : got.runs)
            for (int x = r.x0; x <= r.x1; ++x) covered[size_t(r.y) * c.w + x] = r.component;
        EXPECT_EQ(covered, label);
    }
}
