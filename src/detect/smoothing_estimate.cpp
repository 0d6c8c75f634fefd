// Single-precision estimates of the smoothing filter's means, eight pixels
// at once. With Gaussian tables and AVX2 + FMA, each weight exp(a s + b d^2)
// is computed in registers (no table lookups); otherwise the weights are
// looked up in the caller's tables.
//
// Why an estimate rounds like the exact mean m. Let u = 2^-24, w the exact
// weight k * r of a tap and w' the estimate's. Every mean lies in [0, 255]
// and the centre weight is exactly 1 in both, so both denominators are at
// least 1, and
//   m(w') - m(w) = sum (w' - w)(p - m(w)) / sum w'.
// Table weights: w' = float(k * r), within u of w. Computed weights
// w = e^t, t = a s + b d^2: the base-2 exponent t' = fma(d^2, float(b log2 e),
// float(a s log2 e)) is within 2u|t| log2 e of t log2 e, and 2^t' is
// evaluated within 3.6u (checked against exp2 in double for every float in
// [-124, 0]; exponents below that weigh under 5e-38 either way), so w' is
// within (2|t| + 5.6)u of w relatively; since e^t |t| <= 1/e, the 28 outer
// taps shift the mean by at most 255 * (28 * 2u / e + 5.6u), under 4.1e-4.
// The float sums then add one rounding per tap (at most 29 in a row), so
// numerator and denominator are each within 30u, and the mean in double
// within 61u * 255.5 < 9.3e-4. In all, the estimate lies within 1.4e-3 of
// m, and the long double sums of the exact computation within 1e-15. Where mean + 0.5 is farther than kMargin (1/256) from an integer,
// both therefore round to the same value; the other pixels, under 1 % of
// them, are left to the exact computation.
#include "detect/smoothing_estimate.h"

#include <cmath>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define TAVRIN_HAVE_X86 1
#endif

namespace tavrin::detect {

namespace {

constexpr double kMargin = 1.0 / 256;

inline bool allMasked(const uint8_t* mask, int lanes) {
    for (int i = 0; i < lanes; ++i)
        if (mask[i] == 0) return false;
    return true;
}

// Rounded mean, or -1 when it is too close to a half to be decided.
inline int settle(double num, double den) {
    const double t = num / den + 0.5;
    const double whole = std::floor(t);
    const double frac = t - whole;
    if (!(frac > kMargin && frac < 1.0 - kMargin)) return -1;
    return whole <= 0.0 ? 0 : (whole >= 255.0 ? 255 : static_cast<int>(whole));
}

// Stores the decided pixels of a group and lists the undecided ones.
inline int store(const int (&value)[kEstimateLanes], int x, int lanes, const uint8_t* maskRow,
                 uint8_t* out, uint16_t* undecided, int count) {
    for (int i = 0; i < lanes; ++i) {
        if (maskRow[x + i] != 0) continue;
        if (value[i] >= 0)
            out[x + i] = static_cast<uint8_t>(value[i]);
        else
            undecided[count++] = static_cast<uint16_t>(x + i);
    }
    return count;
}

}  // namespace

int estimateRowLookup(const uint8_t* const* rows, int width, const uint8_t* maskRow, uint8_t* out,
                      const EstimateTables& tables, uint16_t* undecided) {
    const DiscTaps& taps = tables.taps;
    int count = 0;
    for (int x = 0; x < width; x += kEstimateLanes) {
        const int lanes = width - x < kEstimateLanes ? width - x : kEstimateLanes;
        if (allMasked(maskRow + x, lanes)) continue;
        const uint8_t* const centre = rows[kSmoothRadius] + kSmoothRadius + x;
        float num[kEstimateLanes], den[kEstimateLanes];
        for (int i = 0; i < kEstimateLanes; ++i) num[i] = centre[i], den[i] = 1.0f;
        for (int t = 0; t < kOuterTaps; ++t) {
            const uint8_t* const src = rows[taps.row[t]] + x + taps.column[t];
            for (int i = 0; i < kEstimateLanes; ++i) {
                const int p = src[i];
                const float w = taps.weight[t] * tables.range[255 - centre[i] + p];
                num[i] += static_cast<float>(p) * w;
                den[i] += w;
            }
        }
        int value[kEstimateLanes];
        for (int i = 0; i < kEstimateLanes; ++i) value[i] = settle(num[i], den[i]);
        count = store(value, x, lanes, maskRow, out, undecided, count);
    }
    return count;
}

namespace {

#ifdef TAVRIN_HAVE_X86
#define TAVRIN_AVX2 __attribute__((target("avx2,fma")))

// 2^t for t <= 0 (t below -124 counts as -124): 2^n with n = round(t) goes
// into the exponent bits, 2^(t - n) comes from a degree-5 polynomial (its
// coefficients fitted for the least largest relative error on [-1/2, 1/2]).
TAVRIN_AVX2 inline __m256 exp2NonPositive(__m256 t) {
    t = _mm256_max_ps(t, _mm256_set1_ps(-124.0f));
    const __m256 n = _mm256_round_ps(t, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    const __m256 f = _mm256_sub_ps(t, n);  // exact
    __m256 p = _mm256_set1_ps(1.3276471e-3f);
    p = _mm256_fmadd_ps(p, f, _mm256_set1_ps(9.6755419e-3f));
    p = _mm256_fmadd_ps(p, f, _mm256_set1_ps(5.5507131e-2f));
    p = _mm256_fmadd_ps(p, f, _mm256_set1_ps(2.4022120e-1f));
    p = _mm256_fmadd_ps(p, f, _mm256_set1_ps(6.9314694e-1f));
    p = _mm256_fmadd_ps(p, f, _mm256_set1_ps(1.0000001f));
    const __m256i scale = _mm256_slli_epi32(_mm256_cvtps_epi32(n), 23);
    return _mm256_castsi256_ps(_mm256_add_epi32(_mm256_castps_si256(p), scale));
}

// Four means rounded at once; lanes too close to a half get -1.
TAVRIN_AVX2 inline void settleFour(__m128 num, __m128 den, int* value) {
    const __m256d t = _mm256_add_pd(_mm256_div_pd(_mm256_cvtps_pd(num), _mm256_cvtps_pd(den)),
                                    _mm256_set1_pd(0.5));
    const __m256d whole = _mm256_floor_pd(t);
    const __m256d frac = _mm256_sub_pd(t, whole);
    const __m256d clear =
        _mm256_and_pd(_mm256_cmp_pd(frac, _mm256_set1_pd(kMargin), _CMP_GT_OQ),
                      _mm256_cmp_pd(frac, _mm256_set1_pd(1.0 - kMargin), _CMP_LT_OQ));
    const __m256d clamped =
        _mm256_min_pd(_mm256_max_pd(whole, _mm256_setzero_pd()), _mm256_set1_pd(255.0));
    const __m256d chosen = _mm256_blendv_pd(_mm256_set1_pd(-1.0), clamped, clear);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(value), _mm256_cvtpd_epi32(chosen));
}

TAVRIN_AVX2 int estimateRowGaussian(const float* const* rows, int width, const uint8_t* maskRow,
                                    uint8_t* out, const EstimateTables& tables,
                                    uint16_t* undecided) {
    const float* tap[kOuterTaps];  // the tap's pixel of column 0
    for (int t = 0; t < kOuterTaps; ++t) tap[t] = rows[tables.taps.row[t]] + tables.taps.column[t];
    const __m256 b = _mm256_set1_ps(tables.rangeExponent2);
    int count = 0;
    for (int x = 0; x < width; x += kEstimateLanes) {
        const int lanes = width - x < kEstimateLanes ? width - x : kEstimateLanes;
        if (allMasked(maskRow + x, lanes)) continue;
        const __m256 c = _mm256_loadu_ps(rows[kSmoothRadius] + kSmoothRadius + x);
        // Two chains of sums (even and odd taps) so that the adds need not
        // wait on each other; the centre starts them with weight 1.
        __m256 num0 = c, num1 = _mm256_setzero_ps();
        __m256 den0 = _mm256_set1_ps(1.0f), den1 = _mm256_setzero_ps();
        auto add = [&](int t, __m256& num, __m256& den) TAVRIN_AVX2 {
            const __m256 p = _mm256_loadu_ps(tap[t] + x);
            const __m256 d = _mm256_sub_ps(p, c);
            const __m256 w = exp2NonPositive(
                _mm256_fmadd_ps(_mm256_mul_ps(d, d), b, _mm256_set1_ps(tables.taps.exponent2[t])));
            num = _mm256_fmadd_ps(p, w, num);
            den = _mm256_add_ps(den, w);
        };
        for (int t = 0; t < kOuterTaps; t += 2) {
            add(t, num0, den0);
            add(t + 1, num1, den1);
        }
        const __m256 n = _mm256_add_ps(num0, num1);
        const __m256 d = _mm256_add_ps(den0, den1);
        int value[kEstimateLanes];
        settleFour(_mm256_castps256_ps128(n), _mm256_castps256_ps128(d), value);
        settleFour(_mm256_extractf128_ps(n, 1), _mm256_extractf128_ps(d, 1), value + 4);
        count = store(value, x, lanes, maskRow, out, undecided, count);
    }
    return count;
}
#endif

}  // namespace

GaussianRowFn gaussianRowForThisCpu() {
#ifdef TAVRIN_HAVE_X86
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return estimateRowGaussian;
#endif
    return nullptr;
}

}  // namespace tavrin::detect
