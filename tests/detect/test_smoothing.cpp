// Masked bilateral smoothing: hand-worked borders of a constant image, the
// identity and step-edge cases, a plain 49-tap reference on random planes of
// every small size, serial against parallel, and the zero-row limit.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "detect/filter_support.h"

using filter_test::Plane;
using filter_test::TeamSize;

namespace {

std::vector<uint8_t>& workBuffer() {
    static std::vector<uint8_t> work(TAVRIN_DETECT_WORK_SIZE, 0x33);
    return work;
}

ST_PARAM_DETECT_PICT params(double spaceSigma, double rangeSigma) {
    ST_PARAM_DETECT_PICT p{};
    p.dSpaceSigma = spaceSigma;
    p.dRangeSigma = rangeSigma;
    return p;
}

struct Tables {
    float kernel[49];
    float range[511];  // index d + 255
};

// The weight tables by their definition: exp in double, stored as float.
Tables tablesFor(double spaceSigma, double rangeSigma) {
    Tables t{};
    const double a = -0.5 / (spaceSigma * spaceSigma);
    const double b = -0.5 / (rangeSigma * rangeSigma);
    for (int dy = -3; dy <= 3; ++dy) {
        for (int dx = -3; dx <= 3; ++dx) {
            const int r2 = dx * dx + dy * dy;
            t.kernel[(dy + 3) * 7 + dx + 3] = r2 > 9 ? 0.0f : static_cast<float>(std::exp(r2 * a));
        }
    }
    for (int d = -255; d <= 255; ++d)
        t.range[d + 255] = d == 0 ? 1.0f : static_cast<float>(std::exp(d * d * b));
    return t;
}

// Plain reference: all 49 taps in order, positions outside the image are 0.
Plane reference(const Plane& src, const Plane& mask, const Tables& t) {
    Plane out(src);
    for (int y = 0; y < src.h(); ++y) {
        for (int x = 0; x < src.w(); ++x) {
            if (mask.at(x, y) != 0) continue;
            const int c = src.at(x, y);
            long double num = 0, den = 0;
            for (int dy = -3; dy <= 3; ++dy) {
                for (int dx = -3; dx <= 3; ++dx) {
                    const int xx = x + dx, yy = y + dy;
                    const int p =
                        (xx < 0 || yy < 0 || xx >= src.w() || yy >= src.h()) ? 0 : src.at(xx, yy);
                    const long double k = t.kernel[(dy + 3) * 7 + dx + 3];
                    const long double w = k * t.range[p - c + 255];
                    num += p * w;
                    den += w;
                }
            }
            out.at(x, y) = static_cast<uint8_t>(std::min(std::floor(num / den + 0.5L), 255.0L));
        }
    }
    return out;
}

Plane run(const Plane& src, const Plane& mask, double spaceSigma, double rangeSigma,
          int parallel) {
    Plane s(src), m(mask);
    Plane d(src.w(), src.h(), 0xA5);
    ST_PARAM_DETECT_PICT p = params(spaceSigma, rangeSigma);
    EXPECT_EQ(smoothFilter(&s.img, &m.img, &d.img, workBuffer().data(), &p, parallel), 0);
    EXPECT_EQ(s.px, src.px) << "source changed";
    return d;
}

}  // namespace

TEST(SmoothFilter, ConstantImageIsLoweredOnlyNearTheBorder) {
    const int c = 200, w = 12, h = 10;
    const double spaceSigma = 1.5, rangeSigma = 100.0;
    const Plane src(w, h, c), open(w, h);
    const Plane out = run(src, open, spaceSigma, rangeSigma, 0);

    // Inside weights have range 1; each outside position is a black pixel
    // with weight kernel * range(-c).
    const Tables t = tablesFor(spaceSigma, rangeSigma);
    const double blackWeight = t.range[255 - c];
    ASSERT_GT(blackWeight, 0.1);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            double inside = 0, outside = 0;
            for (int dy = -3; dy <= 3; ++dy)
                for (int dx = -3; dx <= 3; ++dx) {
                    const double k = t.kernel[(dy + 3) * 7 + dx + 3];
                    const bool in = x + dx >= 0 && x + dx < w && y + dy >= 0 && y + dy < h;
                    (in ? inside : outside) += k;
                }
            const double q = c * inside / (inside + blackWeight * outside);
            ASSERT_GT(std::fabs(q - std::floor(q) - 0.5), 1e-6) << "too close to a half";
            const int want = static_cast<int>(std::floor(q + 0.5));
            EXPECT_EQ(out.at(x, y), want) << x << "," << y;
            const bool nearBorder = x < 3 || y < 3 || x >= w - 3 || y >= h - 3;
            if (nearBorder)
                EXPECT_LE(want, c) << x << "," << y;
            else
                EXPECT_EQ(want, c);
        }
    }
    EXPECT_EQ(out.at(0, 0), 169) << "corner: 200 * 5.1629 / (5.1629 + 0.1353 * 7.1001) = 168.6";

    // With range(-c) == 0 in single precision the border keeps c as well.
    EXPECT_EQ(run(src, open, spaceSigma, 10.0, 1).px, src.px);
}

TEST(SmoothFilter, NarrowRangeSigmaKeepsEveryPixel) {
    const Plane src = filter_test::randomPlane(37, 23, 5);
    const Plane open(37, 23);
    EXPECT_EQ(run(src, open, 2.0, 0.05, 0).px, src.px);
    EXPECT_EQ(run(src, open, 0.7, 0.05, 1).px, src.px);
    // A zero sigma leaves no usable weight: every pixel keeps its value.
    EXPECT_EQ(run(src, open, 0.0, 10.0, 0).px, src.px);
}

TEST(SmoothFilter, StepEdgeStaysSharp) {
    Plane src(30, 12);
    for (int y = 0; y < 12; ++y)
        for (int x = 15; x < 30; ++x) src.at(x, y) = 200;
    const Plane open(30, 12);
    EXPECT_EQ(run(src, open, 2.0, 10.0, 0).px, src.px);
}

TEST(SmoothFilter, FullyMaskedImageIsCopied) {
    const Plane src = filter_test::randomPlane(19, 8, 9);
    const Plane all(19, 8, 1);
    EXPECT_EQ(run(src, all, 1.0, 20.0, 0).px, src.px);
    // Even with weights that could not be used on a pixel.
    EXPECT_EQ(run(src, all, 0.0, 0.0, 1).px, src.px);
}

TEST(SmoothFilter, MatchesTheReferenceOnSmallAndOddSizes) {
    // Widths under 6 and heights under 5 included: the black surround on
    // every side, without reading outside the image.
    const int widths[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 40};
    const int heights[] = {1, 2, 3, 4, 5, 6, 9, 20};
    const Tables t = tablesFor(1.3, 25.0);
    unsigned seed = 1000;
    for (int w : widths) {
        for (int h : heights) {
            SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
            const Plane src = filter_test::randomPlane(w, h, seed++, 120);
            const Plane mask = filter_test::randomMask(w, h, seed++, 30);
            const Plane want = reference(src, mask, t);
            EXPECT_EQ(run(src, mask, 1.3, 25.0, 0).px, want.px);
            for (int team : filter_test::kTeamSizes) {
                TeamSize ts(team);
                EXPECT_EQ(run(src, mask, 1.3, 25.0, 1).px, want.px) << "team " << team;
            }
        }
    }
}

TEST(SmoothFilter, QuarterPagePlaneSerialEqualsParallelAndReference) {
    const Plane src = filter_test::randomPlane(620, 877, 77, 90);
    const Plane mask = filter_test::randomMask(620, 877, 78, 10);
    const Plane serial = run(src, mask, 1.5, 18.0, 0);
    EXPECT_EQ(serial.px, reference(src, mask, tablesFor(1.5, 18.0)).px);
    for (int team : filter_test::kTeamSizes) {
        TeamSize ts(team);
        EXPECT_EQ(run(src, mask, 1.5, 18.0, 1).px, serial.px) << "team " << team;
    }
}

TEST(SmoothFilter, ZeroRowLimitsTheWidth) {
    // An exact-size work buffer: the zero row of a 1312-wide image ends on
    // its last byte.
    std::vector<uint8_t> work(TAVRIN_DETECT_WORK_SIZE, 0x5A);
    const Plane src = filter_test::randomPlane(1312, 4, 31, 60);
    const Plane open(1312, 4);
    Plane s(src), m(open), d(1312, 4);
    ST_PARAM_DETECT_PICT p = params(1.5, 18.0);
    EXPECT_EQ(smoothFilter(&s.img, &m.img, &d.img, work.data(), &p, 1), 0);
    EXPECT_EQ(d.px, reference(src, open, tablesFor(1.5, 18.0)).px);
    for (size_t i = TAVRIN_DETECT_ZEROROW_OFFSET; i < work.size(); ++i) ASSERT_EQ(work[i], 0);
    for (size_t i = 0; i < TAVRIN_DETECT_ZEROROW_OFFSET; i += 4096) ASSERT_EQ(work[i], 0x5A);

    // One column more: refused before anything is written.
    std::fill(work.begin(), work.end(), 0x5A);
    const Plane wide = filter_test::randomPlane(1313, 3, 32);
    Plane ws(wide), wm(1313, 3), wd(1313, 3, 0xC3);
    EXPECT_EQ(smoothFilter(&ws.img, &wm.img, &wd.img, work.data(), &p, 0), 2);
    EXPECT_EQ(smoothFilter(&ws.img, &wm.img, &wd.img, work.data(), &p, 1), 2);
    EXPECT_EQ(wd.px, std::vector<uint8_t>(wd.px.size(), 0xC3));
    for (size_t i = TAVRIN_DETECT_ZEROROW_OFFSET; i < work.size(); ++i) ASSERT_EQ(work[i], 0x5A);
    float kernel[49] = {1.0f}, range[511] = {};
    EXPECT_EQ(filter2(0, 3, &ws.img, &wm.img, &wd.img, kernel, range, work.data()), 2);
    EXPECT_EQ(wd.px, std::vector<uint8_t>(wd.px.size(), 0xC3));
}

TEST(SmoothFilter, RefusesMissingOrMismatchedArguments) {
    Plane src(8, 8, 10), mask(8, 8), dst(8, 8, 0xEE), small(7, 8);
    ST_PARAM_DETECT_PICT p = params(1.0, 10.0);
    uint8_t* work = workBuffer().data();
    EXPECT_EQ(smoothFilter(nullptr, &mask.img, &dst.img, work, &p, 0), 2);
    EXPECT_EQ(smoothFilter(&src.img, &mask.img, &dst.img, nullptr, &p, 0), 2);
    EXPECT_EQ(smoothFilter(&src.img, &mask.img, &dst.img, work, nullptr, 0), 2);
    EXPECT_EQ(smoothFilter(&src.img, &small.img, &dst.img, work, &p, 0), 2);
    EXPECT_EQ(smoothFilter(&src.img, &mask.img, &src.img, work, &p, 0), 2) << "in place";
    EXPECT_EQ(dst.px, std::vector<uint8_t>(64, 0xEE));
    EXPECT_EQ(src.px, std::vector<uint8_t>(64, 10));
}

TEST(Filter2, BandsWriteOnlyTheirRowsAndClearTheZeroRow) {
    const Tables t = tablesFor(1.2, 30.0);
    const Plane src = filter_test::randomPlane(16, 12, 41, 100), open(16, 12);
    const Plane want = reference(src, open, t);
    Plane s(src), m(open), d(src);
    Tables tt = t;
    // A dirty zero row is cleared before use.
    std::memset(workBuffer().data() + TAVRIN_DETECT_ZEROROW_OFFSET, 0xFF, 16);
    EXPECT_EQ(filter2(5, 9, &s.img, &m.img, &d.img, tt.kernel, tt.range, workBuffer().data()), 0);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 16; ++x)
            EXPECT_EQ(d.at(x, y), (y >= 5 && y < 9) ? want.at(x, y) : src.at(x, y))
                << x << "," << y;
    // Rows outside the image are ignored.
    EXPECT_EQ(filter2(-4, 40, &s.img, &m.img, &d.img, tt.kernel, tt.range, workBuffer().data()), 0);
    EXPECT_EQ(d.px, want.px);
}

TEST(Filter2, KernelEntriesOutsideTheDiscAreHonoured) {
    // A caller's kernel that is not zero in the corners takes all 49 taps.
    Tables t = tablesFor(2.0, 40.0);
    for (int i : {0, 6, 42, 48, 1, 7}) t.kernel[i] = 0.25f;
    const Plane src = filter_test::randomPlane(11, 9, 51, 200);
    const Plane mask = filter_test::randomMask(11, 9, 52, 20);
    const Plane want = reference(src, mask, t);
    Plane s(src), m(mask), d(src);
    EXPECT_EQ(filter2(0, 9, &s.img, &m.img, &d.img, t.kernel, t.range, workBuffer().data()), 0);
    EXPECT_EQ(d.px, want.px);
}

TEST(Filter2, MeansExactlyHalfwayRoundUp) {
    // Kernel: the centre and its right neighbour, range weights all 1: every
    // result is (c + right) / 2, where an odd sum lies exactly on a half.
    float kernel[49] = {};
    kernel[3 * 7 + 3] = 1.0f;
    kernel[3 * 7 + 4] = 1.0f;
    float range[511];
    for (float& r : range) r = 1.0f;
    const int w = 23, h = 9;
    const Plane src = filter_test::randomPlane(w, h, 61, 255), open(w, h);
    Plane s(src), m(open), d(src);
    EXPECT_EQ(filter2(0, h, &s.img, &m.img, &d.img, kernel, range, workBuffer().data()), 0);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const int right = x + 1 < w ? src.at(x + 1, y) : 0;  // black surround
            EXPECT_EQ(d.at(x, y), (src.at(x, y) + right + 1) / 2) << x << "," << y;
        }
    }
}

TEST(Filter2, MeansJustBelowAHalfRoundDownInExtendedPrecision) {
    // One open pixel of value 1 in the middle of a wide plane (the vectorised
    // path): taps centre (1, weight 1), left (0, weight 1) and three rows up
    // (0, weight 2^-61). The mean 1 / (2 + 2^-61) lies 2^-64 below 0.5: a
    // double sum loses the 2^-61 and would round to 1, the extended sums keep it.
    float kernel[49] = {};
    kernel[3 * 7 + 3] = 1.0f;
    kernel[3 * 7 + 2] = 1.0f;
    kernel[0 * 7 + 3] = std::ldexp(1.0f, -61);
    float range[511] = {};
    range[255] = 1.0f;      // d = 0
    range[255 - 1] = 1.0f;  // d = -1
    const int w = 16, h = 11;
    Plane s(w, h), m(w, h, 1), d(w, h);
    s.at(5, 5) = 1;
    m.at(5, 5) = 0;
    d.at(5, 5) = 1;
    EXPECT_EQ(filter2(0, h, &s.img, &m.img, &d.img, kernel, range, workBuffer().data()), 0);
    EXPECT_EQ(d.at(5, 5), 0);
}
