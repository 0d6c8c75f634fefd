// The memory destination record behind jpeg_memory_dest.
#ifndef TAVRIN_SRC_ENCODE_JPEG_MEMORY_DEST_H
#define TAVRIN_SRC_ENCODE_JPEG_MEMORY_DEST_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include <jpeglib.h>

namespace tavrin_jpeg {

// Bytes that libjpeg may put past the end of the caller's buffer before the
// destination raises its error; they land here, never in caller memory.
constexpr size_t kSpillBytes = 256;

struct MemoryDestination {
    jpeg_destination_mgr pub;  // next byte, free bytes, the three callbacks
    JOCTET* bufferStart;       // caller's buffer
    uint32_t capacity;         // bytes of the caller's buffer
    // Overflow guard: set once the caller's buffer is full and libjpeg has
    // been redirected to spill[].
    bool bufferFull;
    JOCTET spill[kSpillBytes];
};

// Bytes of the stream held in the caller's buffer once compression ended.
inline size_t streamBytes(const jpeg_compress_struct& cinfo) {
    const auto* dest = reinterpret_cast<const MemoryDestination*>(cinfo.dest);
    return static_cast<size_t>(dest->pub.next_output_byte - dest->bufferStart);
}

}  // namespace tavrin_jpeg

#endif
