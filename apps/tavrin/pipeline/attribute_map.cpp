#include "pipeline/attribute_map.h"

#include <algorithm>
#include <vector>

#include "pipeline/block_levels.h"

namespace tavrin {

namespace {

constexpr int kMinContrast = 60;  // darker ink than this is not text
constexpr int kRadius = 3;        // window of the paper-nearby test, map pixels
// Print is nearly two-tone: even at half resolution under a quarter of a
// text block lies in the middle half between ink and paper, while most
// blocks of a photograph are far richer in midtones.
constexpr double kMaxMidtoneShare = 0.30;

// Per block: true when few of its pixels are midtones.
std::vector<uint8_t> twoToneBlocks(const Plane& g, const BlockLevels& L) {
    std::vector<uint8_t> out(size_t(L.columns) * L.rows, 0);
#pragma omp parallel for schedule(static)
    for (int by = 0; by < L.rows; ++by)
        for (int bx = 0; bx < L.columns; ++bx) {
            const int paper = L.paper[size_t(by) * L.columns + bx], ink = L.ink[size_t(by) * L.columns + bx];
            const int contrast = paper - ink;
            if (contrast < kMinContrast) continue;
            // midtone: ink + contrast / 4 < v < paper - contrast / 4
            const int lo = ink + contrast / 4, hi = paper - contrast / 4;
            int mid = 0, total = 0;
            for (int y = by * L.block; y < std::min(g.height, (by + 1) * L.block); ++y) {
                const uint8_t* r = g.row(y);
                for (int x = bx * L.block; x < std::min(g.width, (bx + 1) * L.block); ++x, ++total)
                    mid += r[x] > lo && r[x] < hi;
            }
            out[size_t(by) * L.columns + bx] = mid < kMaxMidtoneShare * total;
        }
    return out;
}

// Running maximum over 2 * kRadius + 1 samples along rows, then columns.
Plane localMax(const Plane& src) {
    Plane rowsMax(src.width, src.height);
#pragma omp parallel for schedule(static)
    for (int y = 0; y < src.height; ++y) {
        const uint8_t* s = src.row(y);
        uint8_t* d = rowsMax.row(y);
        for (int x = 0; x < src.width; ++x) {
            const int a = std::max(0, x - kRadius), b = std::min(src.width - 1, x + kRadius);
            d[x] = *std::max_element(s + a, s + b + 1);
        }
    }
    Plane out(src.width, src.height);
#pragma omp parallel for schedule(static)
    for (int y = 0; y < src.height; ++y) {
        const int a = std::max(0, y - kRadius), b = std::min(src.height - 1, y + kRadius);
        uint8_t* d = out.row(y);
        std::copy(rowsMax.row(a), rowsMax.row(a) + src.width, d);
        for (int yy = a + 1; yy <= b; ++yy) {
            const uint8_t* s = rowsMax.row(yy);
            for (int x = 0; x < src.width; ++x) d[x] = std::max(d[x], s[x]);
        }
    }
    return out;
}

}  // namespace

Plane buildAttributeMap(const Plane& gray, double dpi) {
    const Plane half = reducePlane(gray, 2);
    const BlockLevels levels = measureBlockLevels(half, blockSideFor(dpi / 2) );
    const Plane bright = localMax(half);
    const std::vector<uint8_t> print = twoToneBlocks(half, levels);
    Plane attr(half.width, half.height, 0);
#pragma omp parallel for schedule(static)
    for (int y = 0; y < half.height; ++y) {
        const uint8_t* g = half.row(y);
        const uint8_t* m = bright.row(y);
        uint8_t* a = attr.row(y);
        for (int x = 0; x < half.width; ++x) {
            if (!print[size_t(y / levels.block) * levels.columns + x / levels.block]) continue;
            const int paper = levels.paperAt(x, y), ink = levels.inkAt(x, y);
            const int contrast = paper - ink;
            if (contrast < kMinContrast) continue;
            const bool dark = g[x] * 2 < paper + ink;
            const bool paperNear = m[x] * 4 >= paper * 4 - contrast;
            if (dark && paperNear) a[x] = kHighAttribute;
        }
    }
    return attr;
}

}  // namespace tavrin
