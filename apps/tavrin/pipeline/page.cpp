#include "pipeline/page.h"

#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <mutex>
#include <new>

namespace tavrin {

namespace {

constexpr size_t kHugePage = size_t(2) << 20;
constexpr size_t kHugeFrom = size_t(4) << 20;  // smaller blocks come from the heap

}  // namespace

namespace {

// Large blocks given back are kept for the next request of a similar size:
// a fresh block costs the kernel a zero-filled page per touch, which on a
// page of planes was a third of the run.
constexpr size_t kMaxCachedBytes = size_t(768) << 20;

struct BlockCache {
    std::mutex lock;
    std::multimap<size_t, void*> blocks;  // rounded size -> block
    size_t total = 0;
    ~BlockCache() {
        for (auto& b : blocks) std::free(b.second);
    }
};

BlockCache& cache() {
    static BlockCache c;
    return c;
}

size_t rounded(size_t bytes) { return (bytes + kHugePage - 1) / kHugePage * kHugePage; }

}  // namespace

void* allocatePageMemory(size_t bytes) {
    if (bytes < kHugeFrom) return ::operator new(bytes);
    const size_t size = rounded(bytes);
    {
        BlockCache& c = cache();
        std::lock_guard<std::mutex> hold(c.lock);
        // The smallest cached block that fits without wasting half of it.
        const auto it = c.blocks.lower_bound(size);
        if (it != c.blocks.end() && it->first <= 2 * size) {
            void* p = it->second;
            c.total -= it->first;
            c.blocks.erase(it);
            return p;
        }
    }
    void* p = std::aligned_alloc(kHugePage, size);
    if (!p) throw std::bad_alloc();
    madvise(p, size, MADV_HUGEPAGE);  // advice only; failure is harmless
    return p;
}

void releasePageMemory(void* p, size_t bytes) {
    if (bytes < kHugeFrom) {
        ::operator delete(p);
        return;
    }
    BlockCache& c = cache();
    // A reused block may be larger than this request; it is filed under the
    // request's size, which it surely has.
    const size_t size = rounded(bytes);
    std::lock_guard<std::mutex> hold(c.lock);
    if (c.total + size > kMaxCachedBytes) {
        std::free(p);
        return;
    }
    c.blocks.emplace(size, p);
    c.total += size;
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

// Block means over interleaved rows of `channels` samples per pixel; rows
// of blocks side by side.
void reduceRows(const uint8_t* src, int w, int h, int channels, int factor, uint8_t* dst) {
    const int w2 = (w + factor - 1) / factor, h2 = (h + factor - 1) / factor;
#pragma omp parallel
    {
        std::vector<uint32_t> acc(size_t(w2) * channels);
#pragma omp for schedule(static)
        for (int by = 0; by < h2; ++by) {
            std::fill(acc.begin(), acc.end(), 0u);
            const int y0 = by * factor, y1 = std::min(h, y0 + factor);
            for (int y = y0; y < y1; ++y) {
                // Block by block: no division per pixel.
                const uint8_t* s = src + size_t(y) * w * channels;
                uint32_t* a = acc.data();
                for (int x0 = 0; x0 < w; x0 += factor, a += channels) {
                    const uint8_t* end = s + size_t(std::min(factor, w - x0)) * channels;
                    for (; s < end; s += channels)
                        for (int c = 0; c < channels; ++c) a[c] += s[c];
                }
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
}

// The source pixels behind each output pixel of a line and their weights
// (16-bit fixed point summing to 65536).
struct AreaTaps {
    std::vector<int> first;       // per output pixel
    std::vector<int> count;       // per output pixel
    std::vector<uint32_t> weight; // count[i] entries per output pixel, in order
    std::vector<size_t> offset;   // into weight
};

AreaTaps areaTaps(int from, int to) {
    AreaTaps t;
    const double r = double(from) / to;
    for (int o = 0; o < to; ++o) {
        const double a = o * r, b = std::min(double(from), (o + 1) * r);
        const int i0 = int(a), i1 = std::min(from - 1, int(std::ceil(b)) - 1);
        t.first.push_back(i0);
        t.count.push_back(i1 - i0 + 1);
        t.offset.push_back(t.weight.size());
        uint32_t sum = 0;
        for (int i = i0; i <= i1; ++i) {
            const double cover = std::min(b, i + 1.0) - std::max(a, double(i));
            const uint32_t w = i == i1 ? 65536 - sum : uint32_t(std::lround(cover / (b - a) * 65536));
            t.weight.push_back(w);
            sum += w;
        }
    }
    return t;
}

// The taps along a row, every output pixel given the same number, so that
// the common cases run as fixed, unrolled loops: a pixel with fewer taps
// gets zero weights on its neighbours (which change no sum), its window
// moved left where it would pass the row's end.
struct RowTaps {
    int taps = 0;
    std::vector<uint32_t> start;   // per output pixel: first source sample
    std::vector<uint32_t> weight;  // taps per output pixel

    RowTaps(const AreaTaps& t, int from, int ch) {
        taps = *std::max_element(t.count.begin(), t.count.end());  // at most `from`
        const size_t n = t.first.size();
        start.resize(n), weight.assign(n * taps, 0);
        for (size_t x = 0; x < n; ++x) {
            const int first = std::min(t.first[x], from - taps);
            start[x] = uint32_t(first * ch);
            std::copy_n(t.weight.begin() + t.offset[x], t.count[x], weight.begin() + x * taps + (t.first[x] - first));
        }
    }

    template <int kCh, int kTaps>
    void run(const uint8_t* s, uint16_t* d, int w2) const {
        for (int x = 0; x < w2; ++x) {
            const uint8_t* p = s + start[x];
            const uint32_t* wt = weight.data() + size_t(x) * kTaps;
            for (int c = 0; c < kCh; ++c) {
                uint32_t acc = 128;
                for (int k = 0; k < kTaps; ++k) acc += wt[k] * p[k * kCh + c];
                d[x * kCh + c] = uint16_t(acc >> 8);
            }
        }
    }

    void apply(const uint8_t* s, uint16_t* d, int w2, int ch) const {
        if (ch == 1 && taps == 2) return run<1, 2>(s, d, w2);
        if (ch == 1 && taps == 3) return run<1, 3>(s, d, w2);
        if (ch == 3 && taps == 2) return run<3, 2>(s, d, w2);
        if (ch == 3 && taps == 3) return run<3, 3>(s, d, w2);
        for (int x = 0; x < w2; ++x) {
            const uint8_t* p = s + start[x];
            const uint32_t* wt = weight.data() + size_t(x) * taps;
            for (int c = 0; c < ch; ++c) {
                uint32_t acc = 128;
                for (int k = 0; k < taps; ++k) acc += wt[k] * p[size_t(k) * ch + c];
                d[size_t(x) * ch + c] = uint16_t(acc >> 8);
            }
        }
    }
};

// Rows first into 16-bit values (8 fractional bits), then columns. Each
// thread keeps only the few row results its output rows need, in a ring
// indexed by source row: a page-sized intermediate would cost more in fresh
// memory than the arithmetic. 32-bit sums suffice: weights sum to 65536 and
// 16-bit values are at most 255 * 256.
void resizeInterleaved(const uint8_t* src, int w, int h, int ch, uint8_t* dst, int w2, int h2) {
    const AreaTaps tx = areaTaps(w, w2), ty = areaTaps(h, h2);
    const size_t n = size_t(w2) * ch;
    const int window = *std::max_element(ty.count.begin(), ty.count.end());
    const RowTaps across(tx, w, ch);
    const auto resizeRow = [&](int y, uint16_t* d) { across.apply(src + size_t(y) * w * ch, d, w2, ch); };
#pragma omp parallel
    {
        std::vector<uint16_t> ring(n * window);
        std::vector<int> ringRow(window, -1);
        std::vector<uint32_t> acc(n);
#pragma omp for schedule(static)
        for (int y = 0; y < h2; ++y) {
            const uint32_t* wt = ty.weight.data() + ty.offset[y];
            std::fill(acc.begin(), acc.end(), uint32_t(1) << 23);
            for (int k = 0; k < ty.count[y]; ++k) {
                const int row = ty.first[y] + k, slot = row % window;
                uint16_t* m = ring.data() + size_t(slot) * n;
                if (ringRow[slot] != row) resizeRow(row, m), ringRow[slot] = row;
                for (size_t x = 0; x < n; ++x) acc[x] += wt[k] * m[x];
            }
            uint8_t* d = dst + size_t(y) * n;
            for (size_t x = 0; x < n; ++x) d[x] = uint8_t(std::min<uint32_t>(255, acc[x] >> 24));
        }
    }
}

}  // namespace

Page cropPage(const Page& src, const Rect& box) {
    const Rect r = box.intersect({0, 0, src.width - 1, src.height - 1});
    Page d;
    d.width = std::max(0, r.width()), d.height = std::max(0, r.height());
    d.channels = src.channels, d.dpiX = src.dpiX, d.dpiY = src.dpiY;
    d.pixels.resize(d.pixelCount() * d.channels);
    for (int y = 0; y < d.height; ++y)
        std::copy(src.row(r.y0 + y) + size_t(r.x0) * src.channels,
                  src.row(r.y0 + y) + size_t(r.x1 + 1) * src.channels, d.row(y));
    return d;
}

Plane resizePlane(const Plane& src, int width, int height) {
    if (width == src.width && height == src.height) return src;
    Plane d(width, height);
    resizeInterleaved(src.data.data(), src.width, src.height, 1, d.data.data(), width, height);
    return d;
}

BilinearTaps::BilinearTaps(int fineSize, int coarseSize) : first(fineSize), second(fineSize), weight(fineSize) {
    for (int i = 0; i < fineSize; ++i) {
        const double f = std::clamp((i + 0.5) * coarseSize / fineSize - 0.5, 0.0, double(coarseSize - 1));
        first[i] = int(f), second[i] = std::min(first[i] + 1, coarseSize - 1);
        weight[i] = int(std::lround((f - first[i]) * 256));
    }
}

Page resizePage(const Page& src, int width, int height) {
    if (width == src.width && height == src.height) return src;
    Page d;
    d.width = width, d.height = height, d.channels = src.channels;
    d.dpiX = src.dpiX * width / src.width;
    d.dpiY = src.dpiY * height / src.height;
    d.pixels.resize(d.pixelCount() * d.channels);
    resizeInterleaved(src.pixels.data(), src.width, src.height, src.channels, d.pixels.data(), width, height);
    return d;
}

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
