// Masked 7x7 bilateral smoothing of the quarter-resolution gray page: every
// unmasked pixel becomes the mean of its neighbourhood weighted by a spatial
// Gaussian (a disc of radius 3) and a range Gaussian of the gray-level step
// from the centre. Positions outside the image are black (value 0).
//
// The sums are specified to the bit (long double, taps in raster order). A
// single-precision estimate (smoothing_estimate.cpp) decides the rounding of
// almost every pixel; only those whose mean lies too close to a half for the
// estimate are computed exactly, which gives the same bytes at a fraction of
// the cost.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

#include "TavrinDetect.h"
#include "detect/filter_bands.h"
#include "detect/smoothing_estimate.h"

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
// rangeOf[p] = range(p - c). The weight kernel * range (two floats) and
// p * w are exact in long double. Edge: columns may lie outside [0, width).
// Full: also the taps outside the disc (only for caller kernels that are not
// zero there).
template <bool Edge, bool Full>
inline void accumulate(const uint8_t* const (&rows)[kSide], int x, int width,
                       const float* kernel, const float* rangeOf, long double& num,
                       long double& den) {
    for (int dy = 0; dy < kSide; ++dy) {
        const uint8_t* const row = rows[dy];
        const float* const k = kernel + dy * kSide;
        for (int dx = 0; dx < kSide; ++dx) {
            if (!Full && !inDisc(dy, dx)) continue;
            const int column = x + dx - kRadius;
            const int p = (Edge && (column < 0 || column >= width)) ? 0 : row[column];
            const long double w = static_cast<long double>(k[dx]) * rangeOf[p];
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
    accumulate<Edge, Full>(rows, x, width, kernel, range + 255 - centre, num, den);
    const long double mean = num / den;
    // No usable weight (a zero sigma makes the centre weight exp(0 * -inf),
    // a NaN; a caller's table may have a zero centre): the pixel keeps its
    // value, as a mean over the centre alone would.
    if (std::isnan(mean)) return static_cast<uint8_t>(centre);
    const long double v = std::floor(mean + 0.5L);
    if (v <= 0.0L) return 0;
    return v >= 255.0L ? 255 : static_cast<uint8_t>(v);
}

// Whether the single-precision estimate applies to these tables: the kernel
// is zero outside the disc, every weight lies in [0, 1] and the centre
// weight is 1, so the denominator is at least 1.
bool estimateHolds(const float* kernel, const float* range) {
    for (int i = 0; i < kSide * kSide; ++i)
        if (!(kernel[i] >= 0.0f && kernel[i] <= 1.0f)) return false;
    for (int i = 0; i < 511; ++i)
        if (!(range[i] >= 0.0f && range[i] <= 1.0f)) return false;
    return kernel[kRadius * kSide + kRadius] == 1.0f && range[255] == 1.0f && kernelIsDisc(kernel);
}

// Gaussian exponents of smoothFilter's tables: kernel entry exp(space * s)
// for s = dx^2 + dy^2, range entry exp(range * d^2).
struct Exponents {
    double space;
    double range;
};

// The estimate's view of the tables: the outer taps of the disc and, where
// smoothFilter built the tables from finite exponents, those exponents.
tavrin::detect::EstimateTables estimateTables(const float* kernel, const float* range,
                                              const Exponents* exponents) {
    tavrin::detect::EstimateTables tables{};
    tables.range = range;
    // Base-2 exponents as floats, where they are finite floats at all.
    constexpr double kLog2e = 1.4426950408889634;
    auto toFloat = [&tables](double exponent) {
        const double base2 = exponent * kLog2e;
        if (!(std::fabs(base2) <= std::numeric_limits<float>::max())) {
            tables.gaussian = false;
            return 0.0f;
        }
        return static_cast<float>(base2);
    };
    tables.gaussian = exponents != nullptr;
    if (exponents != nullptr) tables.rangeExponent2 = toFloat(exponents->range);
    int t = 0;
    for (int dy = 0; dy < kSide; ++dy)
        for (int dx = 0; dx < kSide; ++dx) {
            if (!inDisc(dy, dx) || (dy == kRadius && dx == kRadius)) continue;
            tables.taps.row[t] = static_cast<int8_t>(dy);
            tables.taps.column[t] = static_cast<int8_t>(dx);
            tables.taps.weight[t] = kernel[dy * kSide + dx];
            if (exponents != nullptr) {
                const int s = (dy - kRadius) * (dy - kRadius) + (dx - kRadius) * (dx - kRadius);
                tables.taps.exponent2[t] = toFloat(s * exponents->space);
            }
            ++t;
        }
    return tables;
}

// Rows of the filter's window copied with kRadius zeros on each side (and
// slack behind), as bytes for the lookup estimate and as floats for the
// computed-weight one, so that every column, the border ones included, is
// estimated alike: outside the image the pixels are 0 either way. The float
// window takes 37 KB of stack.
constexpr int kPaddedLength = TAVRIN_DETECT_ZEROROW_LIMIT + 2 * kRadius + tavrin::detect::kPaddedSlack;

// Every unmasked pixel of rows [first, end): the estimate decides almost all
// of them, the exact sums the rest.
template <typename Sample, typename EstimateRow>
void estimateRows(int first, int end, const ImgTavrin& src, const ImgTavrin& mask, ImgTavrin& dst,
                  const float* kernel, const float* range, const uint8_t* zeroRow,
                  const tavrin::detect::EstimateTables& tables, EstimateRow estimateRow) {
    const int width = src.usWidth;
    const int height = src.usHeight;
    const ptrdiff_t stride = width;

    alignas(32) Sample padded[kSide][kPaddedLength];
    std::fill(&padded[0][0], &padded[0][0] + kSide * kPaddedLength, Sample{0});
    const uint8_t* rows[kSide];       // the image's rows, or the zero row
    const Sample* paddedRows[kSide];  // their padded copies
    auto load = [&](int slot, int r) {
        rows[slot] = (r >= 0 && r < height) ? src.pucImage + r * stride : zeroRow;
        Sample* copy = padded[(r % kSide + kSide) % kSide];
        std::copy(rows[slot], rows[slot] + width, copy + kRadius);
        paddedRows[slot] = copy;
    };
    for (int k = 0; k < kSide; ++k) load(k, first - kRadius + k);

    uint16_t undecided[TAVRIN_DETECT_ZEROROW_LIMIT];
    for (int y = first; y < end; ++y) {
        const uint8_t* const maskRow = mask.pucImage + y * stride;
        uint8_t* const out = dst.pucImage + y * stride;
        const int left = estimateRow(paddedRows, width, maskRow, out, tables, undecided);
        for (int i = 0; i < left; ++i) {
            const int x = undecided[i];
            out[x] = exactPixel<true, false>(rows, x, width, rows[kRadius][x], kernel, range);
        }
        // The window moves down one row; the slot of row y - 3 takes y + 4.
        for (int k = 0; k < kSide - 1; ++k) {
            rows[k] = rows[k + 1];
            paddedRows[k] = paddedRows[k + 1];
        }
        load(kSide - 1, y + 1 + kRadius);
    }
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
                ImgTavrin& dst, const float* kernel, const float* range, const uint8_t* zeroRow) {
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
        for (int x = innerBegin; x < innerEnd; ++x)
            if (maskRow[x] == 0)
                out[x] = exactPixel<false, Full>(rows, x, width, centreRow[x], kernel, range);
        filterStretch<Full>(rows, innerEnd, width, width, maskRow, out, kernel, range);

        // The window moves down one row.
        for (int k = 0; k < kSide - 1; ++k) rows[k] = rows[k + 1];
        const int r = y + 1 + kRadius;
        rows[kSide - 1] = r < height ? src.pucImage + r * stride : zeroRow;
    }
}

// The fastest estimate that holds for these tables on this processor.
void estimateAll(int first, int end, const ImgTavrin& src, const ImgTavrin& mask, ImgTavrin& dst,
                 const float* kernel, const float* range, const uint8_t* zeroRow,
                 const Exponents* exponents) {
    namespace td = tavrin::detect;
    const td::EstimateTables tables = estimateTables(kernel, range, exponents);
    const td::GaussianRowFn gaussian = td::gaussianRowForThisCpu();
    if (tables.gaussian && gaussian != nullptr)
        estimateRows<float>(first, end, src, mask, dst, kernel, range, zeroRow, tables, gaussian);
    else
        estimateRows<uint8_t>(first, end, src, mask, dst, kernel, range, zeroRow, tables,
                              td::estimateRowLookup);
}

// The zero row of the work buffer (width bytes at its fixed offset), or null
// when the width exceeds the region.
uint8_t* zeroRowOf(uint8_t* work, int width) {
    return TavrinApp_MemAlloc(work, width, TAVRIN_DETECT_ZEROROW_LIMIT,
                              TAVRIN_DETECT_ZEROROW_OFFSET);
}

// filter2's work; smoothFilter also passes the exponents of its tables.
int smoothBand(int first, int end, ImgTavrin* src, ImgTavrin* mask, ImgTavrin* dst, float* kernel,
               float* range, uint8_t* pucWorkBuf, const Exponents* exponents) {
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
    if (!kernelIsDisc(kernel))
        filterRows<true>(first, end, *src, *mask, *dst, kernel, range, zeroRow);
    else if (!estimateHolds(kernel, range))
        filterRows<false>(first, end, *src, *mask, *dst, kernel, range, zeroRow);
    else
        estimateAll(first, end, *src, *mask, *dst, kernel, range, zeroRow, exponents);
    return 0;
}

}  // namespace

int filter2(int first, int end, ImgTavrin* src, ImgTavrin* mask, ImgTavrin* dst, float* kernel,
            float* range, uint8_t* pucWorkBuf) {
    return smoothBand(first, end, src, mask, dst, kernel, range, pucWorkBuf, nullptr);
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

    // Each band is filter2's work on its rows, told the exponents as well.
    const int height = src->usHeight;
    const int limits[3] = {0, height / 2, height};
    float* const range = rangeTable;  // entry for d = -255
    const Exponents exponents{spaceCoef, rangeCoef};
    if (iParallel == 0)
        return smoothBand(limits[0], limits[2], src, mask, dst, kernel, range, pucWorkBuf,
                          &exponents);
    return tavrin::detect::runTwoBands([&](int band) {
        return smoothBand(limits[band], limits[band + 1], src, mask, dst, kernel, range,
                          pucWorkBuf, &exponents);
    });
}
