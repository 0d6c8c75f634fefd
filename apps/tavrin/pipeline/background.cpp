#include "pipeline/background.h"

#include <algorithm>

namespace tavrin {

namespace {

// A level of the fill pyramid: per pixel the channel sums and the weight
// (number of page pixels behind them); weight 0 is a hole.
struct Level {
    int width = 0, height = 0, channels = 1;
    std::vector<float, DefaultInitAllocator<float>> sum;
    std::vector<float, DefaultInitAllocator<float>> weight;
};

Level coarser(const Level& f) {
    Level c;
    c.width = (f.width + 1) / 2;
    c.height = (f.height + 1) / 2;
    c.channels = f.channels;
    c.sum.assign(size_t(c.width) * c.height * c.channels, 0.f);
    c.weight.assign(size_t(c.width) * c.height, 0.f);
    for (int y = 0; y < f.height; ++y)
        for (int x = 0; x < f.width; ++x) {
            const size_t i = size_t(y) * f.width + x, j = size_t(y / 2) * c.width + x / 2;
            c.weight[j] += f.weight[i];
            for (int k = 0; k < f.channels; ++k) c.sum[j * c.channels + k] += f.sum[i * f.channels + k];
        }
    return c;
}

// Gives every hole of `f` the mean of the nearest coarser level that has
// data there; returns per-pixel means in `mean`.
void fillHoles(const Level& f, std::vector<float, DefaultInitAllocator<float>>& mean) {
    const size_t n = size_t(f.width) * f.height;
    mean.assign(n * f.channels, 255.f);
    bool holes = false;
    for (size_t i = 0; i < n; ++i) {
        if (f.weight[i] > 0) {
            for (int k = 0; k < f.channels; ++k) mean[i * f.channels + k] = f.sum[i * f.channels + k] / f.weight[i];
        } else {
            holes = true;
        }
    }
    if (!holes || (f.width == 1 && f.height == 1)) return;  // a page with no paper at all stays white
    const Level c = coarser(f);
    std::vector<float, DefaultInitAllocator<float>> coarseMean;
    fillHoles(c, coarseMean);
    for (int y = 0; y < f.height; ++y)
        for (int x = 0; x < f.width; ++x) {
            const size_t i = size_t(y) * f.width + x;
            if (f.weight[i] > 0) continue;
            const size_t j = size_t(y / 2) * c.width + x / 2;
            for (int k = 0; k < f.channels; ++k) mean[i * f.channels + k] = coarseMean[j * c.channels + k];
        }
}

// Sums of the paper pixels of one row of blocks (CH channels).
template <int CH>
void accumulateBlockRow(const Page& page, const InkBands& ink, int factor, int by, Level& base) {
    const uint8_t paper = uint8_t(ink.count);
    std::vector<uint32_t> sum(size_t(base.width) * CH, 0u), weight(base.width, 0u);
    const int y1 = std::min(page.height, (by + 1) * factor);
    for (int y = by * factor; y < y1; ++y) {
        const uint8_t* s = page.row(y);
        const uint8_t* b = ink.band.row(y);
        for (int bx = 0; bx < base.width; ++bx) {
            const int x0 = bx * factor, x1 = std::min(page.width, x0 + factor);
            uint32_t w = 0, acc[CH] = {};
            for (int x = x0; x < x1; ++x) {
                const uint32_t keep = b[x] == paper;
                w += keep;
                for (int k = 0; k < CH; ++k) acc[k] += keep * s[x * CH + k];
            }
            weight[bx] += w;
            for (int k = 0; k < CH; ++k) sum[size_t(bx) * CH + k] += acc[k];
        }
    }
    for (int bx = 0; bx < base.width; ++bx) {
        const size_t i = size_t(by) * base.width + bx;
        base.weight[i] = float(weight[bx]);
        for (int k = 0; k < CH; ++k) base.sum[i * CH + k] = float(sum[size_t(bx) * CH + k]);
    }
}

}  // namespace

Page buildBackground(const Page& page, const InkBands& ink, int factor) {
    const int ch = page.channels;
    Level base;
    base.width = (page.width + factor - 1) / factor;
    base.height = (page.height + factor - 1) / factor;
    base.channels = ch;
    base.sum.resize(size_t(base.width) * base.height * ch);
    base.weight.resize(size_t(base.width) * base.height);
#pragma omp parallel for schedule(static)
    for (int by = 0; by < base.height; ++by) {
        if (ch == 3)
            accumulateBlockRow<3>(page, ink, factor, by, base);
        else
            accumulateBlockRow<1>(page, ink, factor, by, base);
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
    for (size_t i = 0; i < mean.size(); ++i) bg.pixels[i] = uint8_t(std::clamp(mean[i] + 0.5f, 0.f, 255.f));
    return bg;
}

BandColours measureBandColours(const Page& page, const InkBands& ink) {
    const int ch = page.channels;
    std::vector<uint64_t> sums(size_t(ink.count) * 3, 0), counts(ink.count, 0);
    for (int y = 0; y < page.height; ++y) {
        const uint8_t* s = page.row(y);
        const uint8_t* b = ink.band.row(y);
        for (int x = 0; x < page.width; ++x) {
            const int band = b[x];
            if (band >= ink.count) continue;
            ++counts[band];
            for (int k = 0; k < ch; ++k) sums[size_t(band) * 3 + k] += s[size_t(x) * ch + k];
        }
    }
    BandColours out;
    out.colour.resize(ink.count);
    out.pixels = counts;
    for (int band = 0; band < ink.count; ++band) {
        for (int k = 0; k < 3; ++k) {
            const uint64_t sum = sums[size_t(band) * 3 + (ch == 3 ? k : 0)];
            out.colour[band][k] = counts[band] ? uint8_t((sum + counts[band] / 2) / counts[band]) : 0;
        }
    }
    return out;
}

}  // namespace tavrin
