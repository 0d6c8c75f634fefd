// Masked 7x7 bilateral smoothing of the quarter-resolution gray page: every
// unmasked pixel becomes the mean of its neighbourhood weighted by a spatial
// Gaussian (a disc of radius 3) and a range Gaussian of the gray-level step
// from the centre. Positions outside the image are black (value 0).
#include <cmath>
#include <cstddef>
#include <cstring>

#include "TavrinDetect.h"
#include "detect/filter_bands.h"

namespace {

constexpr int kRadius = 3;
constexpr int kSide = 2 * kRadius + 1;  // 7 taps per row and column

// Taps of the spatial disc dx^2 + dy^2 <= 9; the kernel is 0 elsewhere.
constexpr bool inDisc(int dy, int dx) {
    return (dy - kRadius) * (dy - kRadius) + (dx - kRadius) * (dx - kRadius) <=
           kRadius * kRadius;
}

// True when every kernel entry outside the disc is zero, so that skipping
// those taps leaves both sums unchanged (w = 0 adds nothing).
bool kernelIsDisc(const float* kernel) {
    for (int dy = 0; dy < kSide; ++dy)
        for (int dx = 0; dx < kSide; ++dx)
            if (!inDisc(dy, dx) && !(kernel[dy * kSide + dx] == 0.0f)) return false;
    return true;
}

// Adds the taps of the pixel at column x to num and den. rows[0..6] are the
// rows y - 3 .. y + 3 (the zero row outside the image); taps run top to
// bottom, left to right; a column outside the image is a pixel of value 0.
// rangeOf[p] = range(p - c). The weight kernel * range (two floats) is exact
// in double and long double alike. Edge: columns may lie outside
// [0, width). Full: also the taps outside the disc (only for caller kernels
// that are not zero there).
template <typename Sum, bool Edge, bool Full>
inline void accumulate(const uint8_t* const (&rows)[kSide], int x, int width,
                       const float* kernel, const float* rangeOf, Sum& num, Sum& den) {
    for (int dy = 0; dy < kSide; ++dy) {
        const uint8_t* const row = rows[dy];
        const float* const k = kernel + dy * kSide;
        for (int dx = 0; dx < kSide; ++dx) {
            if (!Full && !inDisc(dy, dx)) continue;
            const int column = x + dx - kRadius;
            const int p = (Edge && (column < 0 || column >= width)) ? 0 : row[column];
            const Sum w = static_cast<Sum>(k[dx]) * static_cast<Sum>(rangeOf[p]);
            num += p * w;
            den += w;
        }
    }
}

// One filtered pixel, exactly: numerator and denominator are accumulated in
// long double (64-bit mantissa on x86), the precision of the established
// results; p * w is exact in it, so the only roundings are those of the sums
// and of the final division.
template <bool Edge, bool Full>
uint8_t exactPixel(const uint8_t* const (&rows)[kSide], int x, int width, int centre,
                   const float* kernel, const float* range) {
    long double num = 0.0L;
    long double den = 0.0L;
    accumulate<long double, Edge, Full>(rows, x, width, kernel, range + 255 - centre, num, den);
    const long double mean = num / den;
    // No usable weight (a zero sigma makes the centre weight exp(0 * -inf),
    // a NaN; a caller's table may have a zero centre): the pixel keeps its
    // value, as a mean over the centre alone would.
    if (std::isnan(mean)) return static_cast<uint8_t>(centre);
    const long double v = std::floor(mean + 0.5L);
    if (v <= 0.0L) return 0;
    return v >= 255.0L ? 255 : static_cast<uint8_t>(v);
}

// Fast path for four neighbouring inner pixels: the same taps in the same
// order, summed in double with four independent chains. With non-negative
// finite weights the double mean lies within 2e-12 of the long double one
// (29 positive terms, relative error below 30 * 2^-53 each sum, mean <= 255),
// so wherever mean + 0.5 is more than kHalfMargin away from an integer both
// round to the same value; the rare pixels closer to a half, and NaNs, are
// recomputed exactly.
constexpr double kHalfMargin = 1e-9;
constexpr int kGroup = 4;

void fastGroup(const uint8_t* const (&rows)[kSide], int x, const uint8_t* maskRow,
               uint8_t* out, const float* kernel, const float* range, const double* rangeWide) {
    const uint8_t* const centreRow = rows[kRadius];
    const double* rangeOf[kGroup];
    double num[kGroup] = {};
    double den[kGroup] = {};
    for (int i = 0; i < kGroup; ++i) rangeOf[i] = rangeWide + 255 - centreRow[x + i];
    for (int dy = 0; dy < kSide; ++dy) {
        const uint8_t* const row = rows[dy] + x - kRadius;
        const float* const k = kernel + dy * kSide;
        for (int dx = 0; dx < kSide; ++dx) {
            if (!inDisc(dy, dx)) continue;
            const double kw = k[dx];
            for (int i = 0; i < kGroup; ++i) {
                const int p = row[dx + i];
                const double w = kw * rangeOf[i][p];
                num[i] += p * w;
                den[i] += w;
            }
        }
    }
    for (int i = 0; i < kGroup; ++i) {
        if (maskRow[x + i] != 0) continue;
        const double t = num[i] / den[i] + 0.5;
        const double whole = std::floor(t);
        const double frac = t - whole;
        if (frac > kHalfMargin && frac < 1.0 - kHalfMargin)
            out[x + i] = whole <= 0.0 ? 0 : (whole >= 255.0 ? 255 : static_cast<uint8_t>(whole));
        else
            out[x + i] = exactPixel<false, false>(rows, x + i, 0, centreRow[x + i], kernel, range);
    }
}

// Whether the double fast path is exact for these tables: the kernel is
// zero outside the disc and every weight is finite and non-negative.
bool fastPathHolds(const float* kernel, const float* range) {
    for (int i = 0; i < kSide * kSide; ++i)
        if (!(kernel[i] >= 0.0f && std::isfinite(kernel[i]))) return false;
    for (int i = 0; i < 511; ++i)
        if (!(range[i] >= 0.0f && std::isfinite(range[i]))) return false;
    return kernelIsDisc(kernel);
}

template <bool Full>
void filterStretch(const uint8_t* const (&rows)[kSide], int begin, int end, int width,
                   const uint8_t* maskRow, uint8_t* out, const float* kernel,
                   const float* range) {
    const uint8_t* const centreRow = rows[kRadius];
    for (int x = begin; x < end; ++x)
        if (maskRow[x] == 0)
            out[x] = exactPixel<true, Full>(rows, x, width, centreRow[x], kernel, range);
}

template <bool Full>
void filterRows(int first, int end, const ImgTavrin& src, const ImgTavrin& mask,
                ImgTavrin& dst, const float* kernel, const float* range, const uint8_t* zeroRow,
                const double* rangeWide) {
    const int width = src.usWidth;
    const int height = src.usHeight;
    const ptrdiff_t stride = width;
    // Stretches: columns [0, 3) and [width - 3, width) test bounds, the
    // middle [3, width - 3) has the whole 7x7 square inside. For widths under
    // 7 the middle is empty and every column tests bounds.
    const int innerBegin = kRadius < width ? kRadius : width;
    const int innerEnd = width - kRadius > innerBegin ? width - kRadius : innerBegin;

    const uint8_t* rows[kSide];
    for (int k = 0; k < kSide; ++k) {
        const int r = first - kRadius + k;
        rows[k] = (r >= 0 && r < height) ? src.pucImage + r * stride : zeroRow;
    }
    for (int y = first; y < end; ++y) {
        const uint8_t* const centreRow = rows[kRadius];
        const uint8_t* const maskRow = mask.pucImage + y * stride;
        uint8_t* const out = dst.pucImage + y * stride;

        filterStretch<Full>(rows, 0, innerBegin, width, maskRow, out, kernel, range);
        int x = innerBegin;
        if (rangeWide != nullptr) {
            for (; x + kGroup <= innerEnd; x += kGroup) {
                bool anyOpen = false;  // a fully masked group costs nothing
                for (int i = 0; i < kGroup; ++i) anyOpen |= maskRow[x + i] == 0;
                if (anyOpen) fastGroup(rows, x, maskRow, out, kernel, range, rangeWide);
            }
        }
        for (; x < innerEnd; ++x)
            if (maskRow[x] == 0)
                out[x] = exactPixel<false, Full>(rows, x, width, centreRow[x], kernel, range);
        filterStretch<Full>(rows, innerEnd, width, width, maskRow, out, kernel, range);

        // The window moves down one row.
        for (int k = 0; k < kSide - 1; ++k) rows[k] = rows[k + 1];
        const int r = y + 1 + kRadius;
        rows[kSide - 1] = r < height ? src.pucImage + r * stride : zeroRow;
    }
}

// The zero row of the work buffer (width bytes at its fixed offset), or null
// when the width exceeds the region.
uint8_t* zeroRowOf(uint8_t* work, int width) {
    return TavrinApp_MemAlloc(work, width, TAVRIN_DETECT_ZEROROW_LIMIT,
                              TAVRIN_DETECT_ZEROROW_OFFSET);
}

}  // namespace

int filter2(int first, int end, ImgTavrin* src, ImgTavrin* mask, ImgTavrin* dst, float* kernel,
            float* range, uint8_t* pucWorkBuf) {
    // Unusable arguments (missing, or a mask or destination of another size
    // than the source), and rows wider than the zero row, give status 2
    // without writing anything.
    if (src == nullptr || mask == nullptr || dst == nullptr || kernel == nullptr ||
        range == nullptr || pucWorkBuf == nullptr || src->pucImage == nullptr ||
        mask->pucImage == nullptr || dst->pucImage == nullptr ||
        mask->usWidth != src->usWidth || mask->usHeight != src->usHeight ||
        dst->usWidth != src->usWidth || dst->usHeight != src->usHeight)
        return 2;
    const int width = src->usWidth;
    const int height = src->usHeight;
    uint8_t* const zeroRow = zeroRowOf(pucWorkBuf, width);
    if (zeroRow == nullptr) return 2;
    // smoothFilter clears the row before its bands start; a direct caller may
    // not have, and writing it only when needed keeps the bands read-only.
    for (int x = 0; x < width; ++x) {
        if (zeroRow[x] != 0) {
            std::memset(zeroRow, 0, static_cast<size_t>(width));
            break;
        }
    }

    if (first < 0) first = 0;
    if (end > height) end = height;
    if (first >= end) return 0;
    if (!kernelIsDisc(kernel)) {
        filterRows<true>(first, end, *src, *mask, *dst, kernel, range, zeroRow, nullptr);
    } else if (!fastPathHolds(kernel, range)) {
        filterRows<false>(first, end, *src, *mask, *dst, kernel, range, zeroRow, nullptr);
    } else {
        // The range weights widened once (exactly) for the fast path.
        double rangeWide[511];
        for (int i = 0; i < 511; ++i) rangeWide[i] = range[i];
        filterRows<false>(first, end, *src, *mask, *dst, kernel, range, zeroRow, rangeWide);
    }
    return 0;
}

int smoothFilter(ImgTavrin* src, ImgTavrin* mask, ImgTavrin* dst, uint8_t* pucWorkBuf,
                 ST_PARAM_DETECT_PICT* pstParam, int iParallel) {
    // Status 2 (nothing written): a missing record, buffer or parameter
    // record, a mask of another size, filtering in place, or a width above
    // the 1312-byte zero row of the work buffer.
    if (src == nullptr || mask == nullptr || dst == nullptr || pucWorkBuf == nullptr ||
        pstParam == nullptr || src->pucImage == nullptr || mask->pucImage == nullptr ||
        dst->pucImage == nullptr || src->pucImage == dst->pucImage ||
        mask->usWidth != src->usWidth || mask->usHeight != src->usHeight)
        return 2;
    uint8_t* const zeroRow = zeroRowOf(pucWorkBuf, src->usWidth);
    if (zeroRow == nullptr) return 2;
    std::memset(zeroRow, 0, src->usWidth);

    // Coefficients in double; each exponential in double, stored as float.
    const double spaceCoef = -0.5 / (pstParam->dSpaceSigma * pstParam->dSpaceSigma);
    const double rangeCoef = -0.5 / (pstParam->dRangeSigma * pstParam->dRangeSigma);

    float kernel[kSide * kSide];
    for (int dy = 0; dy <= kRadius; ++dy) {
        for (int dx = 0; dx <= kRadius; ++dx) {
            const int r2 = dx * dx + dy * dy;
            const float value =
                r2 > kRadius * kRadius ? 0.0f : static_cast<float>(std::exp(r2 * spaceCoef));
            kernel[(kRadius - dy) * kSide + (kRadius - dx)] = value;
            kernel[(kRadius - dy) * kSide + (kRadius + dx)] = value;
            kernel[(kRadius + dy) * kSide + (kRadius - dx)] = value;
            kernel[(kRadius + dy) * kSide + (kRadius + dx)] = value;
        }
    }
    float rangeTable[511];
    rangeTable[255] = 1.0f;
    for (int d = 1; d <= 255; ++d) {
        const float value = static_cast<float>(std::exp(static_cast<double>(d * d) * rangeCoef));
        rangeTable[255 + d] = value;
        rangeTable[255 - d] = value;
    }

    copy_ImageTavrin(src, dst, 1);  // masked pixels keep their source values

    const int height = src->usHeight;
    const int limits[3] = {0, height / 2, height};
    float* const range = rangeTable;  // entry for d = -255
    if (iParallel == 0)
        return filter2(limits[0], limits[2], src, mask, dst, kernel, range, pucWorkBuf);
    return tavrin::detect::runTwoBands([&](int band) {
        return filter2(limits[band], limits[band + 1], src, mask, dst, kernel, range,
                       pucWorkBuf);
    });
}
