// Conversion between the one-byte-per-pixel and the packed one-bit-per-pixel
// forms of a bi-level image (packed: MSB first, 1 = black, rows of
// (width + 7) / 8 bytes; unpacked: 0 = black, non-zero = white).
#include <cstddef>

#include "TavrinImage.h"

namespace {

bool usable(const ImgTavrin* src, const ImgTavrin* dst) {
    return src != nullptr && dst != nullptr && src->pucImage != nullptr &&
           dst->pucImage != nullptr && src->ucType == TAVRIN_TYPE_BILEVEL;
}

void takeGeometry(const ImgTavrin* src, ImgTavrin* dst) {
    dst->usWidth = src->usWidth;
    dst->usHeight = src->usHeight;
    dst->usXReso = src->usXReso;
    dst->usYReso = src->usYReso;
    dst->ucType = TAVRIN_TYPE_BILEVEL;
}

}  // namespace

int pack_ImageTavrin(ImgTavrin* src, ImgTavrin* dst) {
    if (!usable(src, dst)) return 2;
    const uint32_t width = src->usWidth;
    const uint32_t height = src->usHeight;
    const uint32_t packedRow = (width + 7) / 8;
    // Read everything from the source record before the destination record
    // is rewritten: both may be the same record.
    const uint8_t* in = src->pucImage;
    uint8_t* out = dst->pucImage;
    takeGeometry(src, dst);
    // Output byte k of row y lies at y * packedRow + k, never after the first
    // input byte it consumes (y * width + 8k), so packing in place is safe.
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* row = in + static_cast<std::size_t>(y) * width;
        uint8_t* packed = out + static_cast<std::size_t>(y) * packedRow;
        const uint32_t fullBytes = width / 8;
        for (uint32_t k = 0; k < fullBytes; ++k) {
            const uint8_t* px = row + 8 * k;
            uint8_t byte = 0;
            for (int b = 0; b < 8; ++b) byte |= static_cast<uint8_t>((px[b] == 0) << (7 - b));
            packed[k] = byte;
        }
        if (fullBytes < packedRow) {  // the last, partial group; padding bits stay 0
            const uint8_t* px = row + 8 * fullBytes;
            uint8_t byte = 0;
            for (uint32_t b = 0; 8 * fullBytes + b < width; ++b)
                byte |= static_cast<uint8_t>((px[b] == 0) << (7 - b));
            packed[fullBytes] = byte;
        }
    }
    return 0;
}

int unpack_ImageTavrin(ImgTavrin* src, ImgTavrin* dst) {
    if (!usable(src, dst) || src->pucImage == dst->pucImage) return 2;
    const uint32_t width = src->usWidth;
    const uint32_t height = src->usHeight;
    const uint32_t packedRow = (width + 7) / 8;
    const uint8_t* in = src->pucImage;
    uint8_t* out = dst->pucImage;
    takeGeometry(src, dst);
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* packed = in + static_cast<std::size_t>(y) * packedRow;
        uint8_t* row = out + static_cast<std::size_t>(y) * width;
        for (uint32_t x = 0; x < width; ++x)
            row[x] = (packed[x >> 3] & (0x80u >> (x & 7))) ? 0 : 255;
    }
    return 0;
}
