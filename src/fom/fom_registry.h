// The process-wide in-memory file registry and the rules shared by the
// fom_* functions.
#ifndef TAVRIN_SRC_FOM_REGISTRY_H
#define TAVRIN_SRC_FOM_REGISTRY_H

#include <cstdint>

#include "TavrinFom.h"

namespace fom {

// The single registry: constructed during library load, destroyed by the
// exit-time handler the compiler registers right after construction.
extern Manager processRegistry;

// Offsets are 32-bit: the all-ones value marks "no recording has ended yet".
constexpr uint32_t kNoRecordEnd = 0xFFFFFFFFu;
// Largest descriptor, largest reported position, largest zero-fill per seek.
constexpr int kMaxInt32 = 2147483647;

// Bytes that may be read: up to the length, never past the buffer (for a
// record-only file the buffer holds virtual offsets recordStart onwards).
// 64-bit so that capacity + recordStart cannot wrap.
inline uint64_t readEnd(const Entry& e) {
    uint64_t limit = e.recordOnly ? uint64_t(e.capacity) + e.recordStart : e.capacity;
    return e.length < limit ? e.length : limit;
}

// Highest position a seek may reach.
inline uint64_t seekLimit(const Entry& e) {
    return e.recordOnly ? uint64_t(e.capacity) + e.recordStart : e.capacity;
}

}  // namespace fom

#endif
