// Shared helpers of the encoder tests: test images, scratch files and a
// quiet libtiff.
#ifndef TAVRIN_TESTS_ENCODE_SUPPORT_H
#define TAVRIN_TESTS_ENCODE_SUPPORT_H

#include <tiffio.h>

#include <cstdint>
#include <string>
#include <vector>

#include "test_files.h"

namespace encode_test {

// Deterministic pseudo-random numbers (xorshift32).
struct Random {
    uint32_t state;
    explicit Random(uint32_t seed) : state(seed ? seed : 1) {}
    uint32_t next() {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    }
    uint32_t below(uint32_t n) { return next() % n; }
};

enum class Content { Blank, Black, TextLike, Random };

inline const char* contentName(Content c) {
    switch (c) {
    case Content::Blank: return "blank";
    case Content::Black: return "black";
    case Content::TextLike: return "text";
    default: return "random";
    }
}

inline size_t packedRowBytes(uint32_t width) { return (width + 7) / 8; }

inline void setPixel(std::vector<uint8_t>& packed, uint32_t width, uint32_t x, uint32_t y) {
    packed[y * packedRowBytes(width) + x / 8] |= uint8_t(0x80u >> (x % 8));
}

// A packed bi-level page (1 = black, MSB first). Padding bits are left 0.
inline std::vector<uint8_t> bilevelPage(uint32_t width, uint32_t height, Content content,
                                        uint32_t seed = 7) {
    std::vector<uint8_t> packed(packedRowBytes(width) * height, 0);
    Random rnd(seed);
    switch (content) {
    case Content::Blank:
        break;
    case Content::Black:
    case Content::Random:
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x)
                if (content == Content::Black || (rnd.next() & 1)) setPixel(packed, width, x, y);
        break;
    case Content::TextLike: {
        // Lines of "glyphs": strokes inside character cells, word gaps,
        // margins; scaled down for small images.
        const uint32_t cell = width >= 400 ? 24 : 6, lineHeight = cell * 2;
        const uint32_t margin = width >= 400 ? 150 : 1;
        for (uint32_t top = margin; top + lineHeight <= height; top += lineHeight + cell / 2) {
            for (uint32_t left = margin; left + cell <= width - (margin < width ? margin : 0);
                 left += cell) {
                if (rnd.below(6) == 0) continue;  // word gap
                const uint32_t strokes = 1 + rnd.below(3), pen = cell >= 24 ? 3 : 1;
                for (uint32_t s = 0; s < strokes; ++s) {
                    const bool vertical = rnd.next() & 1;
                    const uint32_t at = rnd.below(cell - pen);
                    for (uint32_t a = 0; a < (vertical ? lineHeight : cell - 2); ++a)
                        for (uint32_t p = 0; p < pen; ++p) {
                            const uint32_t x = vertical ? left + at + p : left + a;
                            const uint32_t y = vertical ? top + a : top + cell / 2 + at / 2 + p;
                            if (x < width && y < height) setPixel(packed, width, x, y);
                        }
                }
            }
        }
        break;
    }
    }
    return packed;
}

// A smooth gray or RGB test picture with some detail.
inline std::vector<uint8_t> continuousTone(uint32_t width, uint32_t height, int components,
                                           uint32_t seed = 3) {
    std::vector<uint8_t> px(size_t(width) * height * components);
    Random rnd(seed);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            for (int c = 0; c < components; ++c) {
                int v = int((x * (3 + c) + y * (5 - c)) % 256);
                v = v / 2 + 64 + int(rnd.below(9)) - 4;
                px[(size_t(y) * width + x) * components + c] = uint8_t(v);
            }
    return px;
}

// A directory of this test and process below TAVRIN_TEST_TMP.
inline std::string scratchDir(const std::string& tag) {
    return tavrin_test::scratchDir("encode_" + tag);
}

// Silences libtiff's handlers for the lifetime of the object.
class QuietTiff {
public:
    QuietTiff() : error_(TIFFSetErrorHandler(nullptr)), warning_(TIFFSetWarningHandler(nullptr)) {}
    ~QuietTiff() {
        TIFFSetErrorHandler(error_);
        TIFFSetWarningHandler(warning_);
    }

private:
    TIFFErrorHandler error_, warning_;
};

}  // namespace encode_test

#endif
