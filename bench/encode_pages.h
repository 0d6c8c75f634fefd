// Test pages for the encoder benchmarks: an A4 page at 300 dpi (2480 x 3508)
// of text-like bi-level content, and gray and colour scans of a page.
#ifndef TAVRIN_BENCH_ENCODE_PAGES_H
#define TAVRIN_BENCH_ENCODE_PAGES_H

#include <cstdint>
#include <vector>

namespace bench_pages {

constexpr uint32_t kA4Width = 2480, kA4Height = 3508;

inline uint32_t hash(uint32_t x) {
    x ^= x >> 16;
    x *= 0x7feb352dU;
    x ^= x >> 15;
    x *= 0x846ca68bU;
    x ^= x >> 16;
    return x;
}

// Packed bi-level (1 = black, MSB first): 40-pixel text lines of glyphs made
// of 3-pixel strokes in 24-pixel cells, word gaps, 150-pixel margins.
inline std::vector<uint8_t> textPage(uint32_t width, uint32_t height) {
    const uint32_t row = (width + 7) / 8;
    std::vector<uint8_t> packed(size_t(row) * height, 0);
    auto set = [&](uint32_t x, uint32_t y) {
        if (x < width && y < height) packed[size_t(y) * row + x / 8] |= uint8_t(0x80u >> (x % 8));
    };
    const uint32_t cell = 24, lineHeight = 40, margin = 150;
    uint32_t n = 1;
    for (uint32_t top = margin; top + lineHeight + margin <= height; top += lineHeight + 20)
        for (uint32_t left = margin; left + cell + margin <= width; left += cell) {
            if (hash(++n) % 6 == 0) continue;  // word gap
            const uint32_t strokes = 1 + hash(++n) % 3;
            for (uint32_t s = 0; s < strokes; ++s) {
                const bool vertical = hash(++n) & 1;
                const uint32_t at = hash(++n) % (cell - 3);
                for (uint32_t a = 0; a < (vertical ? 32u : cell - 4); ++a)
                    for (uint32_t p = 0; p < 3; ++p)
                        vertical ? set(left + at + p, top + 4 + a) : set(left + a, top + 8 + at + p);
            }
        }
    return packed;
}

// A scanned-looking continuous-tone page: paper, gradients and grain.
inline std::vector<uint8_t> tonePage(uint32_t width, uint32_t height, int components) {
    std::vector<uint8_t> px(size_t(width) * height * components);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            for (int c = 0; c < components; ++c) {
                int v = 200 + int((x / 7 + y / 5 + 40 * c) % 50) - int(hash(y * width + x + c) % 13);
                if ((x / 300 + y / 400) % 3 == 0) v = int((x * (c + 1) + y * 2) % 256);  // "photos"
                px[(size_t(y) * width + x) * components + c] = uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
            }
    return px;
}

}  // namespace bench_pages

#endif
