// One compressed page as the library's encoders produced it, ready to be
// stored in a PDF: a low-resolution background and flat tints under the
// pictures, each an image of its own, under the text masks.
#ifndef TAVRIN_APP_ENCODED_PAGE_H
#define TAVRIN_APP_ENCODED_PAGE_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "pipeline/rect.h"

namespace tavrin {

// A JPEG image drawn over `box` (page pixels, inclusive).
struct EncodedImage {
    std::string data;          // JPEG, or zlib-wrapped JPEG when flate
    bool flate = false;
    int width = 0, height = 0, channels = 1;  // of the JPEG
    Rect box;
    int quality = 0;           // JPEG quality actually used
    size_t jpegBytes = 0;      // before any Flate wrapping
};

// A bi-level mask over the whole page, painted in one colour.
struct EncodedLayer {
    std::string mmr;                  // T.6 stream
    int width = 0, height = 0;        // of the mask (its own resolution)
    std::array<uint8_t, 3> colour{};  // RGB the mask is painted in
    uint64_t pixels = 0;              // set pixels of the mask
};

// A rectangle filled with one colour (a flat tint), drawn over the background.
struct Fill {
    Rect box;                         // page pixels, inclusive
    std::array<uint8_t, 3> colour{};  // RGB
};

struct EncodedPage {
    int width = 0, height = 0;        // page pixels
    double dpiX = 300, dpiY = 300;    // fixes the page size in the PDF
    EncodedImage background;          // covers the whole page
    std::vector<Fill> fills;          // over the background, under the pictures
    std::vector<EncodedImage> pictures;
    std::vector<EncodedLayer> layers; // painted in this order, over the pictures

    size_t bytes() const {
        size_t n = background.data.size();
        for (const EncodedImage& p : pictures) n += p.data.size();
        for (const EncodedLayer& l : layers) n += l.mmr.size();
        return n;
    }
};

}  // namespace tavrin

#endif
