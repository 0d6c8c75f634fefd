// Masked entropy texture filter: the constant term table, hand-worked
// neighbourhoods, the replicated edges, the block lattice and its coverage, a
// plain reference on random planes, and serial against parallel.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "detect/entropy_table.h"
#include "detect/filter_support.h"

using filter_test::Plane;
using filter_test::TeamSize;
using tavrin::detect::kEntropyTerm;

namespace {

// E[i] straight from its definition.
std::vector<int> formulaTable() {
    std::vector<int> e(256, 0);
    for (int i = 1; i < 256; ++i) {
        const double q = i / 256.0;
        e[i] = static_cast<int>(std::floor(255.0 * (-q * std::log2(q)) / std::log2(9.0) + 0.5));
    }
    return e;
}

// Plain reference: every one of the 121 clamped positions looked up on its
// own, classes by their formula.
Plane reference(const Plane& src, const Plane& mask) {
    const std::vector<int> e = formulaTable();
    const int w = src.w(), h = src.h();
    Plane out(w, h);
    for (int y = 2; y < h - 2; y += 3) {
        for (int x = 2; x < w - 2; x += 3) {
            const int c = src.at(x, y);
            unsigned hist[10] = {};
            for (int dy = -5; dy <= 5; ++dy) {
                for (int dx = -5; dx <= 5; ++dx) {
                    const int yy = std::min(std::max(y + dy, 0), h - 1);
                    const int xx = std::min(std::max(x + dx, 0), w - 1);
                    if (mask.at(xx, yy) != 0) continue;
                    const int d = src.at(xx, yy) - c;
                    ++hist[(d >= -35 && d <= 35) ? (35 - d) / 8 : 9];
                }
            }
            unsigned m = 0, s = 0;
            for (int k = 0; k < 9; ++k) m = std::max(m, hist[k]);
            for (int k = 0; k < 9; ++k) {
                if (hist[k] * 512 < m * 51) hist[k] = 0;
                s += hist[k];
            }
            const long double r = s > 16 ? 1.0L / s : 1.0L / 17;
            int v = 0;
            for (int k = 0; k < 9; ++k) {
                const int index = static_cast<int>(static_cast<long double>(hist[k] * 256) * r);
                v += e[std::min(index, 255)];
            }
            for (int yy = y - 1; yy <= y + 1; ++yy)
                for (int xx = x - 1; xx <= x + 1; ++xx)
                    out.at(xx, yy) = static_cast<uint8_t>(std::min(v, 255));
        }
    }
    return out;
}

Plane run(const Plane& src, const Plane& mask, int parallel) {
    Plane s(src), m(mask);
    Plane d(src.w(), src.h(), 0xAB);  // must be cleared first
    EXPECT_EQ(maskedEntropy(&s.img, &m.img, &d.img, parallel), 0);
    return d;
}

// One block centred at (8, 8) of a 17 x 17 plane whose 11 x 11 neighbourhood
// lies inside the plane: `counts` lists (class, count) pairs for the unmasked
// neighbours; every other position, the centre included, is masked. Class k
// uses the step 32 - 8k from the centre value 128; class 9 a step of 100.
int blockOf(const std::vector<std::pair<int, int>>& counts) {
    Plane src(17, 17, 128), mask(17, 17, 1);
    std::vector<std::pair<int, int>> slots;
    for (int y = 3; y <= 13; ++y)
        for (int x = 3; x <= 13; ++x)
            if (x != 8 || y != 8) slots.emplace_back(x, y);
    size_t next = 0;
    for (auto [cls, count] : counts) {
        for (int i = 0; i < count; ++i) {
            auto [x, y] = slots.at(next++);
            src.at(x, y) = static_cast<uint8_t>(128 + (cls == 9 ? 100 : 32 - 8 * cls));
            mask.at(x, y) = 0;
        }
    }
    const Plane out = run(src, mask, 0);
    for (int y = 7; y <= 9; ++y)
        for (int x = 7; x <= 9; ++x) EXPECT_EQ(out.at(x, y), out.at(8, 8)) << x << "," << y;
    return out.at(8, 8);
}

}  // namespace

TEST(EntropyTable, MatchesItsDefinitionAndTellingRows) {
    const std::vector<int> e = formulaTable();
    for (int i = 0; i < 256; ++i) EXPECT_EQ(kEntropyTerm[i], e[i]) << "E[" << i << "]";
    const std::pair<int, int> telling[] = {{1, 3},    {2, 4},    {3, 6},   {4, 8},   {16, 20},
                                           {28, 28},  {32, 30},  {64, 40}, {104, 42}, {128, 40},
                                           {192, 25}, {254, 1},  {255, 0}, {0, 0}};
    for (auto [i, v] : telling) EXPECT_EQ(kEntropyTerm[i], v) << "E[" << i << "]";
    for (int i = 0; i < 256; ++i) {
        if (i >= 86 && i <= 103)
            EXPECT_EQ(kEntropyTerm[i], 43) << i;
        else
            EXPECT_LT(kEntropyTerm[i], 43) << i;
    }
}

TEST(MaskedEntropy, HandWorkedNeighbourhoods) {
    EXPECT_EQ(blockOf({{9, 120}}), 0) << "every step beyond 35";
    EXPECT_EQ(blockOf({{3, 60}, {4, 60}}), 80) << "two equal classes: 2 * E[128]";
    std::vector<std::pair<int, int>> nine;
    for (int k = 0; k < 9; ++k) nine.emplace_back(k, 13);
    EXPECT_EQ(blockOf(nine), 252) << "nine equal classes: 9 * E[28]";
    EXPECT_EQ(blockOf({{6, 8}}), 41) << "8 pixels measured as 17: E[120]";
    EXPECT_EQ(blockOf({{0, 8}, {1, 8}, {2, 8}, {3, 8}}), 160) << "4 * E[64]";
    EXPECT_EQ(blockOf({{0, 4}, {1, 4}, {2, 4}, {3, 4}, {5, 4}, {6, 4}, {7, 4}, {8, 4}}), 240)
        << "8 * E[32]";
    EXPECT_EQ(blockOf({{4, 4}, {0, 8}, {1, 8}, {2, 8}, {3, 8}, {5, 7}, {6, 7}, {7, 7}, {8, 7}}),
              252)
        << "E[16] + 4 * E[32] + 4 * E[28]";
    EXPECT_EQ(blockOf({}), 0) << "nothing unmasked";
    EXPECT_EQ(blockOf({{2, 16}}), kEntropyTerm[240]) << "16 pixels still measured as 17";
    EXPECT_EQ(blockOf({{2, 17}}), 0) << "17 pixels in one class: index 256 capped, E[255]";
}

TEST(MaskedEntropy, WeakClassesAreCutAsNoise) {
    // 9 * 512 = 4608 < 100 * 51 = 5100: the 9 are dropped, S = 100, E[255].
    EXPECT_EQ(blockOf({{4, 100}, {5, 9}}), 0);
    // 10 * 512 = 5120 survives: S = 110, indices 232 and 23.
    EXPECT_EQ(blockOf({{4, 100}, {5, 10}}), kEntropyTerm[232] + kEntropyTerm[23]);
    EXPECT_EQ(kEntropyTerm[232] + kEntropyTerm[23], 10 + 25);
}

TEST(MaskedEntropy, FlatPlaneAndCentreMask) {
    const Plane flat(20, 20, 90), open(20, 20, 0);
    EXPECT_EQ(run(flat, open, 0).px, std::vector<uint8_t>(400, 0));

    // The centre's own mask byte does not matter for its value c.
    Plane src(17, 17, 128), mask(17, 17, 1);
    for (int x = 3; x <= 10; ++x) {
        src.at(x, 4) = 100;  // step -28: class 7
        mask.at(x, 4) = 0;
    }
    const int masked = run(src, mask, 0).at(8, 8);
    mask.at(8, 8) = 0;  // now the centre also counts itself, in class 4
    const int counted = run(src, mask, 0).at(8, 8);
    EXPECT_EQ(masked, kEntropyTerm[120]);
    EXPECT_EQ(counted, kEntropyTerm[8 * 256 / 17] + kEntropyTerm[256 / 17]);
}

TEST(MaskedEntropy, ReplicatedEdgesWeighClampedPositions) {
    // 5 x 5 plane: one block at (2, 2); its neighbourhood rows and columns
    // -3 .. 7 clamp so that corner pixel (0, 0) stands for 4 x 4 positions and
    // (1, 0) for 4 x 1.
    Plane src(5, 5, 50), mask(5, 5, 1);
    mask.at(0, 0) = 0;
    src.at(0, 0) = 50 + 16;  // class 2
    EXPECT_EQ(run(src, mask, 0).at(2, 2), kEntropyTerm[16 * 256 / 17]) << "16 positions";
    mask.at(1, 0) = 0;
    src.at(1, 0) = 50 - 16;  // class 6
    const Plane out = run(src, mask, 0);
    EXPECT_EQ(out.at(2, 2), kEntropyTerm[16 * 256 / 20] + kEntropyTerm[4 * 256 / 20]);
    // The right and bottom edges clamp the same way: (4, 4) also weighs 16.
    Plane src2(5, 5, 50), mask2(5, 5, 1);
    mask2.at(4, 4) = 0;
    mask2.at(4, 3) = 0;
    src2.at(4, 3) = 50 + 16;
    EXPECT_EQ(run(src2, mask2, 0).at(2, 2),
              kEntropyTerm[16 * 256 / 20] + kEntropyTerm[4 * 256 / 20]);
}

TEST(MaskedEntropy, BlockLatticeCoverage) {
    const Plane src = filter_test::randomPlane(100, 31, 7, 60);
    const Plane mask = filter_test::randomMask(100, 31, 8, 20);
    const Plane out = run(src, mask, 0);
    EXPECT_EQ(out.px, reference(src, mask).px);
    // Centres 2 .. 95 fill columns 1 .. 96; centre rows 2 .. 26 fill rows 1 .. 27.
    for (int y = 0; y < 31; ++y) {
        for (int x : {0, 97, 98, 99}) EXPECT_EQ(out.at(x, y), 0) << x << "," << y;
    }
    for (int x = 0; x < 100; ++x) {
        for (int y : {0, 28, 29, 30}) EXPECT_EQ(out.at(x, y), 0) << x << "," << y;
    }
    int nonZero = 0;
    for (int x = 1; x <= 96; ++x) nonZero += out.at(x, 27) != 0;
    EXPECT_GT(nonZero, 48) << "the last block row reaches row 27";
}

TEST(MaskedEntropy, NarrowOrLowPlanesHaveNoBlock) {
    for (auto [w, h] : {std::pair{4, 30}, std::pair{30, 4}, std::pair{1, 1}, std::pair{3, 9}}) {
        const Plane src = filter_test::randomPlane(w, h, 3, 40);
        const Plane mask(w, h);
        EXPECT_EQ(run(src, mask, 0).px, std::vector<uint8_t>(src.px.size(), 0));
        EXPECT_EQ(run(src, mask, 1).px, std::vector<uint8_t>(src.px.size(), 0));
    }
    const Plane src = filter_test::randomPlane(5, 5, 4, 40), mask(5, 5);
    EXPECT_EQ(run(src, mask, 0).px, reference(src, mask).px) << "smallest plane with a block";
}

TEST(MaskedEntropy, MatchesTheReferenceSerialAndParallel) {
    // Heights around the band limit 3 * floor(H / 6) + 2, textures of
    // several contrasts, masks of several densities.
    const std::pair<int, int> sizes[] = {{5, 5},   {6, 6},   {7, 7},  {11, 11}, {12, 12},
                                         {13, 13}, {17, 19}, {8, 40}, {64, 23}, {97, 61}};
    unsigned seed = 100;
    for (auto [w, h] : sizes) {
        for (int contrast : {12, 40, 255}) {
            SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h) + " contrast " +
                         std::to_string(contrast));
            const Plane src = filter_test::randomPlane(w, h, seed++, contrast);
            const Plane mask = filter_test::randomMask(w, h, seed++, contrast == 40 ? 60 : 10);
            const Plane want = reference(src, mask);
            EXPECT_EQ(run(src, mask, 0).px, want.px);
            for (int team : filter_test::kTeamSizes) {
                TeamSize ts(team);
                EXPECT_EQ(run(src, mask, 1).px, want.px) << "team " << team;
            }
        }
    }
}

TEST(MaskedEntropy, QuarterPagePlaneSerialEqualsParallel) {
    const Plane src = filter_test::randomPlane(620, 877, 11, 50);
    const Plane mask = filter_test::randomMask(620, 877, 12, 5);
    const Plane serial = run(src, mask, 0);
    for (int team : filter_test::kTeamSizes) {
        TeamSize ts(team);
        EXPECT_EQ(run(src, mask, 1).px, serial.px) << "team " << team;
    }
}

TEST(MaskedEntropy, BandWorkerKeepsToItsRowsAndThePlane) {
    const Plane src = filter_test::randomPlane(20, 20, 21, 30), mask(20, 20);
    Plane s(src), m(mask);
    Plane all(20, 20), part(20, 20);
    EXPECT_EQ(maskedEntropy2(2, 18, &s.img, &m.img, &all.img), 0);
    // Centres 5 and 8 only: rows 4 .. 9.
    EXPECT_EQ(maskedEntropy2(5, 9, &s.img, &m.img, &part.img), 0);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 20; ++x)
            EXPECT_EQ(part.at(x, y), (y >= 4 && y <= 9) ? all.at(x, y) : 0) << x << "," << y;
    // A lattice from row 0 or past the bottom would leave the plane: skipped.
    Plane wide(20, 20);
    EXPECT_EQ(maskedEntropy2(-3, 40, &s.img, &m.img, &wide.img), 0);
    for (int x = 0; x < 20; ++x) EXPECT_EQ(wide.at(x, 0), 0);
}

TEST(MaskedEntropy, RefusesMismatchedPlanes) {
    Plane src(10, 10, 5), mask(10, 10), small(9, 10, 0xCC);
    EXPECT_EQ(maskedEntropy(&src.img, &mask.img, &small.img, 0), 2);
    EXPECT_EQ(small.px, std::vector<uint8_t>(90, 0xCC));
    EXPECT_EQ(maskedEntropy(&src.img, &small.img, &mask.img, 1), 2);
    EXPECT_EQ(maskedEntropy(nullptr, &mask.img, &mask.img, 0), 2);
}
