// Table-region splitting: the four corner cases with hand-worked cleared
// areas, the configurations that leave the mask alone, the halving and the
// order of the table values, and clipping at the plane's edges.
#include <gtest/gtest.h>

#include <vector>

#include "detect/regions_support.h"

using regions_test::Plane;
using regions_test::tableRect;

namespace {

// Rectangles are {x0, y0, x1, y1}, inclusive.
using Rect = std::vector<int>;

struct Split {
    Plane mask;
    std::vector<PictLabel> labels{PictLabel{99, 0, 0, 0, 0}};
    std::vector<ST_TABLERECT> tables{tableRect(0, 0, 0, 0)};  // entry 0 never read
    explicit Split(int w = 20, int h = 16) : mask(w, h, 1) {}
    void box(int x0, int y0, int x1, int y1, int pixel = 1) {
        labels.push_back(PictLabel{pixel, x0, y0, x1, y1});
    }
    // A table given on the quarter grid, stored doubled (values are halved).
    void table(int x0, int x1, int y0, int y1) {
        tables.push_back(tableRect(2 * x0, 2 * x1, 2 * y0, 2 * y1));
    }
    void run(int n = -1, int tableNum = -1) {
        ST_TABLEDATA td{tableNum < 0 ? static_cast<int>(tables.size()) - 1 : tableNum,
                        tables.data()};
        EXPECT_EQ(splitRect_forTable(labels.data(), &mask.img, &td,
                                     n < 0 ? static_cast<int>(labels.size()) - 1 : n),
                  0);
    }
    // 0 exactly on the given rectangles, 1 elsewhere.
    void expectCleared(const std::vector<Rect>& rects) {
        for (int y = 0; y < mask.img.usHeight; ++y)
            for (int x = 0; x < mask.img.usWidth; ++x) {
                int want = 1;
                for (const Rect& r : rects)
                    if (x >= r[0] && x <= r[2] && y >= r[1] && y <= r[3]) want = 0;
                ASSERT_EQ(mask.at(x, y), want) << x << "," << y;
            }
    }
};

// Table columns 5..12, rows 5..12 in every corner case.
TEST(SplitTable, TopRightCorner) {
    Split s;
    s.box(8, 2, 15, 8);
    s.table(5, 12, 5, 12);
    s.run();
    // cut row TY0 - 1 = 4 over LX0..LX1; band rows 4..LY1 + 1, columns
    // LX0 - 1..TX1 + 1
    s.expectCleared({{8, 4, 15, 4}, {7, 4, 13, 9}});
}

TEST(SplitTable, TopLeftCorner) {
    Split s;
    s.box(2, 2, 9, 8);
    s.table(5, 12, 5, 12);
    s.run();
    s.expectCleared({{2, 4, 9, 4}, {4, 4, 10, 9}});
}

TEST(SplitTable, BottomRightCorner) {
    Split s;
    s.box(8, 9, 15, 14);
    s.table(5, 12, 5, 12);
    s.run();
    s.expectCleared({{8, 13, 15, 13}, {7, 8, 13, 13}});
}

TEST(SplitTable, BottomLeftCorner) {
    Split s;
    s.box(2, 9, 9, 14);
    s.table(5, 12, 5, 12);
    s.run();
    s.expectCleared({{2, 13, 9, 13}, {4, 8, 10, 13}});
}

TEST(SplitTable, ConfigurationsThatLeaveTheMaskAlone) {
    auto unchanged = [](int x0, int y0, int x1, int y1) {
        Split s;
        s.box(x0, y0, x1, y1);
        s.table(5, 12, 5, 12);
        s.run();
        s.expectCleared({});
    };
    unchanged(6, 6, 11, 11);   // inside the table
    unchanged(3, 3, 14, 14);   // covers the table
    unchanged(5, 2, 15, 8);    // left column equals TX0: neither left nor right
    unchanged(8, 2, 15, 14);   // right of the columns but across all rows
    unchanged(14, 2, 18, 8);   // no overlap
    unchanged(8, 2, 15, 12);   // bottom row equals TY1
}

TEST(SplitTable, NothingToDo) {
    Split none;
    none.box(8, 2, 15, 8);
    none.table(5, 12, 5, 12);
    none.run(0);
    none.expectCleared({});

    Split noTables;
    noTables.box(8, 2, 15, 8);
    noTables.table(5, 12, 5, 12);
    noTables.run(-1, 0);
    noTables.expectCleared({});

    Split empty;
    empty.box(8, 2, 15, 8, 0);  // pixel 0: skipped although it overlaps a corner
    empty.table(5, 12, 5, 12);
    empty.run();
    empty.expectCleared({});
}

TEST(SplitTable, ValuesAreHalvedAndReadLeftRightTopBottom) {
    Split s;
    s.box(5, 2, 15, 8);
    // 9 >> 1 = 4 < LX0 = 5 (a rounding halving would give 5 and no split);
    // 25 >> 1 = 12, rows 10 >> 1 = 5 and 25 >> 1 = 12.
    s.tables.push_back(tableRect(9, 25, 10, 25));
    s.run();
    s.expectCleared({{5, 4, 15, 4}, {4, 4, 13, 9}});
}

TEST(SplitTable, EachTableCutsInTurn) {
    Split s(24, 16);
    s.box(4, 4, 19, 8);
    s.table(1, 6, 6, 12);    // the box covers this table's top-right corner
    s.table(17, 22, 6, 12);  // and this one's top-left corner
    s.run();
    s.expectCleared({{4, 5, 19, 5}, {3, 5, 7, 9}, {16, 5, 20, 9}});
}

TEST(SplitTable, TablesReachingOutsideThePlaneAreClipped) {
    Split s;
    s.box(2, 2, 9, 8);
    s.tables.push_back(tableRect(10, 200, 10, 24));  // columns 5..(clipped) 19
    s.run();
    s.expectCleared({{2, 4, 9, 4}, {4, 4, 10, 9}});

    Split outside;
    outside.box(2, 2, 9, 8);
    outside.tables.push_back(tableRect(60, 200, 10, 24));  // wholly right of the plane
    outside.tables.push_back(tableRect(-40, -6, -40, -6));  // wholly above-left
    outside.run();
    outside.expectCleared({});
}

TEST(SplitTable, BoxesReachingOutsideThePlaneWriteOnlyInside) {
    Split s(12, 12);
    s.box(5, -6, 30, 6);  // not from a labelling of this mask
    s.table(2, 10, 2, 10);
    s.run();
    s.expectCleared({{5, 1, 11, 1}, {4, 1, 11, 7}});
}

}  // namespace
