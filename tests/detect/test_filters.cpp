// The detection filters against plain references written from their
// definitions, on random planes of awkward sizes, serial and in parallel
// with teams of 1 to 3; hand-worked values, rounding, and refusals.
#include <cmath>
#include <cstring>
#include <array>
#include <functional>

#include "detect/entropy_table.h"
#include "support.h"

namespace {

using tt::Ints;
using tt::Plane;
using tavrin::detect::kEntropyTerm;

uint8_t* work() { static std::vector<uint8_t> w(TAVRIN_DETECT_WORK_SIZE, 0x33); return w.data(); }

struct Weights {  // exponentials in double stored as float; the kernel a disc of radius 3
    float kernel[49] = {}, range[511] = {};  // range index d + 255
    Weights(double spaceSigma, double rangeSigma) {
        for (int i = 0; i < 49; ++i) {
            const int r2 = (i / 7 - 3) * (i / 7 - 3) + (i % 7 - 3) * (i % 7 - 3);
            kernel[i] = r2 > 9 ? 0.0f : float(std::exp(r2 * (-0.5 / (spaceSigma * spaceSigma))));
        }
        for (int d = -255; d <= 255; ++d) range[d + 255] = d ? float(std::exp(d * d * (-0.5 / (rangeSigma * rangeSigma)))) : 1.0f;
    }
};

Plane smoothReference(const Plane& src, const Plane& mask, const Weights& t) {  // 49 taps, black outside
    Plane out(src);
    for (int y = 0; y < src.h(); ++y)
        for (int x = 0; x < src.w(); ++x) {
            long double num = 0, den = 0;
            for (int k = 0; k < 49 && mask.at(x, y) == 0; ++k) {
                const int xx = x + k % 7 - 3, yy = y + k / 7 - 3;
                const int p = (xx < 0 || yy < 0 || xx >= src.w() || yy >= src.h()) ? 0 : src.at(xx, yy);
                const long double w = (long double)t.kernel[k] * t.range[p - src.at(x, y) + 255];
                num += p * w;
                den += w;
            }
            if (mask.at(x, y) == 0) out.at(x, y) = uint8_t(std::min(std::floor(num / den + 0.5L), 255.0L));
        }
    return out;
}

Plane smooth(const Plane& src, const Plane& mask, double spaceSigma, double rangeSigma, int parallel) {
    Plane s(src), m(mask), d(src.w(), src.h(), 0xA5);
    ST_PARAM_DETECT_PICT p{};
    p.dSpaceSigma = spaceSigma;
    p.dRangeSigma = rangeSigma;
    EXPECT_EQ(smoothFilter(&s.img, &m.img, &d.img, work(), &p, parallel), 0);
    EXPECT_EQ(s.px, src.px) << "source changed";
    return d;
}

// Each of the 121 clamped positions of a block looked up on its own, the
// classes and terms by their formulas: E[i] = round(255 (-q log2 q) / log2 9),
// q = i / 256.
int term(int i) { return i ? int(std::floor(255.0 * (-i / 256.0 * std::log2(i / 256.0)) / std::log2(9.0) + 0.5)) : 0; }
Plane entropyReference(const Plane& src, const Plane& mask) {
    Plane out(src.w(), src.h());
    for (int y = 2; y < src.h() - 2; y += 3)
        for (int x = 2; x < src.w() - 2; x += 3) {
            unsigned hist[10] = {}, strongest = 0, s = 0;
            for (int k = 0; k < 121; ++k) {
                const int yy = std::clamp(y + k / 11 - 5, 0, src.h() - 1), xx = std::clamp(x + k % 11 - 5, 0, src.w() - 1);
                const int d = src.at(xx, yy) - src.at(x, y);
                if (mask.at(xx, yy) == 0) ++hist[(d >= -35 && d <= 35) ? (35 - d) / 8 : 9];
            }
            for (int k = 0; k < 9; ++k) strongest = std::max(strongest, hist[k]);
            for (int k = 0; k < 9; ++k) s += hist[k] = hist[k] * 512 < strongest * 51 ? 0 : hist[k];  // noise
            int v = 0;
            for (int k = 0; k < 9; ++k) v += term(std::min(int((long double)(hist[k] * 256) * (1.0L / std::max(s, 17u))), 255));
            out.fill(x - 1, y - 1, x + 1, y + 1, uint8_t(std::min(v, 255)));
        }
    return out;
}

Plane entropy(const Plane& src, const Plane& mask, int parallel) {
    Plane s(src), m(mask), d(src.w(), src.h(), 0xAB);  // must be cleared first
    EXPECT_EQ(maskedEntropy(&s.img, &m.img, &d.img, parallel), 0);
    return d;
}

Plane morphReference(const Plane& src, bool dilate) {  // OR / AND over 3 x 3, 0 outside
    Plane out(src.w(), src.h());
    for (int y = 0; y < src.h(); ++y)
        for (int x = 0; x < src.w(); ++x) {
            int acc = dilate ? 0 : 0xFF;
            for (int k = 0; k < 9; ++k) {
                const int xx = x + k % 3 - 1, yy = y + k / 3 - 1;
                const int v = (xx < 0 || yy < 0 || xx >= src.w() || yy >= src.h()) ? 0 : src.at(xx, yy);
                acc = dilate ? acc | v : acc & v;
            }
            out.at(x, y) = uint8_t(acc);
        }
    return out;
}

Plane morph(const Plane& src, int mode, int parallel) {
    Plane s(src), d(src.w(), src.h(), 0xEE);  // every byte must be rewritten
    EXPECT_EQ(morphologyTrans(s.img, d.img, mode, parallel), 0);
    return d;
}

TEST(Filters, MatchTheirReferencesSerialAndParallel) {
    // The morphology works on 0/1 masks and on any bytes (bitwise OR / AND).
    using Run = std::function<Plane(const Plane&, const Plane&, int)>;
    using Reference = std::function<Plane(const Plane&, const Plane&)>;
    const std::tuple<const char*, int, Run, Reference> filters[] = {
        {"smoothing", 1, [](auto& s, auto& m, int p) { return smooth(s, m, 1.3, 25.0, p); },
         [](auto& s, auto& m) { return smoothReference(s, m, Weights(1.3, 25.0)); }}, {"entropy", 1, entropy, entropyReference},
        {"dilation", 2, [](auto& s, auto& m, int p) { return morph(s.px[0] % 2 ? s : m, 0, p); },
         [](auto& s, auto& m) { return morphReference(s.px[0] % 2 ? s : m, true); }},
        {"erosion", 2, [](auto& s, auto& m, int p) { return morph(s.px[0] % 2 ? s : m, 1, p); },
         [](auto& s, auto& m) { return morphReference(s.px[0] % 2 ? s : m, false); }},
    };
    uint32_t seed = 1;  // widths around the 8-column words, heights around the band limits
    for (int w : {1, 2, 3, 5, 7, 8, 9, 17, 69})
        for (int h : {1, 2, 3, 4, 5, 6, 7, 12, 13, 40}) {
            const int contrast = std::array{12, 40, 120, 255}[seed % 4], density = std::array{10, 30, 60}[seed % 3];
            const Plane src = tt::noise(w, h, seed, contrast), mask = tt::noise(w, h, seed + 1, 1, density);
            seed += 2;
            for (auto& [name, minHeight, run, reference] : filters) {
                if (h < minHeight) continue;
                SCOPED_TRACE(testing::Message() << name << " " << w << "x" << h << " contrast " << contrast);
                const Plane want = reference(src, mask);
                EXPECT_EQ(run(src, mask, 0).px, want.px);
                for (int team : {1, 2, 3}) {
                    tt::TeamSize ts(team);
                    EXPECT_EQ(run(src, mask, 1).px, want.px) << "team " << team;
                }
            }
        }
}

TEST(SmoothFilter, HandWorkedValuesAndRoundingAtAHalf) {
    // A constant 200 keeps its value inside; at the corner 16 of the 29 disc
    // positions lie outside, black with range weight exp(-200^2 / 20000):
    // 200 * 5.1629 / (5.1629 + 0.1353 * 7.1001) = 168.6.
    const Plane flat(12, 10, 200), none(37, 23), all(37, 23, 1), noise = tt::noise(37, 23, 5);
    const Plane out = smooth(flat, Plane(12, 10), 1.5, 100.0, 0);
    EXPECT_EQ((Ints{out.at(0, 0), out.at(3, 3), out.at(8, 6)}), (Ints{169, 200, 200}));
    EXPECT_EQ(smooth(flat, Plane(12, 10), 1.5, 10.0, 1).px, flat.px) << "range(-200) is 0 in float";
    EXPECT_EQ(smooth(noise, none, 2.0, 0.05, 0).px, noise.px) << "narrow range";
    EXPECT_EQ(smooth(noise, none, 0.0, 10.0, 0).px, noise.px) << "zero sigma: no usable weight";
    EXPECT_EQ(smooth(noise, all, 0.0, 0.0, 1).px, noise.px) << "fully masked";

    // Taps 1 (weight 1), 0 (left, 1) and 0 (three rows up, 2^-61): the mean
    // lies 2^-64 below a half. A double sum loses the 2^-61 and rounds up;
    // the extended sums keep it and round down.
    Weights mean(1, 1);
    std::fill(std::begin(mean.kernel), std::end(mean.kernel), 0.0f);
    std::fill(std::begin(mean.range), std::end(mean.range), 0.0f);
    mean.kernel[24] = mean.kernel[23] = 1.0f;
    mean.kernel[3] = std::ldexp(1.0f, -61);
    mean.range[255] = mean.range[254] = 1.0f;
    Plane b(16, 11), bm(16, 11, 1), bd(16, 11);
    b.at(5, 5) = bd.at(5, 5) = 1;
    bm.at(5, 5) = 0;
    EXPECT_EQ(filter2(0, 11, &b.img, &bm.img, &bd.img, mean.kernel, mean.range, work()), 0);
    EXPECT_EQ(bd.at(5, 5), 0);
}

TEST(SmoothFilter, RefusalsWriteNothing) {
    std::vector<uint8_t> exact(TAVRIN_DETECT_WORK_SIZE, 0x5A);  // the zero row ends on its last byte: 1312 fit
    ST_PARAM_DETECT_PICT p{};
    p.dSpaceSigma = 1.5;
    p.dRangeSigma = 18.0;
    Plane wide = tt::noise(1313, 3, 32), wm(1313, 3), wd(1313, 3, 0xC3), s(8, 8, 10), m(8, 8), dst(8, 8, 0xEE), small(7, 8);
    Weights t(1.5, 18.0);
    EXPECT_EQ((Ints{smoothFilter(&wide.img, &wm.img, &wd.img, exact.data(), &p, 0),
                    filter2(0, 3, &wide.img, &wm.img, &wd.img, t.kernel, t.range, exact.data()),
                    smoothFilter(nullptr, &m.img, &dst.img, work(), &p, 0), smoothFilter(&s.img, &m.img, &dst.img, nullptr, &p, 0),
                    smoothFilter(&s.img, &m.img, &dst.img, work(), nullptr, 0),
                    smoothFilter(&s.img, &small.img, &dst.img, work(), &p, 0),
                    smoothFilter(&s.img, &m.img, &s.img, work(), &p, 0)}),
              (Ints{2, 2, 2, 2, 2, 2, 2}));  // wider than the zero row, missing, of other sizes, in place
    EXPECT_EQ(std::count(exact.begin(), exact.end(), 0x5A), long(exact.size()));
    EXPECT_TRUE(wd.px == tt::Bytes(wd.px.size(), 0xC3) && dst.px == tt::Bytes(64, 0xEE) && s.px == tt::Bytes(64, 10));
}

// One block at (8, 8) of a 17 x 17 plane, everything masked but `counts`
// neighbours of each class: class k a step of 32 - 8k from the centre 128,
// class 9 a step of 100.
int block(const std::vector<std::pair<int, int>>& counts, bool centreOpen = false) {
    Plane src(17, 17, 128), mask(17, 17, 1);
    int next = 0;
    for (auto [cls, count] : counts)
        for (int i = 0; i < count; ++i, ++next) {
            const int x = 3 + (next + (next >= 60)) % 11, y = 3 + (next + (next >= 60)) / 11;  // skips the centre
            src.at(x, y) = uint8_t(128 + (cls == 9 ? 100 : 32 - 8 * cls));
            mask.at(x, y) = 0;
        }
    mask.at(8, 8) = !centreOpen;
    return entropy(src, mask, 0).at(8, 8);
}

TEST(MaskedEntropy, TermTableHandWorkedBlocksAndRefusals) {
    for (int i = 0; i < 256; ++i) EXPECT_EQ(kEntropyTerm[i], term(i)) << i;
    EXPECT_EQ((Ints{kEntropyTerm[1], kEntropyTerm[28], kEntropyTerm[64], kEntropyTerm[96], kEntropyTerm[255]}),
              (Ints{3, 28, 40, 43, 0}));
    const std::pair<std::vector<std::pair<int, int>>, int> blocks[] = {
        {{}, 0},                                  // nothing unmasked
        {{{9, 120}}, 0},                          // every step beyond 35
        {{{3, 60}, {4, 60}}, 80},                 // 2 E[128]
        {{{0, 13}, {1, 13}, {2, 13}, {3, 13}, {4, 13}, {5, 13}, {6, 13}, {7, 13}, {8, 13}}, 252},  // 9 E[28]
        {{{6, 8}}, 41},                           // 8 pixels measured as 17: E[120]
        {{{2, 16}}, kEntropyTerm[240]},           // 16 still measured as 17
        {{{2, 17}}, 0},                           // 17 in one class: index 256 held at 255
        {{{4, 100}, {5, 9}}, 0},                  // 9 * 512 < 100 * 51: noise, cut
        {{{4, 100}, {5, 10}}, 10 + 25},           // 10 kept: E[232] + E[23]
    };
    for (auto& [counts, value] : blocks) EXPECT_EQ(block(counts), value) << counts.size() << " classes";
    EXPECT_EQ(block({{7, 8}}, true), kEntropyTerm[8 * 256 / 17] + kEntropyTerm[256 / 17]) << "an open centre counts itself";

    Plane s10(10, 10, 5), m10(10, 10), small(9, 10, 0xCC);
    EXPECT_EQ((Ints{maskedEntropy(&s10.img, &m10.img, &small.img, 0), maskedEntropy(&s10.img, &small.img, &m10.img, 1),
                    maskedEntropy(nullptr, &m10.img, &m10.img, 0)}), (Ints{2, 2, 2}));
    EXPECT_EQ(small.px, tt::Bytes(90, 0xCC));
}

TEST(Morphology, RefusalsAndSoloPoints) {
    Plane one(5, 1, 1), dst1(5, 1, 9), src(4, 4, 1), other(5, 4, 9);
    EXPECT_EQ((Ints{morphologyTrans(one.img, dst1.img, 0, 0), morphologyTrans(src.img, other.img, 1, 1),
                    morphologyTrans(src.img, src.img, 1, 0), morphologyTrans(ImgTavrin{}, src.img, 0, 0)}), (Ints{2, 2, 2, 2}));
    EXPECT_TRUE(dst1.px == tt::Bytes(5, 9) && other.px == tt::Bytes(20, 9) && src.px == tt::Bytes(16, 1));

    // Lone ones inside the plane go; other values stay but count as neighbours.
    uint32_t seed = 500;
    for (int w : {1, 2, 3, 9, 10, 17, 40})
        for (int h : {2, 3, 5, 20}) {
            Plane p = tt::noise(w, h, seed++, 1, 4);
            p.at(w / 2, h / 2) = 255;
            p.at(w - 1, h - 1) = 200;
            Plane want(p);
            for (int y = 1; y < h - 1; ++y)
                for (int x = 1; x < w - 1; ++x) {
                    int around = 0;
                    for (int k = 0; k < 9; ++k) around |= k == 4 ? 0 : p.at(x + k % 3 - 1, y + k / 3 - 1);
                    if (p.at(x, y) == 1 && around == 0) want.at(x, y) = 0;
                }
            EXPECT_EQ(remove_SoloPoint(p.img), 0);
            EXPECT_EQ(p.px, want.px) << w << "x" << h;
        }
}

}  // namespace
