// Binary 3x3 morphology of the detection masks: dilation, erosion and the
// removal of isolated pixels.
//
// Pixels outside the plane count as 0 for dilation and erosion alike, so an
// erosion always clears the plane's outer frame. The inner columns of a row
// are computed 16 or 32 at a time from unaligned loads of the three source
// rows at x - 1, x and x + 1; no temporary buffer is needed.
#include <cstddef>
#include <cstring>

#include "TavrinDetect.h"
#include "detect/filter_bands.h"

namespace {

// Column value at x: OR (dilation) or AND (erosion) of the three rows.
template <bool Dilate>
inline uint8_t column(const uint8_t* a, const uint8_t* b, const uint8_t* c, int x) {
    return Dilate ? static_cast<uint8_t>(a[x] | b[x] | c[x]) : static_cast<uint8_t>(a[x] & b[x] & c[x]);
}

// Output columns [from, to) one by one, the row ends by their rules: outside
// the row the column value is 0, so erosion gives 0 at both ends and
// dilation takes only the columns that exist.
template <bool Dilate>
void morphColumns(const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* d, int w, int from,
                  int to) {
    for (int x = from; x < to; ++x) {
        const uint8_t left = x > 0 ? column<Dilate>(a, b, c, x - 1) : 0;
        const uint8_t right = x + 1 < w ? column<Dilate>(a, b, c, x + 1) : 0;
        const uint8_t centre = column<Dilate>(a, b, c, x);
        d[x] = Dilate ? static_cast<uint8_t>(left | centre | right)
                      : static_cast<uint8_t>(left & centre & right);
    }
}

// Inner columns N at a time (N-byte vectors): the nine source bytes of each
// output byte are loaded at x - 1, x and x + 1 of the three rows, so every
// load stays inside the row. Returns the first column not done.
template <bool Dilate, int N>
__attribute__((always_inline)) inline int morphVectors(const uint8_t* a, const uint8_t* b,
                                                       const uint8_t* c, uint8_t* d, int w) {
    typedef uint8_t Vec __attribute__((vector_size(N)));
    const uint8_t* const rows[3] = {a, b, c};
    int x = 1;
    for (; x + N < w; x += N) {
        Vec v;
        std::memcpy(&v, a + x, N);
        for (const uint8_t* row : rows)
            for (int dx = -1; dx <= 1; ++dx) {
                Vec u;
                std::memcpy(&u, row + x + dx, N);
                v = Dilate ? (v | u) : (v & u);
            }
        std::memcpy(d + x, &v, N);
    }
    return x;
}

// One output row d from the source rows a (above), b, c (below), w >= 1.
template <bool Dilate>
void morphRow(const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* d, int w) {
    morphColumns<Dilate>(a, b, c, d, w, 0, 1);
    const int done = morphVectors<Dilate, 16>(a, b, c, d, w);
    morphColumns<Dilate>(a, b, c, d, w, done, w);
}

#if defined(__x86_64__)
template <bool Dilate>
__attribute__((target("avx2"))) void morphRowAvx2(const uint8_t* a, const uint8_t* b,
                                                   const uint8_t* c, uint8_t* d, int w) {
    morphColumns<Dilate>(a, b, c, d, w, 0, 1);
    const int done = morphVectors<Dilate, 32>(a, b, c, d, w);
    morphColumns<Dilate>(a, b, c, d, w, done, w);
}
#endif

using RowFn = void (*)(const uint8_t*, const uint8_t*, const uint8_t*, uint8_t*, int);

// The widest row operation this processor runs.
template <bool Dilate>
RowFn rowOperation() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) return morphRowAvx2<Dilate>;
#endif
    return morphRow<Dilate>;
}

template <bool Dilate>
void morphRows(int first, int end, const uint8_t* src, uint8_t* dst, int width, int height) {
    if (src == nullptr || dst == nullptr || width < 1) return;
    // Rows whose neighbours would lie outside the plane are skipped rather
    // than read out of bounds (valid callers never ask for them).
    if (first < 1) first = 1;
    if (end > height - 1) end = height - 1;
    const ptrdiff_t stride = width;
    const RowFn morphRow = rowOperation<Dilate>();
    for (int y = first; y < end; ++y) {
        const uint8_t* row = src + y * stride;
        morphRow(row - stride, row, row + stride, dst + y * stride, width);
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
    rowOperation<true>()(row, row, neighbour, dst, width);
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
    typedef uint8_t Vec __attribute__((vector_size(16)));
    auto load = [](const uint8_t* p) {
        Vec v;
        std::memcpy(&v, p, sizeof v);
        return v;
    };
    for (int y = 1; y < height - 1; ++y) {
        uint8_t* b = plane.pucImage + y * stride;
        const uint8_t* a = b - stride;
        const uint8_t* c = b + stride;
        int x = 1;
        // Sixteen pixels at a time while their neighbours lie in the row. A
        // group is stored after the next group's loads, which read its last
        // byte: a load that overlaps a store still in flight stalls.
        Vec pending;
        int pendingAt = 0;
        for (; x + 17 <= width; x += 16) {
            const Vec around = load(a + x - 1) | load(a + x) | load(a + x + 1) | load(b + x - 1) |
                               load(b + x + 1) | load(c + x - 1) | load(c + x) | load(c + x + 1);
            const Vec v = load(b + x);
            const Vec lone = (v == 1) & (around == 0);  // all bits set where lone
            if (pendingAt > 0) std::memcpy(b + pendingAt, &pending, sizeof pending);
            pending = v & ~lone;
            pendingAt = x;
        }
        if (pendingAt > 0) std::memcpy(b + pendingAt, &pending, sizeof pending);
        for (; x < width - 1; ++x) {
            if (b[x] != 1) continue;
            const int around = a[x - 1] | a[x] | a[x + 1] | b[x - 1] | b[x + 1] | c[x - 1] |
                               c[x] | c[x + 1];
            if (around == 0) b[x] = 0;
        }
    }
    return 0;
}
