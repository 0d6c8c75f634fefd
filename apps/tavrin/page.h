// A page image as read from a file: 8-bit gray or 8-bit RGB, rows without
// padding, with its resolution.
#ifndef TAVRIN_APP_PAGE_H
#define TAVRIN_APP_PAGE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tavrin {

// Sides above this cannot be described to the library (16-bit geometry).
constexpr int kMaxPageSide = 65535;

struct Page {
    int width = 0;
    int height = 0;
    int channels = 1;        // 1 gray, 3 RGB
    double dpiX = 0;         // 0 when the file names no resolution
    double dpiY = 0;
    std::vector<uint8_t> pixels;  // width * height * channels bytes

    size_t pixelCount() const { return size_t(width) * size_t(height); }
    const uint8_t* row(int y) const { return pixels.data() + size_t(y) * width * channels; }
    uint8_t* row(int y) { return pixels.data() + size_t(y) * width * channels; }
};

// An 8-bit single-channel plane.
struct Plane {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> data;

    Plane() = default;
    Plane(int w, int h, uint8_t fill = 0) : width(w), height(h), data(size_t(w) * h, fill) {}
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

}  // namespace tavrin

#endif
