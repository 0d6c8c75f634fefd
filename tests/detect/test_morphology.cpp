// Binary 3x3 morphology: hand-worked planes, a plain 3x3 reference on random
// planes of awkward sizes, serial against parallel, and refused calls.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "detect/filter_support.h"

using filter_test::Plane;
using filter_test::TeamSize;

namespace {

constexpr int kDilate = 0;
constexpr int kErode = 1;

// Plain definition: OR / AND over the 3x3 square, positions outside the
// plane count as 0.
Plane reference(const Plane& src, int mode) {
    Plane out(src.w(), src.h());
    for (int y = 0; y < src.h(); ++y) {
        for (int x = 0; x < src.w(); ++x) {
            int acc = mode == kDilate ? 0 : 0xFF;
            for (int dy = -1; dy <= 1; ++dy) {
                for (int dx = -1; dx <= 1; ++dx) {
                    const int xx = x + dx, yy = y + dy;
                    const int v = (xx < 0 || yy < 0 || xx >= src.w() || yy >= src.h())
                                      ? 0
                                      : src.at(xx, yy);
                    acc = mode == kDilate ? (acc | v) : (acc & v);
                }
            }
            out.at(x, y) = static_cast<uint8_t>(acc);
        }
    }
    return out;
}

Plane run(const Plane& src, int mode, int parallel) {
    Plane s(src);
    Plane d(src.w(), src.h(), 0xEE);  // every byte must be rewritten
    EXPECT_EQ(morphologyTrans(s.img, d.img, mode, parallel), 0);
    EXPECT_EQ(s.px, src.px) << "source changed";
    return d;
}

Plane fromRows(const std::vector<std::string>& rows) {
    Plane p(static_cast<int>(rows[0].size()), static_cast<int>(rows.size()));
    for (int y = 0; y < p.h(); ++y)
        for (int x = 0; x < p.w(); ++x) p.at(x, y) = rows[y][x] == '#' ? 1 : 0;
    return p;
}

std::vector<std::string> toRows(const Plane& p) {
    std::vector<std::string> rows;
    for (int y = 0; y < p.h(); ++y) {
        std::string r;
        for (int x = 0; x < p.w(); ++x) r += p.at(x, y) == 1 ? '#' : (p.at(x, y) ? '?' : '.');
        rows.push_back(r);
    }
    return rows;
}

}  // namespace

TEST(Morphology, MatchesThePlainDefinitionOnRandomPlanes) {
    // Widths around the 8-column words, heights from the 2-row minimum up.
    const int widths[] = {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 69};
    const int heights[] = {2, 3, 4, 5, 8, 17};
    unsigned seed = 1;
    for (int w : widths) {
        for (int h : heights) {
            // Sparse and dense masks, and arbitrary bytes (bitwise OR/AND).
            for (int kind = 0; kind < 3; ++kind) {
                const Plane src = kind == 2 ? filter_test::randomPlane(w, h, seed++)
                                            : filter_test::randomMask(w, h, seed++,
                                                                      kind == 0 ? 15 : 85);
                for (int mode : {kDilate, kErode}) {
                    SCOPED_TRACE("w=" + std::to_string(w) + " h=" + std::to_string(h) +
                                 " kind=" + std::to_string(kind) + " mode=" + std::to_string(mode));
                    const Plane want = reference(src, mode);
                    EXPECT_EQ(run(src, mode, 0).px, want.px);
                    for (int team : filter_test::kTeamSizes) {
                        TeamSize ts(team);
                        EXPECT_EQ(run(src, mode, 1).px, want.px) << "team " << team;
                    }
                }
            }
        }
    }
}

TEST(Morphology, TwoRowsUseEachOtherAsTheOnlyNeighbour) {
    const Plane src = fromRows({"#......",
                                "....#.."});
    // Both rows: the OR of rows 0 and 1, spread one column sideways.
    EXPECT_EQ(toRows(run(src, kDilate, 0)), (std::vector<std::string>{"##.###.", "##.###."}));
    const Plane edge = fromRows({"#.....",
                                 "......"});
    EXPECT_EQ(toRows(run(edge, kDilate, 1)), (std::vector<std::string>{"##....", "##...."}));
    EXPECT_EQ(toRows(run(fromRows({"######", "######"}), kErode, 0)),
              (std::vector<std::string>{"......", "......"}));
}

TEST(Morphology, ThreeRowsInParallelLeaveTheFirstPieceEmpty) {
    const Plane src = fromRows({".....",
                                "..#..",
                                "....."});
    for (int team : filter_test::kTeamSizes) {
        TeamSize ts(team);
        EXPECT_EQ(toRows(run(src, kDilate, 1)),
                  (std::vector<std::string>{".###.", ".###.", ".###."}));
        EXPECT_EQ(toRows(run(fromRows({"#####", "#####", "#####"}), kErode, 1)),
                  (std::vector<std::string>{".....", ".###.", "....."}));
    }
}

TEST(Morphology, SingleColumnPlane) {
    const Plane src = fromRows({".", "#", ".", ".", ".", "#"});
    EXPECT_EQ(toRows(run(src, kDilate, 0)),
              (std::vector<std::string>{"#", "#", "#", ".", "#", "#"}));
    EXPECT_EQ(toRows(run(fromRows({"#", "#", "#", "#"}), kErode, 1)),
              (std::vector<std::string>{".", ".", ".", "."}));
}

TEST(Morphology, ErosionOfAFullPlaneLeavesAZeroFrame) {
    const Plane src(6, 5, 1);
    EXPECT_EQ(toRows(run(src, kErode, 1)),
              (std::vector<std::string>{"......", ".####.", ".####.", ".####.", "......"}));
}

TEST(Morphology, DilationOfOnePixel) {
    Plane corner(5, 4);
    corner.at(4, 3) = 1;
    EXPECT_EQ(toRows(run(corner, kDilate, 0)),
              (std::vector<std::string>{".....", ".....", "...##", "...##"}));
    Plane middle(5, 5);
    middle.at(2, 2) = 1;
    EXPECT_EQ(toRows(run(middle, kDilate, 1)),
              (std::vector<std::string>{".....", ".###.", ".###.", ".###.", "....."}));
}

TEST(Morphology, BorderRowOperation) {
    uint8_t row[5] = {0, 0, 1, 0, 0};
    uint8_t next[5] = {1, 0, 0, 0, 0};
    uint8_t out[5] = {9, 9, 9, 9, 9};
    EXPECT_EQ(morophology_border(row, next, out, 5, 0), 0);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 5), (std::vector<uint8_t>{1, 1, 1, 1, 0}));
    EXPECT_EQ(morophology_border(row, next, out, 5, 7), 0);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 5), (std::vector<uint8_t>(5, 0)));
}

TEST(Morphology, RowOperationsStayInsideThePlane) {
    // Rows 0 and H - 1 have no row beyond them: asking for them does nothing.
    Plane src(4, 3, 1);
    Plane dst(4, 3, 7);
    EXPECT_EQ(dilation33(0, 3, src.px.data(), dst.px.data(), 4, 3), 0);
    EXPECT_EQ(toRows(dst)[0], "????");
    EXPECT_EQ(toRows(dst)[1], "####");
    EXPECT_EQ(toRows(dst)[2], "????");
    EXPECT_EQ(erosion33(-5, 99, src.px.data(), dst.px.data(), 4, 3), 0);
    EXPECT_EQ(toRows(dst)[1], ".##.");
}

TEST(Morphology, RefusesPlanesItCannotProcess) {
    Plane one(5, 1, 1), dst1(5, 1, 9);
    EXPECT_EQ(morphologyTrans(one.img, dst1.img, kDilate, 0), 2);
    EXPECT_EQ(dst1.px, std::vector<uint8_t>(5, 9));

    Plane src(4, 4, 1), other(5, 4, 9);
    EXPECT_EQ(morphologyTrans(src.img, other.img, kErode, 1), 2);
    EXPECT_EQ(other.px, std::vector<uint8_t>(20, 9));
    EXPECT_EQ(morphologyTrans(src.img, src.img, kErode, 0), 2) << "in place";
    EXPECT_EQ(src.px, std::vector<uint8_t>(16, 1));

    ImgTavrin empty{};
    EXPECT_EQ(morphologyTrans(empty, src.img, kDilate, 0), 2);
}

TEST(RemoveSoloPoint, RemovesOnlyLoneOnesInside) {
    Plane p = fromRows({"#.......",
                        "........",
                        "..#.....",
                        "........",
                        ".....##.",
                        "........",
                        "...#....",
                        "........"});
    p.at(7, 3) = 1;  // lone, but on the border column
    EXPECT_EQ(remove_SoloPoint(p.img), 0);
    EXPECT_EQ(toRows(p), (std::vector<std::string>{"#.......", "........", "........",
                                                   ".......#", ".....##.", "........",
                                                   "........", "........"}));
}

TEST(RemoveSoloPoint, OtherValuesAreNeverRemovedButCountAsNeighbours) {
    Plane p(7, 5);
    p.at(1, 1) = 255;  // lone, not exactly 1
    p.at(4, 2) = 1;
    p.at(5, 3) = 200;  // diagonal neighbour keeps the 1
    EXPECT_EQ(remove_SoloPoint(p.img), 0);
    EXPECT_EQ(p.at(1, 1), 255);
    EXPECT_EQ(p.at(4, 2), 1);
    EXPECT_EQ(p.at(5, 3), 200);
}

TEST(RemoveSoloPoint, SmallPlanesAreUnchanged) {
    for (auto [w, h] : {std::pair{2, 5}, std::pair{5, 2}, std::pair{1, 1}}) {
        Plane p(w, h);
        p.at(w / 2, h / 2) = 1;
        const auto before = p.px;
        EXPECT_EQ(remove_SoloPoint(p.img), 0);
        EXPECT_EQ(p.px, before);
    }
    Plane tiny(3, 3);
    tiny.at(1, 1) = 1;
    EXPECT_EQ(remove_SoloPoint(tiny.img), 0);
    EXPECT_EQ(tiny.at(1, 1), 0);
}

TEST(RemoveSoloPoint, MatchesThePlainDefinitionOnSparsePlanes) {
    unsigned seed = 500;
    for (int w : {3, 9, 10, 17, 40}) {
        for (int h : {3, 5, 20}) {
            Plane p = filter_test::randomMask(w, h, seed++, 4);
            p.at(w / 2, h / 2) = 255;
            Plane want(p);
            for (int y = 1; y < h - 1; ++y) {
                for (int x = 1; x < w - 1; ++x) {
                    int around = 0;
                    for (int dy = -1; dy <= 1; ++dy)
                        for (int dx = -1; dx <= 1; ++dx)
                            if (dx != 0 || dy != 0) around |= p.at(x + dx, y + dy);
                    if (p.at(x, y) == 1 && around == 0) want.at(x, y) = 0;
                }
            }
            EXPECT_EQ(remove_SoloPoint(p.img), 0);
            EXPECT_EQ(p.px, want.px) << w << "x" << h;
        }
    }
}
