// One compressed page: the background JPEG and the foreground masks as the
// library produced them, ready to be stored in a PDF.
#ifndef TAVRIN_APP_ENCODED_PAGE_H
#define TAVRIN_APP_ENCODED_PAGE_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace tavrin {

struct EncodedLayer {
    std::string mmr;                  // T.6 stream of the whole page's mask
    std::array<uint8_t, 3> colour{};  // RGB the mask is painted in
    uint64_t bandPixels = 0;          // pixels that show this layer's colour
};

struct EncodedPage {
    int width = 0, height = 0;        // page pixels (also every mask's size)
    double dpiX = 300, dpiY = 300;    // fixes the page size in the PDF
    std::string background;           // JPEG, or zlib-wrapped JPEG when flate
    bool backgroundFlate = false;
    int backgroundWidth = 0, backgroundHeight = 0, backgroundChannels = 1;
    size_t backgroundJpegBytes = 0;   // before any Flate wrapping
    int backgroundQuality = 0;        // quality actually used
    std::vector<EncodedLayer> layers; // painted in this order, lightest first
};

}  // namespace tavrin

#endif
