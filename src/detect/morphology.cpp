// Binary 3x3 morphology of the detection masks: dilation, erosion and the
// removal of isolated pixels.
//
// Pixels outside the plane count as 0 for dilation and erosion alike, so an
// erosion always clears the plane's outer frame. Rows are processed with a
// sliding window over the column values (OR or AND of the three rows), eight
// columns per 64-bit word: every source byte is loaded once per output row
// and no temporary buffer is needed.
#include <cstddef>
#include <cstring>

#include "TavrinDetect.h"
#include "detect/filter_bands.h"

namespace {

constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

// Column values of up to eight columns starting at x, packed one per byte in
// memory order; columns past the row's end read as 0.
template <bool Dilate>
inline uint64_t columnWord(const uint8_t* a, const uint8_t* b, const uint8_t* c, int x, int n) {
    uint64_t wa = 0, wb = 0, wc = 0;
    if (n >= 8) {
        std::memcpy(&wa, a + x, 8);
        std::memcpy(&wb, b + x, 8);
        std::memcpy(&wc, c + x, 8);
    } else if (n > 0) {
        std::memcpy(&wa, a + x, static_cast<size_t>(n));
        std::memcpy(&wb, b + x, static_cast<size_t>(n));
        std::memcpy(&wc, c + x, static_cast<size_t>(n));
    }
    return Dilate ? (wa | wb | wc) : (wa & wb & wc);
}

// Each byte takes the value of the column to its left (x - 1); the first
// byte takes the last byte of the previous word.
inline uint64_t fromLeft(uint64_t cur, uint64_t prev) {
    return kLittleEndian ? (cur << 8) | (prev >> 56) : (cur >> 8) | (prev << 56);
}

// Each byte takes the value of the column to its right (x + 1).
inline uint64_t fromRight(uint64_t cur, uint64_t next) {
    return kLittleEndian ? (cur >> 8) | (next << 56) : (cur << 8) | (next >> 56);
}

// One output row d from the source rows a (above), b, c (below), w >= 1.
// Dilation: d[x] = OR of the column values at x - 1, x, x + 1; erosion the
// AND. The zero padding outside the row makes erosion give 0 at both ends
// and lets dilation use only the columns that exist.
template <bool Dilate>
void morphRow(const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* d, int w) {
    uint64_t prev = 0;
    uint64_t cur = columnWord<Dilate>(a, b, c, 0, w);
    for (int x = 0; x < w; x += 8) {
        const uint64_t next = columnWord<Dilate>(a, b, c, x + 8, w - x - 8);
        const uint64_t left = fromLeft(cur, prev);
        const uint64_t right = fromRight(cur, next);
        const uint64_t out = Dilate ? (left | cur | right) : (left & cur & right);
        const int n = w - x < 8 ? w - x : 8;
        if (n == 8)
            std::memcpy(d + x, &out, 8);
        else
            std::memcpy(d + x, &out, static_cast<size_t>(n));
        prev = cur;
        cur = next;
    }
}

template <bool Dilate>
void morphRows(int first, int end, const uint8_t* src, uint8_t* dst, int width, int height) {
    if (src == nullptr || dst == nullptr || width < 1) return;
    // Rows whose neighbours would lie outside the plane are skipped rather
    // than read out of bounds (valid callers never ask for them).
    if (first < 1) first = 1;
    if (end > height - 1) end = height - 1;
    const ptrdiff_t stride = width;
    for (int y = first; y < end; ++y) {
        const uint8_t* row = src + y * stride;
        morphRow<Dilate>(row - stride, row, row + stride, dst + y * stride, width);
    }
}

}  // namespace

int dilation33(int first, int end, uint8_t* src, uint8_t* dst, int width, int height) {
    morphRows<true>(first, end, src, dst, width, height);
    return 0;
}

int erosion33(int first, int end, uint8_t* src, uint8_t* dst, int width, int height) {
    morphRows<false>(first, end, src, dst, width, height);
    return 0;
}

int morophology_border(uint8_t* row, uint8_t* neighbour, uint8_t* dst, int width, int mode) {
    if (row == nullptr || neighbour == nullptr || dst == nullptr || width < 1) return 0;
    if (mode != 0) {
        std::memset(dst, 0, static_cast<size_t>(width));
        return 0;
    }
    // OR is idempotent: the rows (row, row, neighbour) give row | neighbour.
    morphRow<true>(row, row, neighbour, dst, width);
    return 0;
}

int morphologyTrans(ImgTavrin src, ImgTavrin dst, int mode, int iParallel) {
    const int width = src.usWidth;
    const int height = src.usHeight;
    // The border rows need a neighbouring row, hence at least 2 rows; the
    // operation cannot run in place. Such calls are refused before writing.
    if (src.pucImage == nullptr || dst.pucImage == nullptr || src.pucImage == dst.pucImage ||
        width < 1 || height < 2 || dst.usWidth != src.usWidth || dst.usHeight != src.usHeight)
        return 2;

    using RowOperation = int (*)(int, int, uint8_t*, uint8_t*, int, int);
    const RowOperation rowOperation = mode == 0 ? dilation33 : erosion33;
    uint8_t* const s = src.pucImage;
    uint8_t* const d = dst.pucImage;
    const ptrdiff_t stride = width;
    const ptrdiff_t last = (height - 1) * stride;

    int status = morophology_border(s, s + stride, d, width, mode);
    if (status != 0) return status;

    if (iParallel == 0) {
        status = rowOperation(1, height - 1, s, d, width, height);
    } else {
        const int bounds[3] = {1, height >> 1, height - 1};
        status = tavrin::detect::runTwoBands([&](int piece) {
            return rowOperation(bounds[piece], bounds[piece + 1], s, d, width, height);
        });
    }
    if (status != 0) return status;

    return morophology_border(s + last, s + last - stride, d + last, width, mode);
}

int remove_SoloPoint(ImgTavrin plane) {
    const int width = plane.usWidth;
    const int height = plane.usHeight;
    if (plane.pucImage == nullptr || width < 3 || height < 3) return 0;
    const ptrdiff_t stride = width;
    // In place: a pixel is cleared only when all eight neighbours are 0, so
    // a cleared pixel was never a set neighbour of another candidate and the
    // scan order does not matter.
    for (int y = 1; y < height - 1; ++y) {
        uint8_t* b = plane.pucImage + y * stride;
        const uint8_t* a = b - stride;
        const uint8_t* c = b + stride;
        for (int x = 1; x < width - 1; ++x) {
            // Masks are mostly 0: skip eight clear bytes at a time.
            if (x + 8 <= width - 1) {
                uint64_t eight;
                std::memcpy(&eight, b + x, sizeof eight);
                if (eight == 0) {
                    x += 7;
                    continue;
                }
            }
            if (b[x] != 1) continue;
            const int around = a[x - 1] | a[x] | a[x + 1] | b[x - 1] | b[x + 1] | c[x - 1] |
                               c[x] | c[x + 1];
            if (around == 0) b[x] = 0;
        }
    }
    return 0;
}
