#include "pipeline/ink_levels.h"

#include <algorithm>

#include "pipeline/block_levels.h"

namespace tavrin {

namespace {

// Where the bands end, as shares of the range from ink to paper. Tuned on
// the sample pages for the smallest masks at a rendering PSNR of 30 dB: the
// dark band is narrow (it is the bulk of every stroke), the light band
// reaches far into the anti-aliased edge.
constexpr double kCuts[kMaxInkLevels][kMaxInkLevels] = {
    {0.50},
    {0.25, 0.60},
    {0.15, 0.40, 0.75},
    {0.12, 0.30, 0.50, 0.75},
};

}  // namespace

InkBands splitInk(const Plane& gray, double dpi, int count, int minContrast,
                  const std::vector<Rect>& pictures) {
    InkBands out;
    out.count = count;
    out.band = Plane(gray.width, gray.height, uint8_t(count));
    const BlockLevels L = measureBlockLevels(gray, blockSideFor(dpi));
    const int B = L.block;
#pragma omp parallel for schedule(static)
    for (int by = 0; by < L.rows; ++by) {
        const int y0 = by * B, y1 = std::min(gray.height, y0 + B);
        for (int bx = 0; bx < L.columns; ++bx) {
            const int paper = L.paper[size_t(by) * L.columns + bx];
            const int ink = L.ink[size_t(by) * L.columns + bx];
            if (paper - ink < minContrast) continue;
            int t[kMaxInkLevels];
            for (int i = 0; i < count; ++i) t[i] = ink + int((paper - ink) * kCuts[count - 1][i]);
            const int x0 = bx * B, x1 = std::min(gray.width, x0 + B);
            for (int y = y0; y < y1; ++y) {
                const uint8_t* g = gray.row(y);
                uint8_t* d = out.band.row(y);
                for (int x = x0; x < x1; ++x) {
                    int b = 0;
                    for (int i = 0; i < count; ++i) b += g[x] >= t[i];
                    d[x] = uint8_t(b);
                }
            }
        }
    }
    // A lone pixel between two equal neighbours in a row is noise on an
    // edge; it costs the T.6 coder two short runs and carries no shape.
#pragma omp parallel for schedule(static)
    for (int y = 0; y < gray.height; ++y) {
        uint8_t* d = out.band.row(y);
        for (int x = 1; x + 1 < gray.width; ++x)
            if (d[x - 1] == d[x + 1] && d[x] != d[x - 1]) d[x] = d[x - 1];
    }
    for (const Rect& r : pictures)
        for (int y = std::max(0, r.y0); y <= std::min(gray.height - 1, r.y1); ++y)
            std::fill(out.band.row(y) + std::max(0, r.x0), out.band.row(y) + std::min(gray.width - 1, r.x1) + 1,
                      uint8_t(count));
    return out;
}

}  // namespace tavrin
