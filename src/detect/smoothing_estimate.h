// Fast estimate of the smoothing filter's rounded means, one row at a time,
// in single precision and eight pixels at once. A pixel whose mean lies so
// close to a half that the estimate cannot decide its rounding is handed
// back to the caller, which computes it exactly.
#ifndef TAVRIN_DETECT_SMOOTHING_ESTIMATE_H
#define TAVRIN_DETECT_SMOOTHING_ESTIMATE_H

#include <cstdint>

namespace tavrin::detect {

constexpr int kSmoothRadius = 3;
constexpr int kSmoothSide = 2 * kSmoothRadius + 1;  // 7 taps per row and column
constexpr int kOuterTaps = 28;                       // dx^2 + dy^2 <= 9, centre excluded
constexpr int kEstimateLanes = 8;
// Samples readable past the last column of a padded row: the margin of the
// disc plus the rest of the last group of eight.
constexpr int kPaddedSlack = kSmoothRadius + kEstimateLanes;

// The disc's taps other than the centre (whose weight is 1), top to bottom
// and left to right: row and column (0..6) in the 7x7 square, the spatial
// weight, and for Gaussian tables its base-2 exponent a (dx^2 + dy^2) log2 e.
struct DiscTaps {
    int8_t row[kOuterTaps];
    int8_t column[kOuterTaps];
    float weight[kOuterTaps];
    float exponent2[kOuterTaps];
};

// What the estimate may use. range: the 511-entry table at the entry for
// d = -255; its weights and the taps' lie in [0, 1], the centre's is 1.
// gaussian: the tables are float(exp(a s)) and float(exp(b d^2)) for some
// a, b <= 0 whose base-2 forms (the taps' exponent2 and rangeExponent2 =
// b log2 e) are finite floats.
struct EstimateTables {
    DiscTaps taps;
    const float* range;
    bool gaussian;
    float rangeExponent2;
};

// rows[0..6]: rows y - 3 .. y + 3 padded with kSmoothRadius zeros on the
// left (rows[k][kSmoothRadius + x] is column x; rows outside the image are
// all zero) and readable up to width + kPaddedSlack samples past that.
// Writes every unmasked pixel of the row that it decides into out and stores
// the columns of the others, in increasing order, into undecided; returns
// their number.
int estimateRowLookup(const uint8_t* const* rows, int width, const uint8_t* maskRow, uint8_t* out,
                      const EstimateTables& tables, uint16_t* undecided);

// The same for Gaussian tables with the weights computed, on rows of
// floats; null when the processor cannot run it (it needs AVX2 and FMA).
using GaussianRowFn = int (*)(const float* const* rows, int width, const uint8_t* maskRow,
                              uint8_t* out, const EstimateTables& tables, uint16_t* undecided);
GaussianRowFn gaussianRowForThisCpu();

// Every estimate decides only pixels whose rounding it can prove, so all
// give the same bytes once the undecided pixels are computed exactly.

}  // namespace tavrin::detect

#endif
