// Region acceptance and box painting: each threshold at its edge, the ratio
// tests in floating point, box growth clipped at the plane's edges.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "detect/regions_support.h"

using regions_test::Plane;

namespace {

ST_PARAM_DETECT_PICT permissive() {
    ST_PARAM_DETECT_PICT p{};
    p.iMinWidth = 1;
    p.iMinHeight = 1;
    p.iMinArea = 1;
    p.dMinFillRatio = 0.0;
    p.dMaxHighAttrRatio = 1.0;
    return p;
}

struct Scene {
    Plane size, count, out;
    std::vector<PictLabel> table;
    Scene(int w, int h) : size(w, h), count(w, h), out(w, h, 7), table(1, PictLabel{-1, -1, -1, -1, -1}) {}
    int add(int pixel, int x0, int y0, int x1, int y1) {
        table.push_back(PictLabel{pixel, x0, y0, x1, y1});
        return static_cast<int>(table.size()) - 1;
    }
    int run(ST_PARAM_DETECT_PICT p, int margin = 1) {
        return boudingBox(table.data(), static_cast<int>(table.size()) - 1, size.img, count.img,
                          out.img, margin, &p);
    }
    // The mask holds 1 exactly on the given inclusive rectangles.
    void expectMask(std::vector<std::vector<int>> rects) {
        for (int y = 0; y < out.img.usHeight; ++y)
            for (int x = 0; x < out.img.usWidth; ++x) {
                int want = 0;
                for (auto& r : rects)
                    if (x >= r[0] && x <= r[2] && y >= r[1] && y <= r[3]) want = 1;
                ASSERT_EQ(out.at(x, y), want) << x << "," << y;
            }
    }
};

TEST(BoundingBox, NoLabelsClearsTheMaskOnly) {
    Scene s(8, 6);
    s.add(5, 1, 1, 3, 3);
    ST_PARAM_DETECT_PICT p = permissive();
    EXPECT_EQ(boudingBox(s.table.data(), 0, s.size.img, s.count.img, s.out.img, 1, &p), 0);
    s.expectMask({});
    EXPECT_EQ(s.table[1].pixel, 5);
}

TEST(BoundingBox, GrownBoxIsPaintedAndEntryZeroIgnored) {
    Scene s(12, 12);
    s.table[0] = PictLabel{100, 0, 0, 11, 11};  // background entry: never read
    s.add(20, 3, 4, 6, 8);
    EXPECT_EQ(s.run(permissive()), 0);
    s.expectMask({{2, 3, 7, 9}});
    EXPECT_EQ(s.table[1].pixel, 20);
}

TEST(BoundingBox, SizeThresholdsAreInclusive) {
    ST_PARAM_DETECT_PICT p = permissive();
    p.iMinWidth = 4;
    p.iMinHeight = 3;
    p.iMinArea = 12;
    Scene s(30, 10);
    int exact = s.add(12, 1, 1, 4, 3);     // 4 x 3 = 12: passes all three
    int narrow = s.add(12, 8, 1, 10, 4);   // 3 wide
    int low = s.add(12, 14, 1, 18, 2);     // 2 high
    int small = s.add(11, 22, 1, 25, 3);   // passes; area 12 ok
    s.run(p);
    EXPECT_EQ(s.table[exact].pixel, 12);
    EXPECT_EQ(s.table[narrow].pixel, 0);
    EXPECT_EQ(s.table[low].pixel, 0);
    EXPECT_EQ(s.table[small].pixel, 11);

    p.iMinArea = 13;
    Scene a(10, 10);
    a.add(12, 1, 1, 4, 3);
    a.run(p);
    EXPECT_EQ(a.table[1].pixel, 0);
    a.expectMask({});
}

TEST(BoundingBox, RejectedLabelKeepsItsBox) {
    Scene s(10, 10);
    s.add(0, 2, 3, 5, 6);  // no pixels
    s.run(permissive());
    EXPECT_EQ(s.table[1].pixel, 0);
    EXPECT_EQ(s.table[1].min_x, 2);
    EXPECT_EQ(s.table[1].min_y, 3);
    EXPECT_EQ(s.table[1].max_x, 5);
    EXPECT_EQ(s.table[1].max_y, 6);
    s.expectMask({});
}

TEST(BoundingBox, FillRatio) {
    ST_PARAM_DETECT_PICT p = permissive();
    p.dMinFillRatio = 0.5;
    Scene s(20, 8);
    s.add(8, 1, 1, 4, 4);   // 8 of 16: passes
    s.add(7, 10, 1, 13, 4); // 7 of 16: rejected
    s.run(p);
    EXPECT_EQ(s.table[1].pixel, 8);
    EXPECT_EQ(s.table[2].pixel, 0);
    s.expectMask({{0, 0, 5, 5}});
}

TEST(BoundingBox, HighAttributeRatioCountsInsideTheBoxOnly) {
    ST_PARAM_DETECT_PICT p = permissive();
    p.dMaxHighAttrRatio = 0.25;
    Scene s(20, 8);
    s.add(16, 1, 1, 4, 4);
    s.count.fillRect(1, 1, 4, 1);  // 4 inside
    s.count.fillRect(0, 0, 5, 0);  // outside the box: not counted
    s.add(16, 10, 1, 13, 4);
    s.count.fillRect(10, 1, 13, 1);
    s.count.at(13, 4) = 1;         // 5 inside
    s.run(p);
    EXPECT_EQ(s.table[1].pixel, 16);
    EXPECT_EQ(s.table[2].pixel, 0);

    // The count plane's bytes are summed, not counted.
    Scene b(8, 8);
    b.add(16, 1, 1, 4, 4);
    b.count.at(2, 2) = 5;
    b.run(p);
    EXPECT_EQ(b.table[1].pixel, 0);
}

TEST(BoundingBox, NaNRatiosReject) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    ST_PARAM_DETECT_PICT p = permissive();
    p.dMinFillRatio = nan;
    Scene s(8, 8);
    s.add(16, 1, 1, 4, 4);
    s.run(p);
    EXPECT_EQ(s.table[1].pixel, 0);

    p = permissive();
    p.dMaxHighAttrRatio = nan;
    Scene t(8, 8);
    t.add(16, 1, 1, 4, 4);
    t.run(p);
    EXPECT_EQ(t.table[1].pixel, 0);
}

TEST(BoundingBox, GrowthIsClippedAtThePlaneEdges) {
    Scene s(10, 8);
    s.add(4, 0, 0, 1, 1);  // top-left corner: grows right and down
    s.add(4, 8, 6, 9, 7);  // bottom-right corner: grows left and up
    s.run(permissive());
    s.expectMask({{0, 0, 2, 2}, {7, 5, 9, 7}});

    Scene w(6, 6);
    w.add(36, 0, 0, 5, 5);  // whole plane
    w.run(permissive(), 3);
    w.expectMask({{0, 0, 5, 5}});
}

TEST(BoundingBox, BoxesOnePixelApartBecomeOneRegion) {
    Scene s(20, 8);
    s.add(9, 2, 2, 4, 4);
    s.add(9, 6, 2, 8, 4);  // column 5 between them
    s.run(permissive());
    s.expectMask({{1, 1, 9, 5}});

    std::vector<uint8_t> work = regions_test::workBuffer();
    std::vector<PictLabel> labels(4097);
    Plane labelPlane(20, 8);
    char none[] = "";
    EXPECT_EQ(entLabeling(labels.data(), &s.out.img, &labelPlane.img, work.data(), none), 1);
}

TEST(BoundingBox, BoxesOutsideThePlaneAreClipped) {
    // Boxes that do not come from a labelling of the plane: nothing outside
    // the plane is read or painted.
    Scene s(6, 5);
    s.add(100, -4, -3, 20, 30);
    s.add(1, 50, 50, 60, 60);
    s.run(permissive());
    s.expectMask({{0, 0, 5, 4}});
    EXPECT_EQ(s.table[2].pixel, 1);
}

}  // namespace
