// Detection driver on synthetic pages: it finds a textured photo area and not
// text or an excluded table; its result, pixel count, mask and label table
// agree; every failure code is reachable and leaves the buffers alone; serial
// and parallel runs give identical bytes.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "detect/regions_support.h"

using regions_test::Plane;

namespace {

constexpr size_t kGuard = 4096;  // canary bytes behind the work buffer
constexpr uint8_t kCanary = 0xA5;

uint32_t noise(uint32_t x) {
    x ^= x >> 16;
    x *= 0x7feb352dU;
    x ^= x >> 15;
    x *= 0x846ca68bU;
    x ^= x >> 16;
    return x;
}

// A page at full resolution with its half-resolution attribute map. The
// gray value of a pixel goes into the first byte; colour pages carry other
// bytes in the remaining two samples.
struct Page {
    int w, h, bpp;
    std::vector<uint8_t> px, attr;
    std::vector<ST_TABLERECT> tables{ST_TABLERECT{}};
    structFGInfos fg{};

    Page(int width, int height, bool colour = false, uint8_t background = 240)
        : w(width), h(height), bpp(colour ? 3 : 1),
          px(static_cast<size_t>(width) * height * bpp),
          attr(static_cast<size_t>((width + 1) / 2) * ((height + 1) / 2), 0) {
        for (size_t i = 0; i < px.size(); ++i) px[i] = (i % bpp == 0) ? background : static_cast<uint8_t>(i * 7);
    }
    void gray(int x, int y, uint8_t v) { px[(static_cast<size_t>(y) * w + x) * bpp] = v; }
    int attrW() const { return (w + 1) / 2; }
    void attrRect(int x0, int y0, int x1, int y1, uint8_t v) {  // half-resolution coordinates
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) attr[static_cast<size_t>(y) * attrW() + x] = v;
    }
    // Gray texture: 128 +- 40, spread over many small steps.
    void texture(int x0, int y0, int x1, int y1) {
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x)
                gray(x, y, static_cast<uint8_t>(88 + noise(x * 7919U + y * 104729U) % 81));
    }
    // Lines of dark strokes with one gray edge pixel on each side.
    void text(int x0, int y0, int x1, int lines) {
        for (int l = 0; l < lines; ++l)
            for (int y = y0 + 80 * l; y < y0 + 80 * l + 40; ++y)
                for (int x = x0; x <= x1; ++x) {
                    const int g = (x / 16) % 5, s = x % 16;
                    if (g == 4) continue;
                    if (s < 8 || (y - y0 - 80 * l < 6 && g < 2)) gray(x, y, 20);
                    else if (s == 8 || s == 15) gray(x, y, 130);
                }
    }
    // Ruled table with a textured patch inside.
    void table(int x0, int y0, int x1, int y1) {
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x)
                if ((x - x0) % 40 < 4 || (y - y0) % 40 < 4) gray(x, y, 10);
        texture(x0 + 60, y0 + 80, x1 - 60, y1 - 60);
    }
    // A table rectangle given in half-resolution pixels (left, top, right, bottom).
    void excludeTable(int s0, int s1, int s2, int s3) {
        tables.push_back(regions_test::tableRect(s0, s1, s2, s3));
    }
    structFGInfos* record() {
        fg.stPageImg = ImgTavrin{px.data(), static_cast<uint16_t>(w), static_cast<uint16_t>(h), 30000, 30000,
                                 static_cast<uint8_t>(bpp == 3 ? 1 : 0)};
        fg.stAttrImg = ImgTavrin{attr.data(), static_cast<uint16_t>(attrW()),
                                 static_cast<uint16_t>((h + 1) / 2), 15000, 15000, 0};
        fg.stTableData = ST_TABLEDATA{static_cast<int>(tables.size()) - 1, tables.data()};
        return &fg;
    }
};

// 1200 x 1600 (quarter 300 x 400): photo at quarter columns 100..249, rows
// 50..174; text lines below it; a ruled table with a textured patch, quarter
// columns 15..85, rows 250..375, given as a table rectangle.
Page standardPage(bool colour = false) {
    Page p(1200, 1600, colour);
    p.texture(400, 200, 999, 699);
    p.text(400, 900, 1099, 6);
    p.table(60, 1000, 339, 1499);
    p.excludeTable(30, 500, 170, 750);
    return p;
}

ST_PARAM_DETECT_PICT standardParam() {
    ST_PARAM_DETECT_PICT p{};
    p.dSpaceSigma = 1.5;
    p.dRangeSigma = 10.0;
    p.iMinWidth = 8;
    p.iMinHeight = 8;
    p.iMinArea = 100;
    p.dMinFillRatio = 0.5;
    p.dMaxHighAttrRatio = 0.3;
    p.dPictPageRatio = 0.1;
    p.iPictPixelNum = -12345;
    return p;
}

struct Detection {
    std::vector<uint8_t> work = std::vector<uint8_t>(TAVRIN_DETECT_WORK_SIZE + kGuard, kCanary);
    ST_PARAM_DETECT_PICT param = standardParam();
    int result = 0;
    int w4 = 0, h4 = 0;

    int go(Page& page, int attrMode = 0, int passMax = 8, int parallel = 0, std::string dir = "") {
        w4 = (page.w + 3) >> 2;
        h4 = (page.h + 3) >> 2;
        std::vector<char> d(dir.begin(), dir.end());
        d.push_back('\0');
        result = runDetectPict(page.record(), work.data(), attrMode, passMax, &param, parallel, d.data());
        return result;
    }
    uint8_t* at(uint32_t offset) { return work.data() + offset; }
    uint8_t* plane(int k) { return at(TAVRIN_DETECT_PLANES_OFFSET + k * TAVRIN_DETECT_PLANE_LIMIT); }
    uint8_t mask(int x, int y) { return at(TAVRIN_DETECT_PICT_OFFSET)[y * w4 + x]; }
    PictLabel* labels() { return reinterpret_cast<PictLabel*>(at(TAVRIN_DETECT_LABEL_OFFSET)); }
    ImgTavrin maskImg() {
        return ImgTavrin{at(TAVRIN_DETECT_PICT_OFFSET), static_cast<uint16_t>(w4), static_cast<uint16_t>(h4), 0, 0, 0};
    }
    long maskSum() {
        long s = 0;
        for (int i = 0; i < w4 * h4; ++i) s += at(TAVRIN_DETECT_PICT_OFFSET)[i];
        return s;
    }
    bool guardIntact() const {
        return std::all_of(work.end() - kGuard, work.end(), [](uint8_t b) { return b == kCanary; });
    }
    bool untouched() const {
        return std::all_of(work.begin(), work.end(), [](uint8_t b) { return b == kCanary; });
    }
};

long countOnes(Detection& r, int x0, int y0, int x1, int y1) {
    long n = 0;
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x) n += r.mask(x, y);
    return n;
}

TEST(Driver, FindsThePhotoButNotTextOrTable) {
    Page page = standardPage();
    Detection r;
    ASSERT_EQ(r.go(page), 1);
    EXPECT_EQ(countOnes(r, 100, 50, 249, 174), 150 * 125);  // the whole photo
    EXPECT_EQ(countOnes(r, 90, 215, 299, 399), 0);           // text lines
    EXPECT_EQ(countOnes(r, 0, 240, 89, 399), 0);             // table and its patch
    EXPECT_EQ(countOnes(r, 0, 0, 299, 40), 0);
    EXPECT_TRUE(r.guardIntact());

    // Without the table rectangle the patch inside the table is found too.
    page.tables.resize(1);
    Detection all;
    ASSERT_EQ(all.go(page), 1);
    EXPECT_GT(countOnes(all, 30, 270, 70, 360), 30 * 80);
}

TEST(Driver, ResultPixelCountMaskAndLabelTableAgree) {
    Page page = standardPage();
    const std::string dir = regions_test::scratchDir("driver_consistency");
    Detection r;
    ASSERT_GE(r.go(page, 0, 8, 0, dir), 0);
    const long s = r.maskSum();
    const long n = static_cast<long>(r.w4) * r.h4;
    EXPECT_EQ(r.param.iPictPixelNum, s);
    EXPECT_EQ(r.result, static_cast<double>(s) / n >= r.param.dPictPageRatio ? 1 : 0);
    EXPECT_EQ(regions_test::readText(dir + "/pict_count.csv"),
              std::to_string(s) + "," + std::to_string(n) + "\n");
    for (int i = 0; i < n; ++i) ASSERT_LE(r.at(TAVRIN_DETECT_PICT_OFFSET)[i], 1);

    // The loop stopped on a stable count, so the table is the labelling of
    // the final mask: the same as labelling the mask afresh.
    Plane copy(r.w4, r.h4);
    std::memcpy(copy.px.data(), r.at(TAVRIN_DETECT_PICT_OFFSET), copy.px.size());
    std::vector<uint8_t> work2 = regions_test::workBuffer();
    std::vector<PictLabel> fresh(4097);
    Plane labelPlane(r.w4, r.h4);
    char none[] = "";
    const int k = entLabeling(fresh.data(), &copy.img, &labelPlane.img, work2.data(), none);
    ASSERT_GE(k, 1);
    long sum = 0;
    for (int l = 0; l <= k; ++l) {
        EXPECT_EQ(std::memcmp(&fresh[l], &r.labels()[l], sizeof(PictLabel)), 0) << l;
        if (l > 0) sum += fresh[l].pixel;
    }
    EXPECT_EQ(sum, s);
    EXPECT_EQ(r.labels()[0].pixel, n - s);
    EXPECT_EQ(std::memcmp(labelPlane.px.data(), r.plane(8), labelPlane.px.size()), 0);
}

TEST(Driver, ColourPageUsesTheFirstSample) {
    Page gray = standardPage(false), colour = standardPage(true);
    Detection a, b;
    a.go(gray, 1);
    b.go(colour, 1);
    EXPECT_EQ(a.result, b.result);
    EXPECT_EQ(a.param.iPictPixelNum, b.param.iPictPixelNum);
    EXPECT_TRUE(std::equal(a.work.begin(), a.work.end(), b.work.begin()));
}

TEST(Driver, SerialAndParallelRunsGiveIdenticalBytes) {
    Page page = standardPage();
    page.attrRect(20, 20, 40, 40, 112);    // P-attribute area
    page.attrRect(500, 100, 520, 110, 200);  // high attributes over the photo
    Detection serial;
    serial.go(page, 1, 8, 0);
    const int saved = omp_get_max_threads();
    for (int team : {1, 2, 3}) {
        omp_set_num_threads(team);
        Detection par;
        par.go(page, 1, 8, 1);
        EXPECT_EQ(par.result, serial.result) << team;
        EXPECT_EQ(par.param.iPictPixelNum, serial.param.iPictPixelNum) << team;
        EXPECT_TRUE(std::equal(par.work.begin(), par.work.end(), serial.work.begin())) << team;
    }
    omp_set_num_threads(saved);
}

TEST(DriverFailure, NullWorkBuffer) {
    Page page(64, 64);
    ST_PARAM_DETECT_PICT p = standardParam();
    char none[] = "";
    EXPECT_EQ(runDetectPict(page.record(), nullptr, 0, 8, &p, 0, none), -3);
    EXPECT_EQ(p.iPictPixelNum, -12345);
    ImgTavrin planes[3] = {};
    std::vector<PictLabel> labels(4097);
    EXPECT_EQ(runDetectPict2(labels.data(), &planes[0], &planes[1], &planes[2], nullptr,
                             &page.record()->stTableData, nullptr, 0, 8, &p, 0, none),
              -3);
}

TEST(DriverFailure, PlaneLimitIsExact) {
    // 908 x 1308 = 1187664 quarter pixels fit; one more row does not.
    Page fits(4 * 908, 4 * 1308, false, 200);
    Detection ok;
    EXPECT_EQ(ok.go(fits), 0);
    EXPECT_EQ(ok.param.iPictPixelNum, 0);
    EXPECT_TRUE(ok.guardIntact());

    Page big(4 * 908, 4 * 1309, false, 200);
    Detection refused;
    EXPECT_EQ(refused.go(big), -3);
    EXPECT_TRUE(refused.untouched());
    EXPECT_EQ(refused.param.iPictPixelNum, -12345);
}

TEST(DriverFailure, PlanesTooSmallForTheMorphology) {
    for (auto [w, h] : {std::pair{64, 4}, std::pair{0, 64}, std::pair{64, 0}}) {
        Page page(std::max(w, 1), std::max(h, 1));
        page.w = w;
        page.h = h;
        Detection r;
        EXPECT_EQ(r.go(page), -3) << w << "x" << h;
        EXPECT_TRUE(r.untouched());
        EXPECT_EQ(r.param.iPictPixelNum, -12345);
    }
    Page five(64, 5);  // H4 = 2: the smallest accepted height
    Detection r;
    EXPECT_GE(r.go(five), 0);
}

TEST(DriverFailure, FilterFailsOnPagesWiderThanTheZeroRow) {
    Page wide(4 * 1313, 8);  // W4 = 1313 > 1312
    Detection r;
    EXPECT_EQ(r.go(wide), -1);
    EXPECT_TRUE(r.guardIntact());
    EXPECT_EQ(r.param.iPictPixelNum, -12345);

    Page widest(4 * 1312, 8);
    Detection ok;
    EXPECT_GE(ok.go(widest), 0);
}

// P-attribute 2 x 2 blocks every 10 quarter pixels: 4900 separate regions
// survive the cleaning, more than one labelling pass accepts.
Page dottedPage() {
    Page p(2800, 2800, false, 200);
    for (int qy = 4; qy < 700; qy += 10)
        for (int qx = 4; qx < 700; qx += 10) p.attrRect(2 * qx, 2 * qy, 2 * qx + 2, 2 * qy + 2, 112);
    return p;
}

TEST(DriverFailure, LabellingFailureOfTheFirstPass) {
    Page page = dottedPage();
    Detection r;
    for (int i = 0; i < 4097; ++i) r.labels()[i] = PictLabel{-9, -9, -9, -9, -9};
    std::vector<uint8_t> labelsBefore(r.at(TAVRIN_DETECT_LABEL_OFFSET),
                                      r.at(TAVRIN_DETECT_LABEL_OFFSET) + 4097 * sizeof(PictLabel));
    EXPECT_EQ(r.go(page, 1, 8), -4);
    EXPECT_EQ(r.param.iPictPixelNum, -12345);
    EXPECT_TRUE(std::equal(labelsBefore.begin(), labelsBefore.end(), r.at(TAVRIN_DETECT_LABEL_OFFSET)));
    EXPECT_TRUE(r.guardIntact());

    // Without labelling the same page is fine.
    Detection none;
    EXPECT_EQ(none.go(page, 1, -1), 1);
    EXPECT_EQ(none.param.iPictPixelNum, 4900 * 16);
}

TEST(DriverEdges, FlatPageAndThePageThreshold) {
    Page page(400, 400, false, 128);
    Detection r;
    EXPECT_EQ(r.go(page), 0);
    EXPECT_EQ(r.param.iPictPixelNum, 0);
    for (double t : {0.0, -1.0}) {
        Detection z;
        z.param.dPictPageRatio = t;
        EXPECT_EQ(z.go(page), 1) << t;
        EXPECT_EQ(z.param.iPictPixelNum, 0);
    }
    Detection n;
    n.param.dPictPageRatio = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(n.go(page), 0);
    EXPECT_EQ(n.param.iPictPixelNum, 0);

    Page photo = standardPage();
    Detection high;
    high.param.dPictPageRatio = 0.9;  // the photo covers about a sixth
    EXPECT_EQ(high.go(photo), 0);
    EXPECT_GT(high.param.iPictPixelNum, 150 * 125);
}

TEST(DriverEdges, NoLabellingPassLeavesTheCleanedCandidate) {
    Page page = standardPage();
    Detection r;
    for (int i = 0; i < 4097; ++i) r.labels()[i] = PictLabel{-9, -9, -9, -9, -9};
    ASSERT_GE(r.go(page, 0, -1), 0);
    EXPECT_EQ(r.labels()[1].pixel, -9);
    // The mask is one erosion of the closed candidate (plane 7).
    Plane eroded(r.w4, r.h4);
    ImgTavrin candidate{r.plane(7), static_cast<uint16_t>(r.w4), static_cast<uint16_t>(r.h4), 0, 0, 0};
    morphologyTrans(candidate, eroded.img, 1, 0);
    EXPECT_EQ(std::memcmp(eroded.px.data(), r.at(TAVRIN_DETECT_PICT_OFFSET), eroded.px.size()), 0);
    EXPECT_EQ(r.param.iPictPixelNum, r.maskSum());
}

TEST(DriverEdges, OneLabellingPassPaintsTheAcceptedBoxes) {
    Page page = standardPage();
    page.tables.resize(1);  // the table's patch splits into several regions
    Detection r;
    ASSERT_GE(r.go(page, 0, 0), 0);
    // The mask is the union of the accepted labels' boxes grown by one.
    Plane painted(r.w4, r.h4);
    int accepted = 0;
    // Entries past the last label still hold the buffer's canary bytes,
    // a negative pixel count.
    for (int l = 1; l < 4096 && r.labels()[l].pixel >= 0; ++l) {
        const PictLabel& e = r.labels()[l];
        if (e.pixel == 0) continue;
        ++accepted;
        painted.fillRect(std::max(e.min_x - 1, 0), std::max(e.min_y - 1, 0),
                         std::min(e.max_x + 1, r.w4 - 1), std::min(e.max_y + 1, r.h4 - 1));
    }
    EXPECT_GE(accepted, 1);
    EXPECT_EQ(std::memcmp(painted.px.data(), r.at(TAVRIN_DETECT_PICT_OFFSET), painted.px.size()), 0);
}

TEST(DriverEdges, AttributeModes) {
    Page page(800, 800, false, 128);   // flat: no texture anywhere
    page.attrRect(100, 100, 199, 179, 112);  // quarter 50..99 x 50..89
    Detection off, on, two;
    EXPECT_EQ(off.go(page, 0), 0);
    EXPECT_EQ(off.param.iPictPixelNum, 0);
    on.param.dPictPageRatio = 0.05;
    EXPECT_EQ(on.go(page, 1), 1);
    // grown by two, closed, eroded by one, boxed with a margin of one
    EXPECT_EQ(countOnes(on, 48, 48, 101, 91), 54 * 44);
    EXPECT_EQ(on.param.iPictPixelNum, 54 * 44);
    EXPECT_EQ(two.go(page, 2), off.result);
    EXPECT_TRUE(std::equal(two.work.begin(), two.work.end(), off.work.begin()));

    // High attributes (>= 128) exclude pixels from the texture measure and
    // reject boxes dominated by them.
    Page photo = standardPage();
    photo.attrRect(200, 100, 499, 349, 128);  // over the whole photo
    Detection masked;
    EXPECT_EQ(masked.go(photo), 0);
    EXPECT_EQ(countOnes(masked, 100, 50, 249, 174), 0);
}

TEST(DriverEdges, TableExclusionReadsLeftTopRightBottomAndClips) {
    Page page = standardPage();
    page.tables.resize(1);
    page.excludeTable(2 * 150 + 1, 0, 2 * 159 + 1, 2000);  // quarter columns 150..159, all rows
    Detection r;
    ASSERT_GE(r.go(page, 0, -1), 0);
    // Closing keeps a gap of 10 columns; the last erosion widens it by one.
    for (int y = 60; y < 165; ++y) {
        for (int x = 149; x <= 160; ++x) ASSERT_EQ(r.mask(x, y), 0) << x << "," << y;
        ASSERT_EQ(r.mask(148, y), 1) << y;
        ASSERT_EQ(r.mask(161, y), 1) << y;
    }
    EXPECT_TRUE(r.guardIntact());

    // Empty rectangles clear nothing; a page-covering one clears everything.
    Page reversed = standardPage();
    reversed.tables.resize(1);
    reversed.excludeTable(400, 0, 300, 799);
    reversed.excludeTable(-3, -8, -1, 799);  // halves to right column -1: empty
    Page plain = standardPage();
    plain.tables.resize(1);
    Detection a, b;
    a.go(reversed);
    b.go(plain);
    EXPECT_TRUE(std::equal(a.work.begin(), a.work.end(), b.work.begin()));

    Page covered = standardPage();
    covered.excludeTable(-100, -100, 30000, 30000);
    Detection c;
    EXPECT_EQ(c.go(covered), 0);
    EXPECT_EQ(c.param.iPictPixelNum, 0);
}

TEST(DriverEdges, SamplingTakesEveryFourthPixelAndEverySecondAttribute) {
    for (bool colour : {false, true}) {
        Page page(9, 10, colour);  // W4 = 3, H4 = 3
        for (int y = 0; y < 10; ++y)
            for (int x = 0; x < 9; ++x) page.gray(x, y, static_cast<uint8_t>(10 * y + x));
        for (size_t i = 0; i < page.attr.size(); ++i) page.attr[i] = static_cast<uint8_t>(i);
        Detection r;
        ASSERT_GE(r.go(page), 0);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) {
                EXPECT_EQ(r.at(TAVRIN_DETECT_GRAY_OFFSET)[i * 3 + j], 40 * i + 4 * j);
                EXPECT_EQ(r.at(TAVRIN_DETECT_ATTR_OFFSET)[i * 3 + j], 2 * i * 5 + 2 * j);
            }
    }
    Page five(5, 8), four(4, 8);
    Detection a, b;
    EXPECT_GE(a.go(five), 0);
    EXPECT_EQ(a.w4, 2);
    EXPECT_GE(b.go(four), 0);
    EXPECT_EQ(b.w4, 1);
}

TEST(DriverEdges, InnerStageOnPlacedPlanesGivesTheSameResult) {
    Page page = standardPage();
    Detection r;
    const int result = r.go(page);
    ASSERT_EQ(result, 1);
    std::vector<uint8_t> before(r.work);
    // Detection the inner stage again on the planes runDetectPict left behind.
    ImgTavrin gray{r.at(TAVRIN_DETECT_GRAY_OFFSET), 300, 400, 7500, 7500, 0};
    ImgTavrin attr{r.at(TAVRIN_DETECT_ATTR_OFFSET), 300, 400, 7500, 7500, 0};
    ImgTavrin pict{r.at(TAVRIN_DETECT_PICT_OFFSET), 300, 400, 7500, 7500, 0};
    ST_PARAM_DETECT_PICT p = standardParam();
    char none[] = "";
    EXPECT_EQ(runDetectPict2(r.labels(), &gray, &attr, &pict, nullptr, &page.fg.stTableData,
                             r.work.data(), 0, 8, &p, 0, none),
              1);
    EXPECT_EQ(p.iPictPixelNum, r.param.iPictPixelNum);
    EXPECT_TRUE(std::equal(before.begin(), before.end(), r.work.begin()));
}

TEST(DriverDump, UnopenableDirectoryDoesNotChangeTheResult) {
    Page page = standardPage();
    Detection r;
    EXPECT_EQ(r.go(page, 0, 8, 0, "/nonexistent-dir/x"), 1);
    EXPECT_GT(r.param.iPictPixelNum, 0);
}

}  // namespace
