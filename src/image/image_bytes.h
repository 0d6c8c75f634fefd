// Byte size of an image by the library's general rule.
#ifndef TAVRIN_SRC_IMAGE_BYTES_H
#define TAVRIN_SRC_IMAGE_BYTES_H

#include <cstdint>

#include "TavrinImage.h"

namespace tavrin {

// width * height * (3 for any non-zero type, else 1), in 32-bit unsigned
// arithmetic: type 3 (bi-level) and 7 count three bytes per pixel too.
inline uint32_t imageBytes(uint16_t width, uint16_t height, uint8_t type) {
    return static_cast<uint32_t>(width) * height * (type != 0 ? 3u : 1u);
}

inline uint32_t imageBytes(const ImgTavrin& img) {
    return imageBytes(img.usWidth, img.usHeight, img.ucType);
}

}  // namespace tavrin

#endif
