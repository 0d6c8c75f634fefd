#include "pipeline/local_levels.h"

#include <algorithm>
#include <vector>

namespace tavrin {

namespace {

// Along each row, the extreme of 2r + 1 samples (the row's ends repeated
// outwards), by taking the extreme with each shifted copy in turn: r is
// small here, and the inner loops run on whole rows, which the compiler
// vectorises. Then down the columns the same way, a row at a time, from
// the rows' results into `out` (which may be `in`).
template <class Pick>
void running(const Plane& in, Plane& out, int r, Pick pick) {
    const int w = in.width, h = in.height;
    if (r <= 0 || w == 0 || h == 0) {
        if (&out != &in) out = in;
        return;
    }
    if (&out != &in) out = Plane(w, h);
    Plane across(w, h);
#pragma omp parallel
    {
        std::vector<uint8_t> padded(size_t(w) + 2 * r);
#pragma omp for schedule(static)
        for (int y = 0; y < h; ++y) {
            const uint8_t* src = in.row(y);
            uint8_t* row = across.row(y);
            std::fill(padded.begin(), padded.begin() + r, src[0]);
            std::copy(src, src + w, padded.begin() + r);
            std::fill(padded.begin() + r + w, padded.end(), src[w - 1]);
            std::copy(src, src + w, row);
            for (int k = 0; k <= 2 * r; ++k) {
                const uint8_t* s = padded.data() + k;
                for (int x = 0; x < w; ++x) row[x] = pick(row[x], s[x]);
            }
        }
    }
#pragma omp parallel for schedule(static)
    for (int y = 0; y < h; ++y) {
        uint8_t* o = out.row(y);
        std::copy(across.row(y), across.row(y) + w, o);
        for (int k = -r; k <= r; ++k) {
            const uint8_t* s = across.row(std::clamp(y + k, 0, h - 1));
            for (int x = 0; x < w; ++x) o[x] = pick(o[x], s[x]);
        }
    }
}

}  // namespace

void runningMax(const Plane& in, Plane& out, int radius) {
    running(in, out, radius, [](uint8_t a, uint8_t b) { return std::max(a, b); });
}

void runningMin(const Plane& in, Plane& out, int radius) {
    running(in, out, radius, [](uint8_t a, uint8_t b) { return std::min(a, b); });
}

LocalLevels measureLocalLevels(const Plane& gray, int cell, int radius) {
    LocalLevels L;
    L.cell = cell;
    const int w = (gray.width + cell - 1) / cell, h = (gray.height + cell - 1) / cell;
    L.background = Plane(w, h);
    L.ink = Plane(w, h);
#pragma omp parallel for schedule(static)
    for (int cy = 0; cy < h; ++cy) {
        uint8_t* hi = L.background.row(cy);
        uint8_t* lo = L.ink.row(cy);
        std::fill(hi, hi + w, uint8_t(0));
        std::fill(lo, lo + w, uint8_t(255));
        const int y1 = std::min(gray.height, (cy + 1) * cell);
        for (int y = cy * cell; y < y1; ++y) {
            const uint8_t* g = gray.row(y);
            int c = 0;
            if (cell == 4)  // the usual cell, four columns at a time
                for (; (c + 1) * 4 <= gray.width; ++c) {
                    const uint8_t* q = g + 4 * c;
                    hi[c] = std::max({hi[c], q[0], q[1], q[2], q[3]});
                    lo[c] = std::min({lo[c], q[0], q[1], q[2], q[3]});
                }
            for (; c < w; ++c) {
                uint8_t a = hi[c], b = lo[c];
                for (int x = c * cell, x1 = std::min(gray.width, x + cell); x < x1; ++x)
                    a = std::max(a, g[x]), b = std::min(b, g[x]);
                hi[c] = a, lo[c] = b;
            }
        }
    }
    runningMax(L.background, L.background, radius);
    runningMin(L.background, L.background, radius);
    runningMin(L.ink, L.ink, radius);
    return L;
}

}  // namespace tavrin
