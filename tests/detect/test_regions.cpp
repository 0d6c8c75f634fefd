// Region stages on hand-worked masks: connected-component labelling (with
// the two-step equivalence table it is defined with, its label limits and
// text dumps), box acceptance at each threshold's edge, and the splitting of
// picture boxes from the tables they overlap at one corner.
#include <cmath>
#include <cstring>

#include "support.h"

// Label table entries compare and print as a whole.
bool operator==(const PictLabel& a, const PictLabel& b) { return std::memcmp(&a, &b, sizeof a) == 0; }
std::ostream& operator<<(std::ostream& os, const PictLabel& e) {
    return os << "{" << e.pixel << ", " << e.min_x << ", " << e.min_y << ", " << e.max_x << ", " << e.max_y << "}";
}

namespace {

using tt::Ints;
using tt::Plane;

Plane fromRows(const std::vector<std::string>& rows) {  // '.' 0, '#' 1, digits their value
    Plane p(int(rows[0].size()), int(rows.size()));
    for (int y = 0; y < p.h(); ++y)
        for (int x = 0; x < p.w(); ++x) p.at(x, y) = rows[y][x] == '#' ? 1 : rows[y][x] == '.' ? 0 : rows[y][x] - '0';
    return p;
}

constexpr PictLabel kUnset{-7, -7, -7, -7, -7};

struct Labelled { int k; std::vector<PictLabel> table; Plane labels; tt::Bytes work; };
Labelled label(Plane& mask, std::string dumpDir = "") {  // with a work buffer of a pattern
    Labelled out{0, std::vector<PictLabel>(4097, kUnset), Plane(mask.w(), mask.h(), 0xEE), tt::Bytes(TAVRIN_DETECT_WORK_SIZE, 0xA5)};
    out.k = entLabeling(out.table.data(), &mask.img, &out.labels.img, out.work.data(), tt::mut(dumpDir));
    return out;
}

// One 8-connected region that the two-step table leaves with two labels.
const std::vector<std::string> kTwoLabels = {"###...#..#", "#...#.##.#", "#.##.#####", ".#...###.#"};

TEST(Labeling, HandWorkedScenarios) {
    struct Scenario {
        const char* what;
        std::vector<std::string> mask;
        std::vector<PictLabel> entries;  // 0 (background) .. k
        std::vector<std::string> labels;  // the label plane, '.' = 0
    };
    const Scenario scenarios[] = {
        {"empty", {".......", "......."}, {{14, 0, 0, 6, 1}}, {}},
        {"one-pixel image", {"#"}, {{0, 32767, 32767, 0, 0}, {1, 0, 0, 0, 0}}, {"1"}},
        {"diagonals join, two apart do not", {".#...#..#.#", "..#.#......"},
         {{16, 0, 0, 10, 1}, {2, 1, 0, 2, 1}, {2, 4, 0, 5, 1}, {1, 8, 0, 8, 0}, {1, 10, 0, 10, 0}}, {}},
        {"U shape", {"#...#", "#...#", "#####"}, {{6, 1, 0, 3, 1}, {9, 0, 0, 4, 2}}, {}},
        {"numbered by first pixel", {"......#.", ".......#", "####....", "####...."},
         {{22, 0, 0, 7, 3}, {2, 6, 0, 7, 1}, {8, 0, 2, 3, 3}}, {"......1.", ".......1", "2222....", "2222...."}},
        {"two-step table keeps two labels", kTwoLabels, {{17, 0, 0, 8, 3}, {9, 0, 0, 4, 3}, {14, 5, 0, 9, 3}},
         {"111...2..2", "1...1.22.2", "1.11.22222", ".1...222.2"}},
        {"upper-left link two steps away", {"....#", "#.#.#", "##.##"}, {{7, 0, 0, 3, 2}, {8, 0, 0, 4, 2}}, {}},
    };
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.what);
        Plane m = fromRows(s.mask);
        const Labelled r = label(m);
        ASSERT_EQ(r.k, int(s.entries.size()) - 1);
        EXPECT_EQ(std::vector<PictLabel>(r.table.begin(), r.table.begin() + r.k + 1), s.entries);
        EXPECT_EQ(r.table[r.k + 1], kUnset);
        EXPECT_TRUE(s.labels.empty() || r.labels.px == fromRows(s.labels).px);
    }
    // The resolution rewrites each entry as it goes: later labels look
    // through the rewritten ones.
    std::vector<uint32_t> table = {0, 1, 1, 3, 3, 4}, corr = {0, 1, 2, 3, 4, 5};
    char none[] = "";
    EXPECT_EQ(CorrelationTableGeneration(table.data(), corr.data(), 5, none), 2);
    EXPECT_EQ(corr, (std::vector<uint32_t>{0, 1, 1, 2, 2, 2}));
    EXPECT_EQ(table, corr);
}

// Isolated pixels on the even columns and rows: 64 regions per 128 columns.
Plane dots(int w, int h) {
    Plane m(w, h);
    for (int i = 0; i < w * h; ++i) m.px[i] = i / w % 2 == 0 && i % w % 2 == 0;
    return m;
}
// Teeth on the even columns of row 0 joined by row 1: one region, one
// provisional label per tooth.
Plane comb(int teeth) {
    Plane m(2 * teeth, 2);
    for (int t = 0; t < teeth; ++t) m.at(2 * t, 0) = 1;
    m.fill(0, 1, 2 * teeth - 1, 1);
    return m;
}

TEST(Labeling, LimitsCountsAndTextDumps) {
    Plane grid = dots(128, 128);  // 4096 regions: one too many
    grid.at(126, 126) = 0;
    const Labelled ok = label(grid);
    ASSERT_EQ(ok.k, 4095);
    EXPECT_EQ(ok.table[4095], (PictLabel{1, 124, 126, 124, 126}));
    Plane few = dots(128, 10), big(1188, 1000, 1);  // 1188000 > 1187664 pixels: beyond the work areas
    const Labelled low = label(few), refused = label(big);  // label 300 at (86, 8) is stored as 44
    EXPECT_EQ((Ints{low.k, low.table[300].min_x, low.table[300].min_y, low.labels.at(86, 8), low.labels.at(126, 6)}),
              (Ints{320, 86, 8, 44, 0}));
    EXPECT_EQ((Ints{refused.k, refused.labels.px[0], refused.table[0].pixel}), (Ints{-4096, 0xEE, -7}));

    // Each stage dumps its table and a failure writes no later one: 4096
    // final labels fail after the resolution; 8192 provisional labels pass
    // the first pass, but their correlation table (8193 entries) does not
    // fit; 8193 fail the first pass.
    grid.at(126, 126) = 1;
    Plane failing[] = {grid, comb(8191), comb(8192), comb(8193)};
    const Ints results[] = {{-4096, 1, 1, 0}, {1, 1, 1, 1}, {-4096, 1, 0, 0}, {-4096, 0, 0, 0}};
    for (int i = 0; i < 4; ++i) {
        const std::string d = tt::scratchDir("labeling_" + std::to_string(i));
        for (const char* f : {"/init_table.txt", "/corr_table.txt", "/label_table.txt"}) unlink((d + f).c_str());
        const Labelled r = label(failing[i], d);
        EXPECT_EQ((Ints{r.k, tt::fileExists(d + "/init_table.txt"), tt::fileExists(d + "/corr_table.txt"),
                            tt::fileExists(d + "/label_table.txt")}), results[i]) << i;
        EXPECT_TRUE(r.k >= 0 || std::count(r.table.begin(), r.table.end(), kUnset) == 4097);  // the table left alone,
        EXPECT_TRUE(r.k >= 0 || r.labels.px == tt::Bytes(r.labels.px.size(), 0));            // the plane cleared
    }
    const std::string dir = tt::scratchDir("labeling");
    Plane m = fromRows(kTwoLabels), empty(4, 4);
    ASSERT_EQ(label(m, dir).k, 2);
    const std::string header = "Label,pixel,min_x,min_y,max_x,max_y\n";
    EXPECT_EQ(tt::readText(dir + "/init_table.txt") + tt::readText(dir + "/corr_table.txt"),
              "1,1\n2,2\n3,2\n4,1\n5,4\n" "1,1\n2,2\n3,2\n4,1\n5,1\n");
    EXPECT_EQ(tt::readText(dir + "/label_table.txt"),
              header + "    1,    9,    0,    0,    4,    3\n    2,   14,    5,    0,    9,    3\n");
    ASSERT_EQ(label(empty, dir).k, 0);
    EXPECT_EQ(tt::readText(dir + "/init_table.txt") + tt::readText(dir + "/label_table.txt"), header);
    EXPECT_EQ(label(m, "/nonexistent-dir/for/dumps").k, 2);

    std::vector<uint16_t> prov(2100 * 1000, 1);  // pixel counts stop at 2097151
    std::vector<uint8_t> out(prov.size());
    std::vector<uint32_t> one = {0, 1};
    std::vector<PictLabel> boxes(2, PictLabel{0, 32767, 32767, 0, 0});
    EXPECT_EQ(correct_label(boxes.data(), prov.data(), out.data(), one.data(), 2100, 1000), 0);
    EXPECT_EQ(boxes[1], (PictLabel{2097151, 0, 0, 2099, 999}));
}

TEST(Labeling, WritesOnlyItsThreeWorkAreas) {  // every other byte, T[N] among them, keeps the caller's pattern
    const int cases[][3] = {{2, 1, 1}, {1, 2, 1}, {3, 2, 2}, {7, 5, 0}, {7, 5, 1}, {9, 4, 2}, {620, 877, 3}};  // every k-th set
    for (auto& c : cases) {
        Plane m(c[0], c[1]);
        for (size_t i = 0; c[2] > 0 && i < m.px.size(); i += c[2]) m.px[i] = 1;
        Labelled r = label(m);
        const size_t n = m.px.size();  // the table T[0..N), the provisional plane, the correlation table (N + 1 at most)
        std::fill_n(r.work.begin() + TAVRIN_DETECT_EQUIV_OFFSET, 4 * n, 0xA5);
        std::fill_n(r.work.begin() + TAVRIN_DETECT_PROV_OFFSET, 2 * n, 0xA5);
        std::fill_n(r.work.begin() + TAVRIN_DETECT_CORR_OFFSET, std::min<size_t>(4 * (n + 1), TAVRIN_DETECT_CORR_LIMIT), 0xA5);
        EXPECT_TRUE(r.k >= 0 && std::count(r.work.begin(), r.work.end(), 0xA5) == long(r.work.size())) << c[0] << "x" << c[1];
    }
}

// ---- box acceptance ----------------------------------------------------------

TEST(BoundingBox, EachThresholdAtItsEdgeAndGrownBoxes) {
    const double nan = std::nan("");
    struct Scenario {
        const char* what;
        PictLabel box;
        uint8_t highAttr;  // one count-plane byte inside every box: bytes are summed
        double fill, high;
        int margin;
        bool accepted;
    };
    // Smallest width and height 3, area 16.
    const Scenario scenarios[] = {
        {"4 x 4: area, fill 8 and high attributes 4 at their edges", {8, 2, 2, 5, 5}, 4, 0.5, 0.25, 1, true},
        {"3 x 6: width at its edge", {9, 2, 2, 4, 7}, 0, 0.5, 0.25, 1, true},
        {"6 x 3: height at its edge", {9, 2, 2, 7, 4}, 0, 0.5, 0.25, 1, true},
        {"2 wide", {16, 2, 2, 3, 9}, 0, 0.5, 0.25, 1, false}, {"2 high", {16, 2, 2, 9, 3}, 0, 0.5, 0.25, 1, false},
        {"3 x 5: area 15", {15, 2, 2, 4, 6}, 0, 0.5, 0.25, 1, false}, {"fill 7 of 16", {7, 2, 2, 5, 5}, 0, 0.5, 0.25, 1, false},
        {"high attributes 5 of 16", {16, 2, 2, 5, 5}, 5, 0.5, 0.25, 1, false},
        {"no pixels", {0, 2, 2, 5, 5}, 0, 0.0, 1.0, 1, false}, {"NaN fill ratio", {16, 2, 2, 5, 5}, 0, nan, 1.0, 1, false},
        {"NaN high-attribute ratio", {16, 2, 2, 5, 5}, 0, 0.0, nan, 1, false},
        {"reaching outside the plane", {100, -4, -3, 40, 30}, 0, 0.0, 1.0, 1, true},
        {"grown by 3, clipped", {16, 16, 6, 19, 9}, 0, 0.0, 1.0, 3, true},
    };
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.what);
        ST_PARAM_DETECT_PICT p{};
        p.iMinWidth = p.iMinHeight = 3;
        p.iMinArea = 16;
        p.dMinFillRatio = s.fill;
        p.dMaxHighAttrRatio = s.high;
        Plane size(20, 10), count(20, 10), out(20, 10, 7), want(20, 10);
        count.fill(0, 0, 19, 0, 9);  // outside every box but one: never counted
        count.at(2, 2) = s.highAttr;
        std::vector<PictLabel> table = {PictLabel{100, 0, 0, 19, 9}, s.box};  // entry 0 is never read
        EXPECT_EQ(boudingBox(table.data(), 1, size.img, count.img, out.img, s.margin, &p), 0);
        EXPECT_EQ(table[1].pixel, s.accepted ? s.box.pixel : 0);
        EXPECT_EQ(table[1].max_y, s.box.max_y);  // a rejected box keeps its coordinates
        if (s.accepted) want.fill(std::max(s.box.min_x - s.margin, 0), std::max(s.box.min_y - s.margin, 0),
                                  std::min(s.box.max_x + s.margin, 19), std::min(s.box.max_y + s.margin, 9));
        EXPECT_EQ(out.px, want.px);
        EXPECT_EQ(boudingBox(table.data(), 0, size.img, count.img, out.img, 1, &p), 0);  // no labels: cleared
        EXPECT_EQ(out.px, Plane(20, 10).px);
    }
}

// ---- table splitting ---------------------------------------------------------

// Table columns 5..12, rows 5..12 (stored doubled, read left, right, top,
// bottom); a mask of ones; the cleared rectangles worked by hand.
ST_TABLERECT rect(int s0, int s1, int s2, int s3) {
    ST_TABLERECT r{};
    r.sRect0 = int16_t(s0), r.sRect1 = int16_t(s1), r.sRect2 = int16_t(s2), r.sRect3 = int16_t(s3);
    return r;
}
ST_TABLERECT doubled(int x0, int x1, int y0, int y1) { return rect(2 * x0, 2 * x1, 2 * y0, 2 * y1); }

TEST(SplitTable, CornerCasesAndConfigurationsLeftAlone) {
    using Rects = std::vector<std::vector<int>>;  // {x0, y0, x1, y1} inclusive
    struct Scenario {
        const char* what;
        PictLabel box;
        std::vector<ST_TABLERECT> tables;
        Rects cleared;
    };
    const ST_TABLERECT t = doubled(5, 12, 5, 12);
    const Scenario scenarios[] = {
        {"top right: cut row TY0 - 1, band to LY1 + 1", {1, 8, 2, 15, 8}, {t}, {{8, 4, 15, 4}, {7, 4, 13, 9}}},
        {"top left", {1, 2, 2, 9, 8}, {t}, {{2, 4, 9, 4}, {4, 4, 10, 9}}},
        {"bottom right", {1, 8, 9, 15, 14}, {t}, {{8, 13, 15, 13}, {7, 8, 13, 13}}},
        {"bottom left", {1, 2, 9, 9, 14}, {t}, {{2, 13, 9, 13}, {4, 8, 10, 13}}},
        {"inside the table", {1, 6, 6, 11, 11}, {t}, {}}, {"left column on TX0", {1, 5, 2, 15, 8}, {t}, {}},
        {"bottom row on TY1", {1, 8, 2, 15, 12}, {t}, {}}, {"no pixels", {0, 8, 2, 15, 8}, {t}, {}},
        {"9 >> 1 = 4: halved down, read left, right, top, bottom", {1, 5, 2, 15, 8}, {rect(9, 25, 10, 25)},
         {{5, 4, 15, 4}, {4, 4, 13, 9}}}, {"each table in turn", {1, 4, 4, 19, 8}, {doubled(1, 6, 6, 12), doubled(17, 22, 6, 12)},
         {{4, 5, 19, 5}, {3, 5, 7, 9}, {16, 5, 20, 9}}},
        {"tables clipped to the plane", {1, 2, 2, 9, 8}, {rect(10, 200, 10, 24), rect(-40, -6, -40, -6)},
         {{2, 4, 9, 4}, {4, 4, 10, 9}}},
        {"box reaching outside", {1, 5, -6, 30, 6}, {doubled(2, 10, 2, 10)}, {{5, 1, 23, 1}, {4, 1, 11, 7}}},
    };
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.what);
        Plane mask(24, 16, 1), want(24, 16, 1);
        std::vector<PictLabel> labels = {PictLabel{99, 0, 0, 0, 0}, s.box};
        std::vector<ST_TABLERECT> tables = {rect(0, 0, 0, 0)};  // entry 0 is never read
        tables.insert(tables.end(), s.tables.begin(), s.tables.end());
        ST_TABLEDATA td{int(s.tables.size()), tables.data()}, none{0, tables.data()};
        EXPECT_EQ(splitRect_forTable(labels.data(), &mask.img, &td, 0), 0);  // no labels
        EXPECT_EQ(splitRect_forTable(labels.data(), &mask.img, &none, 1), 0);  // no tables
        EXPECT_EQ(mask.px, want.px);
        EXPECT_EQ(splitRect_forTable(labels.data(), &mask.img, &td, 1), 0);
        for (const auto& r : s.cleared) want.fill(r[0], r[1], r[2], r[3], 0);
        EXPECT_EQ(mask.px, want.px);
    }
}

}  // namespace
