// Vector counts of the masked entropy filter. For a block with centre value
// c, a row of its neighbourhood is loaded as 16 bytes from column x - 5, of
// which the first 11 count. A near difference (|p - c| <= 35) has the class
// (c + 35 - p) >> 3; far differences, masked positions and the five extra
// columns get the class 0xFF, which is never counted. Each class is counted
// per byte lane (at most 11 per lane), and the lanes are summed at the end.
// The AVX2 form takes two rows per step.
#include "detect/entropy_count.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace tavrin::detect {

#if defined(__x86_64__)
namespace {

constexpr int kRows = 2 * kEntropyRadius + 1;
#define TAVRIN_AVX2 __attribute__((target("avx2")))

// Constant vectors, read from memory as operands so that the registers stay
// free for the nine counters.
struct alignas(32) Constants {
    uint8_t classes[kClasses][32];  // class j in every lane
    uint8_t far[32], near[32], lowFive[32];
    uint8_t extra[2][32];  // lanes that never count; [1] also a missing lower row
    constexpr Constants() : classes{}, far{}, near{}, lowFive{}, extra{} {
        for (int i = 0; i < 32; ++i) {
            for (int j = 0; j < kClasses; ++j) classes[j][i] = static_cast<uint8_t>(j);
            far[i] = 36;
            near[i] = 35;
            lowFive[i] = 0x1F;
            extra[0][i] = extra[1][i] = (i % 16) >= kRows ? 0xFF : 0;
            if (i >= 16) extra[1][i] = 0xFF;
        }
    }
};
constexpr Constants kConst{};

inline __m128i constant16(const uint8_t (&v)[32]) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(v));
}

__attribute__((always_inline)) inline void countSse2(const uint8_t* const* srcRows, const uint8_t* const* maskRows, int x,
                      uint8_t centre, uint32_t (&hist)[kClasses]) {
    const __m128i c = _mm_set1_epi8(static_cast<char>(centre));
    const __m128i zero = _mm_setzero_si128();
    __m128i count[kClasses];
    for (__m128i& v : count) v = zero;
    for (int k = 0; k < kRows; ++k) {
        const int from = x - kEntropyRadius;
        const __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(srcRows[k] + from));
        const __m128i m = _mm_loadu_si128(reinterpret_cast<const __m128i*>(maskRows[k] + from));
        const __m128i above = _mm_subs_epu8(p, c);  // p - c where p > c, else 0
        const __m128i below = _mm_subs_epu8(c, p);
        const __m128i distance = _mm_min_epu8(_mm_or_si128(above, below), constant16(kConst.far));
        const __m128i none = _mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi8(distance, constant16(kConst.far)),
                         _mm_xor_si128(_mm_cmpeq_epi8(m, zero), _mm_cmpeq_epi8(zero, zero))),
            constant16(kConst.extra[0]));
        const __m128i u = _mm_sub_epi8(_mm_add_epi8(constant16(kConst.near), below), above);
        const __m128i cls =
            _mm_or_si128(_mm_and_si128(_mm_srli_epi16(u, 3), constant16(kConst.lowFive)), none);
        for (int j = 0; j < kClasses; ++j)
            count[j] = _mm_sub_epi8(count[j], _mm_cmpeq_epi8(cls, constant16(kConst.classes[j])));
    }
    for (int j = 0; j < kClasses; ++j) {
        const __m128i sums = _mm_sad_epu8(count[j], zero);
        hist[j] = static_cast<uint32_t>(_mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4));
    }
}

TAVRIN_AVX2 inline __m256i constant32(const uint8_t (&v)[32]) {
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(v));
}

TAVRIN_AVX2 inline __m256i twoRows(const uint8_t* upper, const uint8_t* lower, int from) {
    return _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(upper + from))),
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(lower + from)), 1);
}

TAVRIN_AVX2 __attribute__((always_inline)) inline void countAvx2(const uint8_t* const* srcRows, const uint8_t* const* maskRows,
                                  int x, uint8_t centre, uint32_t (&hist)[kClasses]) {
    const __m256i c = _mm256_set1_epi8(static_cast<char>(centre));
    const __m256i zero = _mm256_setzero_si256();
    __m256i count[kClasses];
    for (__m256i& v : count) v = zero;
    const int from = x - kEntropyRadius;
    // Rows 0..9 in pairs, row 10 with a lower half that counts nothing.
    for (int k = 0; k < kRows; k += 2) {
        const bool pair = k + 1 < kRows;
        const __m256i p = twoRows(srcRows[k], srcRows[pair ? k + 1 : k], from);
        const __m256i m = twoRows(maskRows[k], maskRows[pair ? k + 1 : k], from);
        const __m256i above = _mm256_subs_epu8(p, c);
        const __m256i below = _mm256_subs_epu8(c, p);
        const __m256i distance =
            _mm256_min_epu8(_mm256_or_si256(above, below), constant32(kConst.far));
        const __m256i none = _mm256_or_si256(
            _mm256_or_si256(_mm256_cmpeq_epi8(distance, constant32(kConst.far)),
                            _mm256_xor_si256(_mm256_cmpeq_epi8(m, zero), _mm256_cmpeq_epi8(zero, zero))),
            constant32(kConst.extra[pair ? 0 : 1]));
        const __m256i u = _mm256_sub_epi8(_mm256_add_epi8(constant32(kConst.near), below), above);
        const __m256i cls = _mm256_or_si256(
            _mm256_and_si256(_mm256_srli_epi16(u, 3), constant32(kConst.lowFive)), none);
        for (int j = 0; j < kClasses; ++j)
            count[j] = _mm256_sub_epi8(count[j], _mm256_cmpeq_epi8(cls, constant32(kConst.classes[j])));
    }
    for (int j = 0; j < kClasses; ++j) {
        const __m256i sums = _mm256_sad_epu8(count[j], zero);
        const __m128i half =
            _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
        hist[j] = static_cast<uint32_t>(_mm_cvtsi128_si32(half) + _mm_extract_epi16(half, 4));
    }
}

int countBlocksSse2(const uint8_t* const* srcRows, const uint8_t* const* maskRows,
                    const uint8_t* centreRow, int x, int width, uint32_t (*hist)[kClasses]) {
    int n = 0;
    for (; n < kCountChunk && countFits(x, width); ++n, x += 3)
        countSse2(srcRows, maskRows, x, centreRow[x], hist[n]);
    return n;
}

TAVRIN_AVX2 int countBlocksAvx2(const uint8_t* const* srcRows, const uint8_t* const* maskRows,
                                const uint8_t* centreRow, int x, int width,
                                uint32_t (*hist)[kClasses]) {
    int n = 0;
    for (; n < kCountChunk && countFits(x, width); ++n, x += 3)
        countAvx2(srcRows, maskRows, x, centreRow[x], hist[n]);
    return n;
}

}  // namespace

CountBlocksFn countBlocksForThisCpu() {
    return __builtin_cpu_supports("avx2") ? countBlocksAvx2 : countBlocksSse2;
}
#else
CountBlocksFn countBlocksForThisCpu() {
    return nullptr;
}
#endif

}  // namespace tavrin::detect
