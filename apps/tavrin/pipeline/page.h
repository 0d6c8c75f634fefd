// A page image as read from a file: 8-bit gray or 8-bit RGB, rows without
// padding, with its resolution.
#ifndef TAVRIN_APP_PAGE_H
#define TAVRIN_APP_PAGE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "pipeline/rect.h"

namespace tavrin {

// Memory for page-sized buffers: large blocks are aligned to 2 MiB and
// marked for transparent huge pages, so that first touching a page image
// costs one fault per 2 MiB instead of one per 4 KiB.
void* allocatePageMemory(size_t bytes);
void releasePageMemory(void* p, size_t bytes);

// Byte vectors that are not zero-filled on resize (pixel buffers are always
// written in full; on large pages the filling costs as much as a step) and
// that live in page memory.
template <class T>
struct DefaultInitAllocator {
    using value_type = T;
    DefaultInitAllocator() = default;
    template <class U>
    DefaultInitAllocator(const DefaultInitAllocator<U>&) {}
    T* allocate(size_t n) { return static_cast<T*>(allocatePageMemory(n * sizeof(T))); }
    void deallocate(T* p, size_t n) { releasePageMemory(p, n * sizeof(T)); }
    template <class U>
    void construct(U* p) noexcept {
        ::new (static_cast<void*>(p)) U;
    }
    template <class U, class... Args>
    void construct(U* p, Args&&... args) {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
    template <class U>
    bool operator==(const DefaultInitAllocator<U>&) const { return true; }
    template <class U>
    bool operator!=(const DefaultInitAllocator<U>&) const { return false; }
};
using Bytes = std::vector<uint8_t, DefaultInitAllocator<uint8_t>>;

// Sides above this cannot be described to the library (16-bit geometry).
constexpr int kMaxPageSide = 65535;

struct Page {
    int width = 0;
    int height = 0;
    int channels = 1;        // 1 gray, 3 RGB
    double dpiX = 0;         // 0 when the file names no resolution
    double dpiY = 0;
    Bytes pixels;  // width * height * channels bytes

    size_t pixelCount() const { return size_t(width) * size_t(height); }
    const uint8_t* row(int y) const { return pixels.data() + size_t(y) * width * channels; }
    uint8_t* row(int y) { return pixels.data() + size_t(y) * width * channels; }
};

// An 8-bit single-channel plane.
struct Plane {
    int width = 0;
    int height = 0;
    Bytes data;

    Plane() = default;
    Plane(int w, int h) : width(w), height(h), data(size_t(w) * h) {}  // contents undefined
    Plane(int w, int h, uint8_t fill) : width(w), height(h), data(size_t(w) * h, fill) {}
    uint8_t* row(int y) { return data.data() + size_t(y) * width; }
    const uint8_t* row(int y) const { return data.data() + size_t(y) * width; }
};

// Luma of the page (ITU-R BT.601 weights in 8-bit fixed point); a gray page
// is copied.
Plane grayOf(const Page& page);

// Mean of each factor x factor block (partial blocks at the right and bottom
// edges average what they hold).
Plane reducePlane(const Plane& src, int factor);
Page reducePage(const Page& src, int factor);

// The pixels of `box` (inclusive, clipped to the page) as a page of their own.
Page cropPage(const Page& src, const Rect& box);

// Bilinear enlargement of a side of `coarseSize` samples to `fineSize`, the
// samples' centres aligned as a viewer draws an image: per fine position the
// two coarse positions it lies between and the second's weight in 1/256.
struct BilinearTaps {
    BilinearTaps(int fineSize, int coarseSize);
    std::vector<int> first, second, weight;
};

// Area-weighted resampling to any smaller size (each output pixel is the
// mean of the source area it covers); also for pages of 1 or 3 channels.
Plane resizePlane(const Plane& src, int width, int height);
Page resizePage(const Page& src, int width, int height);

}  // namespace tavrin

#endif
