// Connected-component labelling: hand-worked regions, the two-step table
// behaviour, the label limits and the three text dumps.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "detect/regions_support.h"

using regions_test::Plane;

namespace {

constexpr PictLabel kSentinel{-7, -7, -7, -7, -7};

struct Labelled {
    int k;
    std::vector<PictLabel> table;
    Plane labels;
};

Labelled label(Plane& mask, const std::string& dumpDir = "") {
    std::vector<uint8_t> work = regions_test::workBuffer();
    Labelled out{0, std::vector<PictLabel>(4097, kSentinel), Plane(mask.img.usWidth, mask.img.usHeight, 0xEE)};
    std::vector<char> dir(dumpDir.begin(), dumpDir.end());
    dir.push_back('\0');
    out.k = entLabeling(out.table.data(), &mask.img, &out.labels.img, work.data(), dir.data());
    return out;
}

void expectEntry(const PictLabel& e, int pixel, int x0, int y0, int x1, int y1) {
    EXPECT_EQ(e.pixel, pixel);
    EXPECT_EQ(e.min_x, x0);
    EXPECT_EQ(e.min_y, y0);
    EXPECT_EQ(e.max_x, x1);
    EXPECT_EQ(e.max_y, y1);
}

// One 8-connected region that the two-step table leaves with two labels.
Plane quirkMask() {
    Plane m(10, 4);
    const std::vector<std::vector<int>> cols = {
        {0, 1, 2, 6, 9}, {0, 4, 6, 7, 9}, {0, 2, 3, 5, 6, 7, 8, 9}, {1, 5, 6, 7, 9}};
    for (int y = 0; y < 4; ++y)
        for (int x : cols[y]) m.at(x, y) = 1;
    return m;
}

// Isolated pixels on the even columns and rows of a 128 x 128 plane: 4096
// regions, numbered row by row.
Plane dotGrid() {
    Plane m(128, 128);
    for (int y = 0; y < 128; y += 2)
        for (int x = 0; x < 128; x += 2) m.at(x, y) = 1;
    return m;
}

TEST(Labeling, EmptyMaskCountsEverythingAsBackground) {
    Plane m(7, 5);
    Labelled r = label(m);
    EXPECT_EQ(r.k, 0);
    expectEntry(r.table[0], 35, 0, 0, 6, 4);
    EXPECT_EQ(r.table[1].pixel, kSentinel.pixel);  // only entry 0 is initialised
    for (uint8_t v : r.labels.px) EXPECT_EQ(v, 0);
}

TEST(Labeling, SinglePixel) {
    Plane m(12, 10);
    m.at(5, 7) = 1;
    Labelled r = label(m);
    ASSERT_EQ(r.k, 1);
    expectEntry(r.table[1], 1, 5, 7, 5, 7);
    expectEntry(r.table[0], 119, 0, 0, 11, 9);
    EXPECT_EQ(r.labels.at(5, 7), 1);
}

TEST(Labeling, DiagonalNeighboursJoinPixelsTwoApartDoNot) {
    Plane both(8, 6);
    both.set({{1, 1}, {2, 2}});  // down-right diagonal
    both.set({{6, 1}, {5, 2}});  // down-left diagonal
    Labelled r = label(both);
    ASSERT_EQ(r.k, 2);
    expectEntry(r.table[1], 2, 1, 1, 2, 2);
    expectEntry(r.table[2], 2, 5, 1, 6, 2);

    Plane apart(6, 3);
    apart.set({{1, 1}, {3, 1}});
    EXPECT_EQ(label(apart).k, 2);
}

TEST(Labeling, UShapeResolvesToOneLabel) {
    Plane m(5, 4);
    m.set({{0, 0}, {4, 0}, {0, 1}, {4, 1}, {0, 2}, {4, 2}});
    m.fillRect(0, 3, 4, 3);
    std::vector<uint16_t> prov(20, 0);
    std::vector<uint32_t> table(21);
    for (uint32_t i = 0; i < table.size(); ++i) table[i] = i;
    char none[] = "";
    EXPECT_EQ(init_label(m.px.data(), prov.data(), table.data(), 5, 4, none), 2);

    Labelled r = label(m);
    ASSERT_EQ(r.k, 1);
    expectEntry(r.table[1], 11, 0, 0, 4, 3);
}

TEST(Labeling, FinalLabelsFollowRasterOrderOfFirstPixels) {
    Plane m(10, 6);
    m.fillRect(0, 2, 3, 5);  // larger, but its first pixel is in row 2
    m.at(8, 0) = 1;          // first pixel in row 0
    m.at(9, 1) = 1;
    Labelled r = label(m);
    ASSERT_EQ(r.k, 2);
    expectEntry(r.table[1], 2, 8, 0, 9, 1);
    expectEntry(r.table[2], 16, 0, 2, 3, 5);
    EXPECT_EQ(r.labels.at(9, 1), 1);
    EXPECT_EQ(r.labels.at(0, 5), 2);
}

TEST(Labeling, TwoStepTableKeepsTwoLabelsForOneRegion) {
    Plane m = quirkMask();
    std::vector<uint16_t> prov(40, 0);
    std::vector<uint32_t> table(41);
    for (uint32_t i = 0; i < table.size(); ++i) table[i] = i;
    char none[] = "";
    ASSERT_EQ(init_label(m.px.data(), prov.data(), table.data(), 10, 4, none), 5);
    EXPECT_EQ(std::vector<uint32_t>(table.begin() + 1, table.begin() + 6),
              (std::vector<uint32_t>{1, 2, 2, 1, 4}));

    std::vector<uint32_t> corr = {0, 1, 2, 3, 4, 5};
    EXPECT_EQ(CorrelationTableGeneration(table.data(), corr.data(), 5, none), 2);
    EXPECT_EQ(corr, (std::vector<uint32_t>{0, 1, 2, 2, 1, 1}));

    Labelled r = label(m);
    ASSERT_EQ(r.k, 2);
    expectEntry(r.table[0], 17, 0, 0, 8, 3);
    expectEntry(r.table[1], 9, 0, 0, 4, 3);
    expectEntry(r.table[2], 14, 5, 0, 9, 3);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 10; ++x)
            EXPECT_EQ(r.labels.at(x, y), m.at(x, y) ? (x < 5 ? 1 : 2) : 0) << x << "," << y;
}

// The upper-left link goes to the entry two steps from the neighbour's label,
// not to the label's own entry: at (3, 2) label 3 already points at 2, so
// T[2] (not T[3]) becomes 1 and the region keeps a single label.
TEST(Labeling, UpperLeftLinkWritesTheEntryTwoStepsAway) {
    Plane m(5, 3);
    m.set({{4, 0}, {0, 1}, {2, 1}, {4, 1}, {0, 2}, {1, 2}, {3, 2}, {4, 2}});
    std::vector<uint16_t> prov(15, 0);
    std::vector<uint32_t> table(16);
    for (uint32_t i = 0; i < table.size(); ++i) table[i] = i;
    char none[] = "";
    ASSERT_EQ(init_label(m.px.data(), prov.data(), table.data(), 5, 3, none), 3);
    EXPECT_EQ(std::vector<uint32_t>(table.begin() + 1, table.begin() + 4),
              (std::vector<uint32_t>{1, 1, 2}));

    Labelled r = label(m);
    ASSERT_EQ(r.k, 1);
    expectEntry(r.table[1], 8, 0, 0, 4, 2);
}

// Each label's entry is replaced by its two-step target, and a root by its
// final number, before later labels look through it.
TEST(Labeling, ResolutionRewritesEntriesAsItGoes) {
    std::vector<uint32_t> table = {0, 1, 1, 3, 3, 4};
    std::vector<uint32_t> corr = {0, 1, 2, 3, 4, 5};
    char none[] = "";
    EXPECT_EQ(CorrelationTableGeneration(table.data(), corr.data(), 5, none), 2);
    EXPECT_EQ(corr, (std::vector<uint32_t>{0, 1, 1, 2, 2, 2}));
    EXPECT_EQ(table, (std::vector<uint32_t>{0, 1, 1, 2, 2, 2}));
}

TEST(Labeling, Accepts4095RegionsRefuses4096) {
    Plane m = dotGrid();
    m.at(126, 126) = 0;
    Labelled ok = label(m);
    ASSERT_EQ(ok.k, 4095);
    expectEntry(ok.table[4095], 1, 124, 126, 124, 126);

    Plane full = dotGrid();
    Labelled bad = label(full);
    EXPECT_EQ(bad.k, -4096);
    for (const PictLabel& e : bad.table) ASSERT_EQ(e.pixel, kSentinel.pixel);
    for (uint8_t v : bad.labels.px) ASSERT_EQ(v, 0);  // cleared before the passes
}

TEST(Labeling, LabelPlaneKeepsLowEightBits) {
    Plane few(128, 10);
    for (int y = 0; y < 10; y += 2)
        for (int x = 0; x < 128; x += 2) few.at(x, y) = 1;
    Labelled s = label(few);
    ASSERT_EQ(s.k, 320);
    // label 300 = 299 = 4 rows of 64 + 43: pixel (86, 8)
    expectEntry(s.table[300], 1, 86, 8, 86, 8);
    EXPECT_EQ(s.labels.at(86, 8), 44);
    EXPECT_EQ(s.labels.at(126, 6), 0);  // label 256 = 255 + 1: pixel (126, 6)
}

TEST(Labeling, ProvisionalLabelLimits) {
    // A comb: teeth on the even columns of row 0, joined by a full row 1.
    // One region, one provisional label per tooth.
    auto comb = [](int teeth) {
        Plane m(2 * teeth, 2);
        for (int t = 0; t < teeth; ++t) m.at(2 * t, 0) = 1;
        m.fillRect(0, 1, 2 * teeth - 1, 1);
        return m;
    };
    Plane fits = comb(8191);
    EXPECT_EQ(label(fits).k, 1);

    // 8192 provisional labels: the pass succeeds, the correlation table
    // (8193 entries) does not fit.
    Plane full = comb(8192);
    std::vector<uint16_t> prov(full.px.size());
    std::vector<uint32_t> table(full.px.size());
    for (uint32_t i = 0; i < table.size(); ++i) table[i] = i;
    char none[] = "";
    EXPECT_EQ(init_label(full.px.data(), prov.data(), table.data(), 16384, 2, none), 8192);
    EXPECT_EQ(label(full).k, -4096);

    Plane over = comb(8193);
    std::vector<uint16_t> prov2(over.px.size());
    std::vector<uint32_t> table2(over.px.size());
    for (uint32_t i = 0; i < table2.size(); ++i) table2[i] = i;
    EXPECT_EQ(init_label(over.px.data(), prov2.data(), table2.data(), 16386, 2, none), -8193);
    EXPECT_EQ(label(over).k, -4096);
}

TEST(Labeling, FinalLabelLimitOfTheResolution) {
    std::vector<uint32_t> table(4098), corr(4098);
    char none[] = "";
    for (uint32_t i = 0; i < table.size(); ++i) table[i] = corr[i] = i;
    EXPECT_EQ(CorrelationTableGeneration(table.data(), corr.data(), 4096, none), 4096);
    for (uint32_t i = 0; i < table.size(); ++i) table[i] = corr[i] = i;
    EXPECT_EQ(CorrelationTableGeneration(table.data(), corr.data(), 4097, none), -4097);
}

TEST(Labeling, PlaneBeyondTheWorkAreasIsRefusedUntouched) {
    Plane m(1188, 1000, 1);  // 1188000 > 1187664 pixels
    Labelled r = label(m);
    EXPECT_EQ(r.k, -4096);
    EXPECT_EQ(r.labels.px.front(), 0xEE);
    EXPECT_EQ(r.table[0].pixel, kSentinel.pixel);
}

TEST(Labeling, OnePixelImage) {
    Plane m(1, 1, 255);  // any non-zero byte is foreground
    Labelled r = label(m);
    ASSERT_EQ(r.k, 1);
    expectEntry(r.table[1], 1, 0, 0, 0, 0);
    expectEntry(r.table[0], 0, 32767, 32767, 0, 0);
}

TEST(Labeling, PixelCountStopsAt2097151) {
    const int w = 2100, h = 1000;
    std::vector<uint16_t> prov(static_cast<size_t>(w) * h, 1);
    std::vector<uint8_t> out(prov.size(), 9);
    std::vector<uint32_t> corr = {0, 1};
    std::vector<PictLabel> table(2, PictLabel{0, 32767, 32767, 0, 0});
    EXPECT_EQ(correct_label(table.data(), prov.data(), out.data(), corr.data(), w, h), 0);
    expectEntry(table[1], 2097151, 0, 0, w - 1, h - 1);
    EXPECT_EQ(table[0].pixel, 0);
    EXPECT_EQ(out.back(), 1);
}

TEST(LabelingDumps, ExactTablesOfTheTwoStepExample) {
    const std::string dir = regions_test::scratchDir("labeling_dumps");
    Plane m = quirkMask();
    ASSERT_EQ(label(m, dir).k, 2);
    EXPECT_EQ(regions_test::readText(dir + "/init_table.txt"), "1,1\n2,2\n3,2\n4,1\n5,4\n");
    EXPECT_EQ(regions_test::readText(dir + "/corr_table.txt"), "1,1\n2,2\n3,2\n4,1\n5,1\n");
    EXPECT_EQ(regions_test::readText(dir + "/label_table.txt"),
              "Label,pixel,min_x,min_y,max_x,max_y\n"
              "    1,    9,    0,    0,    4,    3\n"
              "    2,   14,    5,    0,    9,    3\n");
}

TEST(LabelingDumps, EmptyMaskWritesHeaderOnly) {
    const std::string dir = regions_test::scratchDir("labeling_empty");
    Plane m(4, 4);
    ASSERT_EQ(label(m, dir).k, 0);
    EXPECT_EQ(regions_test::readText(dir + "/init_table.txt"), "");
    EXPECT_EQ(regions_test::readText(dir + "/corr_table.txt"), "");
    const std::string header = regions_test::readText(dir + "/label_table.txt");
    EXPECT_EQ(header, "Label,pixel,min_x,min_y,max_x,max_y\n");
    EXPECT_EQ(header.size(), 36u);
}

TEST(LabelingDumps, FailuresWriteNoLaterDump) {
    const std::string dir = regions_test::scratchDir("labeling_fail");
    Plane m = dotGrid();  // 4096 final labels: resolution succeeds, entLabeling refuses
    ASSERT_EQ(label(m, dir).k, -4096);
    EXPECT_TRUE(tavrin_test::fileExists(dir + "/init_table.txt"));
    EXPECT_TRUE(tavrin_test::fileExists(dir + "/corr_table.txt"));
    EXPECT_FALSE(tavrin_test::fileExists(dir + "/label_table.txt"));

    const std::string dir2 = regions_test::scratchDir("labeling_fail2");
    Plane teeth(16386, 2);
    for (int t = 0; t < 8193; ++t) teeth.at(2 * t, 0) = 1;
    ASSERT_EQ(label(teeth, dir2).k, -4096);
    EXPECT_FALSE(tavrin_test::fileExists(dir2 + "/init_table.txt"));
}

TEST(LabelingDumps, UnopenableDirectoryIsSkipped) {
    Plane m = quirkMask();
    EXPECT_EQ(label(m, "/nonexistent-dir/for/dumps").k, 2);
}

}  // namespace
