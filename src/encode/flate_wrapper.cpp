// Tavrin_jpgToflate: a zlib stream (default level) of a block of bytes,
// normally a copy of the background JPEG stream.
#include <zlib.h>

#include "TavrinEncode.h"

namespace {
constexpr int kFlateFailure = 19;
}

int Tavrin_jpgToflate(strBgImgInfo* info, uint8_t* source, unsigned long capacity) {
    if (info == nullptr || info->pucStreamData == nullptr) return kFlateFailure;
    if (source == nullptr && info->ulStreamSize != 0) return kFlateFailure;
    uLongf produced = capacity;
    if (compress(info->pucStreamData, &produced, source, info->ulStreamSize) != Z_OK)
        return kFlateFailure;
    if (produced > 0xFFFFFFFFul) return kFlateFailure;  // the size field is 32-bit
    info->ulStreamSize = static_cast<uint32_t>(produced);
    return 0;
}
