// jpeg_memory_dest and JpegErrorExit: libjpeg writing into a fixed caller
// buffer, and libjpeg errors turned into C++ integer exceptions.
//
// The buffer never grows and is never written past its capacity. libjpeg
// stores a byte and only then calls empty_output_buffer when free_in_buffer
// has reached zero, so a stream that exactly fills the buffer also ends with
// that call: nothing can be decided there. Instead the first call moves the
// output to a small spill area inside the destination record; a stream that
// exactly fits puts nothing there and term_destination restores the state of
// a full buffer, as if nothing had happened. A longer stream is an error
// (JERR_BUFFER_SIZE, status 11 under JpegErrorExit), raised when the spill
// area fills or at the end of the stream, whichever comes first.
#include "encode/jpeg_memory_dest.h"

#include <jerror.h>

#include "TavrinEncode.h"

using tavrin_jpeg::MemoryDestination;

namespace {

MemoryDestination* destinationOf(j_compress_ptr cinfo) {
    return reinterpret_cast<MemoryDestination*>(cinfo->dest);
}

void reportBufferTooSmall(j_compress_ptr cinfo) {
    ERREXIT(cinfo, JERR_BUFFER_SIZE);
}

void initDestination(j_compress_ptr cinfo) {
    MemoryDestination* dest = destinationOf(cinfo);
    dest->pub.next_output_byte = dest->bufferStart;
    dest->pub.free_in_buffer = dest->capacity;
    dest->bufferFull = false;
    if (dest->capacity == 0) {
        // libjpeg stores before it checks: never let it start on zero room.
        dest->bufferFull = true;
        dest->pub.next_output_byte = dest->spill;
        dest->pub.free_in_buffer = tavrin_jpeg::kSpillBytes;
    }
}

// libjpeg calls this only when the current area is full. The public
// next_output_byte and free_in_buffer may be stale at that moment (the
// entropy coder keeps its own copies while it codes a block), so they are
// not consulted: trusting a stale non-zero count would send the coder back
// over bytes it already wrote.
boolean emptyOutputBuffer(j_compress_ptr cinfo) {
    MemoryDestination* dest = destinationOf(cinfo);
    if (dest->bufferFull) reportBufferTooSmall(cinfo);  // the spill area filled up
    dest->bufferFull = true;
    dest->pub.next_output_byte = dest->spill;
    dest->pub.free_in_buffer = tavrin_jpeg::kSpillBytes;
    return TRUE;
}

void termDestination(j_compress_ptr cinfo) {
    MemoryDestination* dest = destinationOf(cinfo);
    if (!dest->bufferFull) return;
    if (dest->pub.next_output_byte != dest->spill) reportBufferTooSmall(cinfo);
    // Exact fit: the stream ends on the last byte of the buffer.
    dest->pub.next_output_byte = dest->bufferStart + dest->capacity;
    dest->pub.free_in_buffer = 0;
}

}  // namespace

void jpeg_memory_dest(jpeg_compress_struct* cinfo, uint8_t* buffer, uint32_t capacity) {
    if (cinfo == nullptr) return;
    // A destination installed by someone else cannot be reused as this
    // record; a new one is taken from the pool (freed with the object).
    if (cinfo->dest == nullptr || cinfo->dest->init_destination != initDestination) {
        cinfo->dest = static_cast<jpeg_destination_mgr*>((*cinfo->mem->alloc_small)(
            reinterpret_cast<j_common_ptr>(cinfo), JPOOL_PERMANENT, sizeof(MemoryDestination)));
    }
    MemoryDestination* dest = destinationOf(cinfo);
    dest->pub.init_destination = initDestination;
    dest->pub.empty_output_buffer = emptyOutputBuffer;
    dest->pub.term_destination = termDestination;
    dest->bufferStart = buffer;
    dest->capacity = buffer != nullptr ? capacity : 0;  // no buffer, no room
    dest->bufferFull = false;
}

void JpegErrorExit(jpeg_common_struct* cinfo) {
    throw (cinfo != nullptr && cinfo->is_decompressor == 1) ? 10 : 11;
}
