// The detection driver on synthetic pages, as scenario tables: what it finds
// and decides under each setting, every failure status with the buffers left
// alone, serially and in parallel; which runs give identical work buffers.
// A guard region follows the work buffer in every run.
#include <cstring>
#include <limits>

#include "support.h"

namespace {

using tt::Ints;
using tt::Plane;

// A page with its half-resolution attribute map and table rectangles. Gray
// values go into the first sample; colour pages carry other bytes in the
// other two.
struct Page {
    int w, h, bpp, attrW, attrH;
    tt::Bytes px, attr;
    std::vector<ST_TABLERECT> tables = std::vector<ST_TABLERECT>(1);  // entry 0 is never read
    structFGInfos fg{};
    Page(int width, int height, bool colour = false, uint8_t background = 240)
        : w(width), h(height), bpp(colour ? 3 : 1), attrW((width + 1) / 2), attrH((height + 1) / 2),
          px(size_t(width) * height * bpp), attr(size_t(attrW) * attrH, 0) {
        for (size_t i = 0; i < px.size(); ++i) px[i] = i % bpp == 0 ? background : uint8_t(i * 7);
    }
    void gray(int x, int y, uint8_t v) { px[(size_t(y) * w + x) * bpp] = v; }
    void attrRect(int x0, int y0, int x1, int y1, uint8_t v) {  // half-resolution pixels
        for (int y = y0; y <= y1; ++y) std::fill_n(&attr[size_t(y) * attrW + x0], x1 - x0 + 1, v);
    }
    void texture(int x0, int y0, int x1, int y1) {  // 128 +- 40 in small steps
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) gray(x, y, uint8_t(88 + tt::hash(x * 7919U + y * 104729U) % 81));
    }
    Page& exclude(int s0, int s1, int s2, int s3) {  // half-resolution left, top, right, bottom
        tables.emplace_back();
        tables.back().sRect0 = int16_t(s0), tables.back().sRect1 = int16_t(s1);
        tables.back().sRect2 = int16_t(s2), tables.back().sRect3 = int16_t(s3);
        return *this;
    }
    structFGInfos* record() {
        fg.stPageImg = ImgTavrin{px.data(), uint16_t(w), uint16_t(h), 30000, 30000, uint8_t(bpp == 3)};
        fg.stAttrImg = ImgTavrin{attr.data(), uint16_t(attrW), uint16_t(attrH), 15000, 15000, 0};
        fg.stTableData = ST_TABLEDATA{int(tables.size()) - 1, tables.data()};
        return &fg;
    }
};

// 1200 x 1600 (quarter 300 x 400): a photo at quarter columns 100..249, rows
// 50..174; six lines of dark strokes with gray edges below it; a ruled table
// with a textured patch inside at quarter columns 15..85, rows 250..375,
// given as a table rectangle unless `withTable` is false.
Page standardPage(bool colour = false, bool withTable = true) {
    Page p(1200, 1600, colour);
    p.texture(400, 200, 999, 699);
    for (int y = 900; y < 1380; ++y)
        for (int x = 400; x < 1100 && (y - 900) % 80 < 40; ++x)
            if (x / 16 % 5 < 4 && (x % 16 <= 8 || x % 16 == 15)) p.gray(x, y, x % 16 < 8 ? 20 : 130);
    for (int y = 1000; y < 1500; ++y)
        for (int x = 60; x < 340; ++x)
            if ((x - 60) % 40 < 4 || (y - 1000) % 40 < 4) p.gray(x, y, 10);
    p.texture(120, 1080, 279, 1439);
    if (withTable) p.exclude(30, 500, 170, 750);
    return p;
}

constexpr uint8_t kCanary = 0xA5;
constexpr int kUntouched = -12345;
constexpr size_t kLabelBytes = 4097 * sizeof(PictLabel);

struct Detection {
    tt::Guarded work{TAVRIN_DETECT_WORK_SIZE, kCanary};
    ST_PARAM_DETECT_PICT param;
    int w4 = 0, h4 = 0;
    explicit Detection(double pageRatio = 0.1) : param{1.5, 10.0, 8, 8, 100, 0.5, {}, 0.3, pageRatio, kUntouched} {}
    int run(Page& page, int attrMode = 0, int passMax = 8, int parallel = 0, std::string dir = "") {
        w4 = (page.w + 3) >> 2;
        h4 = (page.h + 3) >> 2;
        return runDetectPict(page.record(), work.data(), attrMode, passMax, &param, parallel, tt::mut(dir));
    }
    uint8_t* at(uint32_t offset) { return work.data() + offset; }
    PictLabel* labels() { return reinterpret_cast<PictLabel*>(at(TAVRIN_DETECT_LABEL_OFFSET)); }
    Plane mask() {
        Plane m(w4, h4);
        std::memcpy(m.px.data(), at(TAVRIN_DETECT_PICT_OFFSET), m.px.size());
        return m;
    }
    long ones(int x0, int y0, int x1, int y1) {  // in an inclusive quarter rectangle of the mask
        const uint8_t* mask = at(TAVRIN_DETECT_PICT_OFFSET);
        long n = 0;
        for (int y = y0; y <= y1; ++y) n += std::count(mask + y * w4 + x0, mask + y * w4 + x1 + 1, 1);
        return n;
    }
};

TEST(Driver, WhatEachSettingFindsDecidesOrRefuses) {
    Page page = standardPage(), noTable = standardPage(false, false), covered = standardPage(), masked = standardPage();
    Page flat(400, 400, false, 128), attrs(800, 800, false, 128), dotted(2800, 2800, false, 200);
    attrs.attrRect(100, 100, 199, 179, 112);   // P attributes: quarter 50..99 x 50..89
    masked.attrRect(200, 100, 499, 349, 128);  // high attributes over the whole photo
    covered.exclude(-100, -100, 30000, 30000);
    for (int q = 0; q < 70 * 70; ++q)  // P blocks every 10 quarter pixels: 4900 regions, more than a pass takes
        dotted.attrRect(8 + 20 * (q % 70), 8 + 20 * (q / 70), 10 + 20 * (q % 70), 10 + 20 * (q / 70), 112);
    Page fits(4 * 908, 4 * 1308, false, 200), big(4 * 908, 4 * 1309, false, 200);  // 1187664 quarter pixels fit
    Page five(64, 5), low(64, 4), noColumns(64, 64), noRows(64, 64), widest(4 * 1312, 8), wide(4 * 1313, 8), shortAttr(64, 64);
    noColumns.w = noRows.h = 0;
    shortAttr.attrW = 30;  // rows of 30: the last sampled attribute, 2 * 15 * 30 + 2 * 15, is one past
    shortAttr.attrH = 31;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const long photo = 150 * 125, all = 0x7FFFFFFF;
    struct Scenario {
        const char* what;
        Page* page;
        int attrMode, passMax;
        double pageRatio;
        int result;
        long least, most;                      // pixel count (kUntouched after a failure)
        std::vector<std::vector<long>> areas;  // x0, y0, x1, y1, least and most ones inside
        bool untouched = false;                // nothing at all written
    };
    const Scenario scenarios[] = {
        {"the photo, not text or the table", &page, 0, 8, 0.1, 1, photo, 2 * photo,
         {{100, 50, 249, 174, photo, photo}, {90, 215, 299, 399, 0, 0}, {0, 240, 89, 399, 0, 0}, {0, 0, 299, 40, 0, 0}}},
        {"the table's patch without its rectangle", &noTable, 0, 8, 0.1, 1, photo + 2400, all, {{30, 270, 70, 360, 2401, all}}},
        {"a photo is a sixth of the page", &page, 0, 8, 0.9, 0, photo + 1, 2 * photo, {}},
        {"flat page", &flat, 0, 8, 0.1, 0, 0, 0, {}}, {"flat page, threshold 0", &flat, 0, 8, 0.0, 1, 0, 0, {}},
        {"flat page, NaN threshold", &flat, 0, 8, nan, 0, 0, 0, {}}, {"P attributes ignored", &attrs, 0, 8, 0.05, 0, 0, 0, {}},
        // grown by two, closed, eroded by one, boxed with a margin of one
        {"P attributes are pictures", &attrs, 1, 8, 0.05, 1, 54 * 44, 54 * 44, {{48, 48, 101, 91, 54 * 44, 54 * 44}}},
        {"high attributes mask the texture", &masked, 0, 8, 0.1, 0, 0, all, {{100, 50, 249, 174, 0, 0}}},
        {"a table rectangle over the page", &covered, 0, 8, 0.1, 0, 0, 0, {}},
        {"no labelling pass, 4900 regions", &dotted, 1, -1, 0.1, 1, 4900 * 16, 4900 * 16, {}},
        {"the first labelling pass fails", &dotted, 1, 8, 0.1, -4, kUntouched, kUntouched, {}},
        {"the largest plane", &fits, 0, 8, 0.1, 0, 0, 0, {}},
        {"one quarter row more", &big, 0, 8, 0.1, -3, kUntouched, kUntouched, {}, true},
        {"five rows", &five, 0, 8, 0.1, 0, 0, 0, {}},
        {"four rows: H4 1, too low for the morphology", &low, 0, 8, 0.1, -3, kUntouched, kUntouched, {}, true},
        {"no columns", &noColumns, 0, 8, 0.1, -3, kUntouched, kUntouched, {}, true},
        {"no rows", &noRows, 0, 8, 0.1, -3, kUntouched, kUntouched, {}, true},
        {"1312 quarter columns", &widest, 0, 8, 0.1, 0, 0, 0, {}},
        {"1313, wider than the zero row", &wide, 0, 8, 0.1, -1, kUntouched, kUntouched, {}},
        {"an attribute map one byte short", &shortAttr, 0, 8, 0.1, -3, kUntouched, kUntouched, {}, true},
    };
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.what);
        Detection r(s.pageRatio);
        EXPECT_EQ(r.run(*s.page, s.attrMode, s.passMax), s.result);
        EXPECT_TRUE(r.param.iPictPixelNum >= s.least && r.param.iPictPixelNum <= s.most) << r.param.iPictPixelNum;
        EXPECT_TRUE(s.result < 0 || r.param.iPictPixelNum == r.ones(0, 0, r.w4 - 1, r.h4 - 1));
        for (const auto& a : s.areas) {
            const long n = r.ones(int(a[0]), int(a[1]), int(a[2]), int(a[3]));
            EXPECT_TRUE(n >= a[4] && n <= a[5]) << n << " at " << a[0] << "," << a[1];
        }
        EXPECT_TRUE(r.work.intact());
        EXPECT_EQ(std::count(r.work.bytes.begin(), r.work.bytes.end(), kCanary) == long(r.work.bytes.size()), s.untouched);
        tt::TeamSize team(1 + int(&s - scenarios) % 3);  // in parallel with teams of 1 to 3: the same bytes
        Detection parallel(s.pageRatio);
        EXPECT_EQ(parallel.run(*s.page, s.attrMode, s.passMax, 1), s.result);
        EXPECT_TRUE(parallel.work.bytes == r.work.bytes);
        EXPECT_TRUE(s.result != -4 || std::count(r.at(TAVRIN_DETECT_LABEL_OFFSET), r.at(TAVRIN_DETECT_LABEL_OFFSET) + kLabelBytes,
                                                 kCanary) == long(kLabelBytes));  // the labels left alone
    }
    ST_PARAM_DETECT_PICT p{};
    std::vector<PictLabel> labels(4097);
    ImgTavrin planes[3] = {};
    char none[] = "";
    EXPECT_EQ((Ints{runDetectPict(five.record(), nullptr, 0, 8, &p, 0, none),
                    runDetectPict2(labels.data(), &planes[0], &planes[1], &planes[2], nullptr, &five.fg.stTableData,
                                   nullptr, 0, 8, &p, 0, none)}),
              (Ints{-3, -3}));  // no work buffer
}

TEST(Driver, RunsThatGiveIdenticalBytes) {
    Page gray = standardPage(), colour = standardPage(true), attrs(800, 800, false, 128);
    attrs.attrRect(100, 100, 199, 179, 112);
    gray.attrRect(20, 20, 40, 40, 112);  // P attributes, and high ones over the photo
    gray.attrRect(500, 100, 520, 110, 200);
    colour.attr = gray.attr;
    Page noTables = standardPage(false, false), emptyTables = standardPage(false, false);
    emptyTables.exclude(400, 0, 300, 799).exclude(-3, -8, -1, 799);  // reversed; halved to column -1
    const std::tuple<const char*, Page*, Page*, int, int> pairs[] = {{"colour uses its first sample", &gray, &colour, 1, 1},
        {"attribute mode 2 is mode 0", &attrs, &attrs, 0, 2}, {"empty tables clear nothing", &noTables, &emptyTables, 0, 0}};
    for (auto [what, pageA, pageB, attrA, attrB] : pairs) {
        Detection a, b;
        EXPECT_EQ(a.run(*pageA, attrA), b.run(*pageB, attrB)) << what;
        EXPECT_TRUE(a.param.iPictPixelNum == b.param.iPictPixelNum && a.work.bytes == b.work.bytes) << what;
    }
}

TEST(Driver, ResultMaskLabelsAndDumpAgree) {
    Page page = standardPage();
    const std::string dir = tt::scratchDir("driver");
    Detection r;
    ASSERT_EQ(r.run(page, 0, 8, 0, dir), 1);
    Plane mask = r.mask(), labelPlane(r.w4, r.h4);
    const long n = long(r.w4) * r.h4, s = r.param.iPictPixelNum;
    EXPECT_EQ(std::count(mask.px.begin(), mask.px.end(), 0), n - s);  // and s ones
    EXPECT_EQ(tt::readText(dir + "/pict_count.csv"), std::to_string(s) + "," + std::to_string(n) + "\n");
    // The passes stopped on a stable count: the table is the labelling of
    // the final mask, and plane 8 its label plane.
    std::vector<uint8_t> work(TAVRIN_DETECT_WORK_SIZE);
    std::vector<PictLabel> fresh(4097);
    char none[] = "";
    const int k = entLabeling(fresh.data(), &mask.img, &labelPlane.img, work.data(), none);
    EXPECT_TRUE(k >= 1 && std::memcmp(fresh.data(), r.labels(), (k + 1) * sizeof(PictLabel)) == 0);
    const uint8_t* plane8 = r.at(TAVRIN_DETECT_PLANES_OFFSET + 8 * TAVRIN_DETECT_PLANE_LIMIT);
    EXPECT_TRUE(std::equal(labelPlane.px.begin(), labelPlane.px.end(), plane8));
    EXPECT_EQ(Detection().run(page, 0, 8, 0, "/nonexistent-dir/x"), 1);  // an unopenable dump directory
}

TEST(Driver, TableExclusionAndSampling) {
    Page page = standardPage(false, false);
    Detection cut;
    // A table rectangle is read left, top, right, bottom: quarter columns
    // 150..159 of every row. Closing keeps the gap; the last erosion widens
    // it by one.
    ASSERT_GE(cut.run(page.exclude(2 * 150 + 1, 0, 2 * 159 + 1, 2000), 0, -1), 0);
    EXPECT_EQ((Ints{cut.ones(149, 60, 160, 164), cut.ones(148, 60, 148, 164), cut.ones(161, 60, 161, 164)}), (Ints{0, 105, 105}));

    Page small(9, 10);  // quarter 3 x 3: every fourth pixel, every second attribute (colour: table above)
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 9; ++x) small.gray(x, y, uint8_t(10 * y + x));
    for (size_t i = 0; i < small.attr.size(); ++i) small.attr[i] = uint8_t(i);
    Detection r;
    ASSERT_GE(r.run(small), 0);
    const uint8_t *gray = r.at(TAVRIN_DETECT_GRAY_OFFSET), *attr = r.at(TAVRIN_DETECT_ATTR_OFFSET);
    EXPECT_EQ(tt::Bytes(gray, gray + 9), (tt::Bytes{0, 4, 8, 40, 44, 48, 80, 84, 88}));
    EXPECT_EQ(tt::Bytes(attr, attr + 9), (tt::Bytes{0, 2, 4, 10, 12, 14, 20, 22, 24}));
}

}  // namespace
