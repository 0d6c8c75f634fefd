#include "pipeline/background.h"

#include <algorithm>
#include <cmath>

#include "pipeline/local_levels.h"
#include "pipeline/components.h"

namespace tavrin {

namespace {

// A level of the fill pyramid: per pixel the channel sums and the weight
// (number of page pixels behind them); weight 0 is a hole.
struct Level {
    int width = 0, height = 0, channels = 1;
    std::vector<float, DefaultInitAllocator<float>> sum;
    std::vector<float, DefaultInitAllocator<float>> weight;
};

// Sums of 2 x 2 pixels, gathered in the raster order of the finer level
// (the same float sums as adding each fine pixel into its coarse one in turn).
Level coarser(const Level& f) {
    Level c;
    c.width = (f.width + 1) / 2;
    c.height = (f.height + 1) / 2;
    c.channels = f.channels;
    c.sum.resize(size_t(c.width) * c.height * c.channels);
    c.weight.resize(size_t(c.width) * c.height);
#pragma omp parallel for schedule(static)
    for (int cy = 0; cy < c.height; ++cy)
        for (int cx = 0; cx < c.width; ++cx) {
            const size_t j = size_t(cy) * c.width + cx;
            float weight = 0.f, sum[3] = {0.f, 0.f, 0.f};
            for (int y = 2 * cy; y < std::min(f.height, 2 * cy + 2); ++y)
                for (int x = 2 * cx; x < std::min(f.width, 2 * cx + 2); ++x) {
                    const size_t i = size_t(y) * f.width + x;
                    weight += f.weight[i];
                    for (int k = 0; k < f.channels; ++k) sum[k] += f.sum[i * f.channels + k];
                }
            c.weight[j] = weight;
            for (int k = 0; k < c.channels; ++k) c.sum[j * c.channels + k] = sum[k];
        }
    return c;
}

// Gives every hole of `f` the mean of the nearest coarser level that has
// data there; returns per-pixel means in `mean`.
void fillHoles(const Level& f, std::vector<float, DefaultInitAllocator<float>>& mean) {
    const size_t n = size_t(f.width) * f.height;
    mean.resize(n * f.channels);
    bool holes = false;
#pragma omp parallel for schedule(static) reduction(|| : holes)
    for (size_t i = 0; i < n; ++i) {
        if (f.weight[i] > 0) {
            for (int k = 0; k < f.channels; ++k) mean[i * f.channels + k] = f.sum[i * f.channels + k] / f.weight[i];
        } else {
            for (int k = 0; k < f.channels; ++k) mean[i * f.channels + k] = 255.f;
            holes = true;
        }
    }
    if (!holes || (f.width == 1 && f.height == 1)) return;  // a page with no paper at all stays white
    const Level c = coarser(f);
    std::vector<float, DefaultInitAllocator<float>> coarseMean;
    fillHoles(c, coarseMean);
#pragma omp parallel for schedule(static)
    for (int y = 0; y < f.height; ++y)
        for (int x = 0; x < f.width; ++x) {
            const size_t i = size_t(y) * f.width + x;
            if (f.weight[i] > 0) continue;
            const size_t j = size_t(y / 2) * c.width + x / 2;
            for (int k = 0; k < f.channels; ++k) mean[i * f.channels + k] = coarseMean[j * c.channels + k];
        }
}

// A thread's rows for summing blocks: the kept pixels of a page row and
// the sums down the block row so far, per column (and channel).
struct BlockRowScratch {
    std::vector<uint8_t> keep;
    std::vector<uint32_t> columnWeight, columnSum;
};

// Sums of the usable pixels of one row of blocks of `area`, the excluded
// rectangles left out: first down the columns, in loops along whole rows,
// then across each block.
template <int CH>
void accumulateBlockRow(const Page& page, const Plane& usable, const std::vector<Rect>& excluded, const Rect& area,
                        int factor, int by, Level& base, BlockRowScratch& scratch) {
    const int width = area.width();
    std::vector<uint8_t>& keep = scratch.keep;
    std::vector<uint32_t>& weight = scratch.columnWeight;
    std::vector<uint32_t>& sum = scratch.columnSum;
    keep.resize(width);
    weight.assign(width, 0u);
    sum.assign(size_t(width) * CH, 0u);
    const int y1 = std::min(area.height(), (by + 1) * factor);
    for (int y = by * factor; y < y1; ++y) {
        const int py = area.y0 + y;
        const uint8_t* u = usable.row(py) + area.x0;
        std::copy(u, u + width, keep.begin());
        for (const Rect& r : excluded) {
            const Rect c = r.intersect(area);
            if (!c.empty() && py >= c.y0 && py <= c.y1)
                std::fill(keep.begin() + (c.x0 - area.x0), keep.begin() + (c.x1 - area.x0 + 1), uint8_t(0));
        }
        const uint8_t* s = page.row(py) + size_t(area.x0) * CH;
        for (int x = 0; x < width; ++x) weight[x] += keep[x];
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < CH; ++c) sum[size_t(x) * CH + c] += uint32_t(keep[x]) * s[size_t(x) * CH + c];
    }
    for (int bx = 0; bx < base.width; ++bx) {
        const int x0 = bx * factor, x1 = std::min(width, x0 + factor);
        uint32_t w = 0, acc[CH] = {};
        for (int x = x0; x < x1; ++x) {
            w += weight[x];
            for (int c = 0; c < CH; ++c) acc[c] += sum[size_t(x) * CH + c];
        }
        const size_t i = size_t(by) * base.width + bx;
        base.weight[i] = float(w);
        for (int c = 0; c < CH; ++c) base.sum[i * CH + c] = float(acc[c]);
    }
}

Page halved(const Page& p) {
    Page h;
    h.width = (p.width + 1) / 2;
    h.height = (p.height + 1) / 2;
    h.channels = p.channels;
    h.dpiX = p.dpiX / 2;
    h.dpiY = p.dpiY / 2;
    h.pixels.resize(h.pixelCount() * h.channels);
    const int ch = p.channels;
#pragma omp parallel for schedule(static)
    for (int y = 0; y < h.height; ++y) {
        const uint8_t* a = p.row(2 * y);
        const uint8_t* b = p.row(std::min(2 * y + 1, p.height - 1));
        uint8_t* o = h.row(y);
        for (int x = 0; x < h.width; ++x) {
            const int x0 = 2 * x, x1 = std::min(2 * x + 1, p.width - 1);
            for (int c = 0; c < ch; ++c)
                o[x * ch + c] = uint8_t((a[x0 * ch + c] + a[x1 * ch + c] + b[x0 * ch + c] + b[x1 * ch + c] + 2) >> 2);
        }
    }
    return h;
}

// Whether `coarse`, bilinearly enlarged to the size of `fine`, stays within
// `tolerance` of it everywhere but in spots (8-connected groups of pixels
// beyond it) that fit in a square of `maxSpot` pixels, and where `hidden`
// (if any) is set.
bool enlargesWithin(const Page& coarse, const Page& fine, int tolerance, int maxSpot, const Plane* hidden) {
    const int ch = fine.channels;
    const BilinearTaps across(fine.width, coarse.width), down(fine.height, coarse.height);
    const int limit = tolerance << 16;
    Plane beyond(fine.width, fine.height, 0);
    bool any = false;
    // Rows side by side; without spots allowed the first pixel beyond ends
    // the row, and the answer.
#pragma omp parallel for schedule(static) reduction(|| : any)
    for (int y = 0; y < fine.height; ++y) {
        const uint8_t* a = coarse.row(down.first[y]);
        const uint8_t* b = coarse.row(down.second[y]);
        const uint8_t* f = fine.row(y);
        const int wy = down.weight[y];
        const uint8_t* covered = hidden ? hidden->row(y) : nullptr;
        for (int x = 0; x < fine.width; ++x) {
            if (covered && covered[x]) continue;
            const int i0 = across.first[x] * ch, i1 = across.second[x] * ch, wx = across.weight[x];
            for (int c = 0; c < ch; ++c) {
                const int top = a[i0 + c] * (256 - wx) + a[i1 + c] * wx;
                const int bottom = b[i0 + c] * (256 - wx) + b[i1 + c] * wx;
                if (std::abs(top * (256 - wy) + bottom * wy - (f[x * ch + c] << 16)) > limit)
                    beyond.row(y)[x] = 1, any = true;
            }
            if (any && maxSpot <= 0) break;
        }
    }
    if (!any) return true;
    if (maxSpot <= 0) return false;
    const Components spots = findComponents(beyond);
    return std::all_of(spots.boxes.begin(), spots.boxes.end(),
                       [&](const Rect& b) { return b.width() <= maxSpot && b.height() <= maxSpot; });
}

}  // namespace

Plane coveredPixels(int width, int height, int factor, const std::vector<Rect>& covers) {
    Plane out(width, height, 0);
    for (const Rect& r : covers) {
        // First and last background pixels whose blocks start and end inside r.
        const int x0 = (r.x0 + factor - 1) / factor, x1 = std::min(width, (r.x1 + 1) / factor) - 1;
        const int y0 = (r.y0 + factor - 1) / factor, y1 = std::min(height, (r.y1 + 1) / factor) - 1;
        for (int y = std::max(0, y0); y <= y1; ++y)
            for (int x = std::max(0, x0); x <= x1; ++x) out.row(y)[x] = 1;
    }
    return out;
}

int coarsenWhileFaithful(Page& bg, int tolerance, int maxHalvings, int maxSpot, const Plane* hidden) {
    // Each halving is held against the original, so that errors cannot add up.
    Page coarse = bg;
    int made = 0;
    while (made < maxHalvings && coarse.width > 1 && coarse.height > 1) {
        Page half = halved(coarse);
        if (!enlargesWithin(half, bg, tolerance, maxSpot, hidden)) break;
        coarse = std::move(half);
        ++made;
    }
    if (made > 0) bg = std::move(coarse);
    return made;
}

Plane backgroundPixels(const Plane& gray, const Plane& ink, const LocalLevels& levels, int tolerance) {
    Plane usable;
    runningMax(ink, usable, 1);
    // The background level of each pixel's cell, spread over a row once.
    std::vector<int> cellOf(gray.width);
    for (int x = 0; x < gray.width; ++x) cellOf[x] = std::min(levels.background.width - 1, x / levels.cell);
#pragma omp parallel
    {
        std::vector<uint8_t> floor(gray.width);
        int floorRow = -1;
#pragma omp for schedule(static)
        for (int y = 0; y < gray.height; ++y) {
            const int cellRow = std::min(levels.background.height - 1, y / levels.cell);
            if (cellRow != floorRow) {
                const uint8_t* b = levels.background.row(cellRow);
                for (int x = 0; x < gray.width; ++x) floor[x] = uint8_t(std::max(0, b[cellOf[x]] - tolerance));
                floorRow = cellRow;
            }
            const uint8_t* g = gray.row(y);
            uint8_t* u = usable.row(y);
            for (int x = 0; x < gray.width; ++x) u[x] = uint8_t(!u[x] & (g[x] >= floor[x]));
        }
    }
    return usable;
}

Page buildBackground(const Page& page, const Plane& usable, const std::vector<Rect>& excluded, const Rect& wanted,
                     int factor, const PaperMap& paper, int flatten, BlockMeans* blocks) {
    const int ch = page.channels;
    const Rect area = wanted.intersect({0, 0, page.width - 1, page.height - 1});
    Level base;
    base.width = (area.width() + factor - 1) / factor;
    base.height = (area.height() + factor - 1) / factor;
    base.channels = ch;
    base.sum.resize(size_t(base.width) * base.height * ch);
    base.weight.resize(size_t(base.width) * base.height);
#pragma omp parallel
    {
        BlockRowScratch scratch;
#pragma omp for schedule(static)
        for (int by = 0; by < base.height; ++by) {
            if (ch == 3)
                accumulateBlockRow<3>(page, usable, excluded, area, factor, by, base, scratch);
            else
                accumulateBlockRow<1>(page, usable, excluded, area, factor, by, base, scratch);
        }
    }
    std::vector<float, DefaultInitAllocator<float>> mean;
    fillHoles(base, mean);
    Page bg;
    bg.width = base.width;
    bg.height = base.height;
    bg.channels = ch;
    bg.dpiX = page.dpiX / factor;
    bg.dpiY = page.dpiY / factor;
    bg.pixels.resize(mean.size());
    if (blocks) {
        blocks->means = bg;
#pragma omp parallel for schedule(static)
        for (size_t i = 0; i < mean.size(); ++i) blocks->means.pixels[i] = uint8_t(std::clamp(mean[i] + 0.5f, 0.f, 255.f));
        blocks->known = Plane(bg.width, bg.height);
        for (size_t i = 0; i < blocks->known.data.size(); ++i) blocks->known.data[i] = base.weight[i] > 0;
    }
    // Blocks whose centre lies on the page; the last may reach past it.
    int centred = 0;
    while (centred < bg.width && area.x0 + centred * factor + factor / 2 <= area.x1) ++centred;
#pragma omp parallel
    {
        std::vector<uint8_t> paperLevels(bg.width);
#pragma omp for schedule(static) nowait
        for (int y = 0; y < bg.height; ++y) {
            const int py = std::min(area.y1, area.y0 + y * factor + factor / 2);
            // The paper's level at each block's centre, along the row at once.
            paper.grayAlong(py, area.x0 + factor / 2, factor, centred, paperLevels.data());
            for (int x = centred; x < bg.width; ++x) paperLevels[x] = uint8_t(paper.grayAt(area.x1, py));
            for (int x = 0; x < bg.width; ++x) {
                const size_t i = (size_t(y) * bg.width + x) * ch;
                const int px = std::min(area.x1, area.x0 + x * factor + factor / 2);
                const std::array<uint8_t, 3> paperHere = paper.colourAt(px, py, ch, paperLevels[x]);
                // Within `flatten` of the paper: paper; beyond twice that: the
                // block itself; a blend between, so no edge appears.
                float want[3], off = 0;
                for (int c = 0; c < ch; ++c) {
                    want[c] = float(paperHere[c]);
                    off = std::max(off, std::abs(mean[i + c] - want[c]));
                }
                // Paper, the common case, without the division: off / flatten
                // is at most 1 exactly when off is at most flatten.
                if (flatten > 0 && off <= float(flatten)) {
                    for (int c = 0; c < ch; ++c) bg.pixels[i + c] = paperHere[c];
                    continue;
                }
                const float keepShare = flatten > 0 ? std::clamp(off / flatten - 1.f, 0.f, 1.f) : 1.f;
                for (int c = 0; c < ch; ++c)
                    bg.pixels[i + c] =
                        uint8_t(std::clamp(want[c] + (mean[i + c] - want[c]) * keepShare + 0.5f, 0.f, 255.f));
            }
        }
    }
    return bg;
}

}  // namespace tavrin
