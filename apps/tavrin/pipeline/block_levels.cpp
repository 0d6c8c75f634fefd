#include "pipeline/block_levels.h"

#include <algorithm>
#include <cmath>

namespace tavrin {

int blockSideFor(double dpi) {
    return std::max(8, int(std::lround(32.0 * dpi / 300.0)));
}

namespace {

// Value below which `share` of the histogram's `total` samples lie.
uint8_t percentile(const uint32_t* hist, uint32_t total, double share) {
    const uint32_t target = uint32_t(share * total);
    uint32_t seen = 0;
    for (int v = 0; v < 256; ++v) {
        seen += hist[v];
        if (seen > target) return uint8_t(v);
    }
    return 255;
}

}  // namespace

BlockLevels measureBlockLevels(const Plane& gray, int block) {
    BlockLevels L;
    L.block = block;
    L.columns = (gray.width + block - 1) / block;
    L.rows = (gray.height + block - 1) / block;
    const size_t n = size_t(L.columns) * L.rows;
    std::vector<uint8_t> hi(n), lo(n);
#pragma omp parallel for schedule(static)
    for (int by = 0; by < L.rows; ++by) {
        std::vector<uint32_t> hist(size_t(L.columns) * 256, 0u);
        const int y0 = by * block, y1 = std::min(gray.height, y0 + block);
        for (int y = y0; y < y1; ++y) {
            const uint8_t* r = gray.row(y);
            for (int bx = 0; bx < L.columns; ++bx) {
                uint32_t* h = &hist[size_t(bx) * 256];
                const int x1 = std::min(gray.width, (bx + 1) * block);
                for (int x = bx * block; x < x1; ++x) ++h[r[x]];
            }
        }
        for (int bx = 0; bx < L.columns; ++bx) {
            const int w = std::min(gray.width, (bx + 1) * block) - bx * block;
            const uint32_t total = uint32_t(w * (y1 - y0));
            hi[size_t(by) * L.columns + bx] = percentile(&hist[size_t(bx) * 256], total, 0.90);
            lo[size_t(by) * L.columns + bx] = percentile(&hist[size_t(bx) * 256], total, 0.03);
        }
    }
    L.paper.resize(n);
    L.ink.resize(n);
    for (int by = 0; by < L.rows; ++by)
        for (int bx = 0; bx < L.columns; ++bx) {
            uint8_t mx = 0, mn = 255;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) {
                    const int yy = by + dy, xx = bx + dx;
                    if (yy < 0 || yy >= L.rows || xx < 0 || xx >= L.columns) continue;
                    mx = std::max(mx, hi[size_t(yy) * L.columns + xx]);
                    mn = std::min(mn, lo[size_t(yy) * L.columns + xx]);
                }
            L.paper[size_t(by) * L.columns + bx] = mx;
            L.ink[size_t(by) * L.columns + bx] = mn;
        }
    return L;
}

}  // namespace tavrin
