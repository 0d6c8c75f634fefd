#include "pipeline/page.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace tavrin {

namespace {

constexpr size_t kHugePage = size_t(2) << 20;
constexpr size_t kHugeFrom = size_t(4) << 20;  // smaller blocks come from the heap

}  // namespace

void* allocatePageMemory(size_t bytes) {
    if (bytes < kHugeFrom) return ::operator new(bytes);
    const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    void* p = std::aligned_alloc(kHugePage, rounded);
    if (!p) throw std::bad_alloc();
    madvise(p, rounded, MADV_HUGEPAGE);  // advice only; failure is harmless
    return p;
}

void releasePageMemory(void* p, size_t bytes) {
    if (bytes < kHugeFrom)
        ::operator delete(p);
    else
        std::free(p);
}

Plane grayOf(const Page& page) {
    Plane g(page.width, page.height);
    if (page.channels == 1) {
        g.data = page.pixels;
        return g;
    }
    const size_t n = page.pixelCount();
    const uint8_t* s = page.pixels.data();
    uint8_t* d = g.data.data();
    // 77/150/29 sum to 256: white stays 255.
#pragma omp parallel for schedule(static)
    for (size_t i = 0; i < n; ++i)
        d[i] = uint8_t((77u * s[3 * i] + 150u * s[3 * i + 1] + 29u * s[3 * i + 2] + 128u) >> 8);
    return g;
}

namespace {

// Block means over interleaved rows of `channels` samples per pixel.
void reduceRows(const uint8_t* src, int w, int h, int channels, int factor, uint8_t* dst) {
    const int w2 = (w + factor - 1) / factor, h2 = (h + factor - 1) / factor;
    std::vector<uint32_t> acc(size_t(w2) * channels);
    for (int by = 0; by < h2; ++by) {
        std::fill(acc.begin(), acc.end(), 0u);
        const int y0 = by * factor, y1 = std::min(h, y0 + factor);
        for (int y = y0; y < y1; ++y) {
            const uint8_t* s = src + size_t(y) * w * channels;
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < channels; ++c) acc[size_t(x / factor) * channels + c] += s[size_t(x) * channels + c];
        }
        uint8_t* d = dst + size_t(by) * w2 * channels;
        for (int bx = 0; bx < w2; ++bx) {
            const int x0 = bx * factor, x1 = std::min(w, x0 + factor);
            const uint32_t count = uint32_t((x1 - x0) * (y1 - y0));
            for (int c = 0; c < channels; ++c)
                d[size_t(bx) * channels + c] = uint8_t((acc[size_t(bx) * channels + c] + count / 2) / count);
        }
    }
}

}  // namespace

// 2 x 2 means, the common case (the attribute map's half resolution).
Plane halvePlane(const Plane& src) {
    Plane d((src.width + 1) / 2, (src.height + 1) / 2);
    const int fullW = src.width / 2;
#pragma omp parallel for schedule(static)
    for (int y = 0; y < d.height; ++y) {
        const uint8_t* a = src.row(2 * y);
        const uint8_t* b = src.row(std::min(2 * y + 1, src.height - 1));
        uint8_t* o = d.row(y);
        for (int x = 0; x < fullW; ++x)
            o[x] = uint8_t((a[2 * x] + a[2 * x + 1] + b[2 * x] + b[2 * x + 1] + 2) >> 2);
        if (fullW < d.width) o[fullW] = uint8_t((a[2 * fullW] + b[2 * fullW] + 1) >> 1);
    }
    return d;
}

Plane reducePlane(const Plane& src, int factor) {
    if (factor <= 1) return src;
    if (factor == 2) return halvePlane(src);
    Plane d((src.width + factor - 1) / factor, (src.height + factor - 1) / factor);
    reduceRows(src.data.data(), src.width, src.height, 1, factor, d.data.data());
    return d;
}

Page reducePage(const Page& src, int factor) {
    if (factor <= 1) return src;
    Page d;
    d.width = (src.width + factor - 1) / factor;
    d.height = (src.height + factor - 1) / factor;
    d.channels = src.channels;
    d.dpiX = src.dpiX / factor;
    d.dpiY = src.dpiY / factor;
    d.pixels.resize(d.pixelCount() * d.channels);
    reduceRows(src.pixels.data(), src.width, src.height, src.channels, factor, d.pixels.data());
    return d;
}

}  // namespace tavrin
