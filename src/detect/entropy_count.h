// Vector counts of the masked entropy filter: the class histograms of the
// blocks of one centre row whose neighbourhood columns need no clamping,
// sixteen bytes of a row at a time.
#ifndef TAVRIN_DETECT_ENTROPY_COUNT_H
#define TAVRIN_DETECT_ENTROPY_COUNT_H

#include <cstdint>

namespace tavrin::detect {

constexpr int kEntropyRadius = 5;  // neighbourhood 11 x 11
constexpr int kClasses = 9;        // difference classes 0..8 are counted
constexpr int kCountChunk = 64;    // blocks counted per call at most

// Whether the block at column x can be counted here: no clamped column, and
// 16 bytes readable from x - 5 within the row.
inline bool countFits(int x, int width) {
    return x - kEntropyRadius >= 0 && x + 10 < width;
}

// srcRows, maskRows: the 11 neighbourhood rows (clamped into the plane) of
// the centre row. Counts the blocks at x, x + 3, ... for as long as they fit
// (at most kCountChunk); hist[i][k] is the number of unmasked positions of
// block i whose difference p - c falls into class k (c = centreRow[x]).
// Returns the number of blocks counted, at least 1 when countFits(x, width).
using CountBlocksFn = int (*)(const uint8_t* const* srcRows, const uint8_t* const* maskRows,
                              const uint8_t* centreRow, int x, int width,
                              uint32_t (*hist)[kClasses]);

// The widest form this processor runs (AVX2 or SSE2), or null where there
// is none (every block is then counted with clamped columns).
CountBlocksFn countBlocksForThisCpu();

}  // namespace tavrin::detect

#endif
