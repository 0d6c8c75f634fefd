// The library's encoders, called with buffers sized from true worst cases
// and with every status turned into a message that names the page and the
// step.
#ifndef TAVRIN_APP_LAYER_ENCODERS_H
#define TAVRIN_APP_LAYER_ENCODERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "pipeline/encoded_page.h"
#include "pipeline/page.h"

namespace tavrin {

// Largest T.6 stream a width x height image can produce, per row: a
// vertical-mode code is at most 7 bits and codes at least one pixel; a
// horizontal-mode code spends at most 6 bits per pixel (3 + 6 + 3 bits for a
// one-pixel white and a one-pixel black run, less for longer runs) plus at
// most 14 bits once per row for a zero-length first run; pass-mode codes are
// 4 bits per two changes of the reference row. So 7 (width + 1) + 14 +
// 2 (width + 1) <= 9 width + 25 bits per row, plus the 24-bit end of
// facsimile block and the final byte padding.
size_t mmrWorstCaseBytes(int width, int height);

// T.6 (MMR) bytes of a packed image through Tavrin_bwToMmr.
std::string encodeMmr(std::vector<uint8_t>& packed, int width, int height, uint16_t xReso,
                      uint16_t yReso, const std::string& what);

// Baseline JPEG of a gray or RGB image through Tavrin_MakeJPGStream. The
// library writes into a buffer of exactly width * height * components
// bytes; when a stream (of a tiny or very noisy image) does not fit, the
// quality is lowered in steps of 10 and `usedQuality` tells what was used.
std::string encodeJpeg(const Page& image, int quality, int chromaOffset, int sampling,
                       const std::string& what, int* usedQuality);

struct JpegSettings {
    int chromaOffset = 0;  // chrominance quality = quality + offset
    int sampling = 0;      // Tavrin_MakeJPGStream's sampling mode
    bool flate = false;    // wrap the stream in Flate
};

// An image as a JPEG (through encodeJpeg, then wrapFlate when asked). An
// image too small for the library's buffer to hold the JPEG headers is
// enlarged by pixel repetition first; `width` and `height` tell the size
// coded.
EncodedImage encodeImage(const Page& image, int quality, const JpegSettings& settings, const std::string& what);

// The JPEG stream wrapped in zlib (Flate) through Tavrin_jpgToflate, with
// room for zlib's own worst case.
std::string wrapFlate(const std::string& jpeg, const std::string& what);

// 1/100 dpi as the library's records carry it (at most 655.35 dpi).
uint16_t resolutionField100(double dpi);

}  // namespace tavrin

#endif
