// Byte I/O of the in-memory file API: read, write, fill, seek, tell, eof.
// Every bound is checked in 64-bit arithmetic, so no 32-bit sum can wrap
// and no byte outside a file's buffer is ever touched.
#include <cstring>

#include "fom/fom_registry.h"

using fom::processRegistry;

namespace {

// Common path of fom_write and fom_fill: copies count bytes from source, or
// stores count copies of fillByte when source is null.
int storeBytes(int fd, const void* source, unsigned char fillByte, int count) {
    fom::Entry* e = processRegistry.getEntry(fd);
    if (e == nullptr) return -1;
    if (e->noWrite) return 0;
    const uint64_t pos = e->position;

    if (e->recordOnly && !e->recording) {
        // Counted and dropped, without a bound other than the 32-bit offset.
        uint64_t end = pos + uint64_t(count);
        if (end > 0xFFFFFFFFu) return -1;
        e->position = static_cast<uint32_t>(end);
        if (e->length < e->position) e->length = e->position;
        return count;
    }

    uint64_t room;
    uint64_t bufferOffset;
    if (e->recordOnly) {
        // Virtual offset recordStart is buffer offset 0. A new recording must
        // not pass the end mark of the previous one.
        if (pos < e->recordStart || pos > e->recordEnd || pos + uint64_t(count) > e->recordEnd)
            return -1;
        uint64_t limit = uint64_t(e->capacity) + e->recordStart;
        room = pos < limit ? limit - pos : 0;
        bufferOffset = pos - e->recordStart;
    } else {
        room = pos < e->capacity ? e->capacity - pos : 0;
        bufferOffset = pos;
    }
    if (room == 0) return 0;

    const uint32_t n = static_cast<uint32_t>(uint64_t(count) < room ? uint64_t(count) : room);
    unsigned char* dst = e->buffer + bufferOffset;
    if (source != nullptr)
        std::memcpy(dst, source, n);
    else
        std::memset(dst, fillByte, n);
    e->position = static_cast<uint32_t>(pos + n);
    if (e->length < e->position) e->length = e->position;
    return static_cast<int>(n);
}

}  // namespace

int fom_read(int fd, void* destination, int count) {
    if (destination == nullptr || count < 0) return -1;
    fom::Entry* e = processRegistry.getEntry(fd);
    if (e == nullptr) return -1;
    if (e->noRead || e->recordOnly) return 0;
    const uint64_t end = fom::readEnd(*e);
    if (e->position >= end) return 0;
    const uint64_t available = end - e->position;
    const uint32_t n = static_cast<uint32_t>(uint64_t(count) < available ? uint64_t(count) : available);
    std::memcpy(destination, e->buffer + e->position, n);
    e->position += n;
    return static_cast<int>(n);
}

int fom_write(int fd, const void* source, int count) {
    if (count < 0 || source == nullptr) return -1;
    return storeBytes(fd, source, 0, count);
}

int fom_fill(int fd, int value, int count) {
    if (count < 0) return -1;
    return storeBytes(fd, nullptr, static_cast<unsigned char>(value & 0xFF), count);
}

int fom_lseek(int fd, int offset, int whence) {
    fom::Entry* e = processRegistry.getEntry(fd);
    if (e == nullptr) return -1;
    int64_t target;
    switch (whence) {
    case 0:
        if (offset < 0) return -1;
        target = offset;
        break;
    case 1:
    case 2: {
        const int64_t base = whence == 1 ? e->position : e->length;
        if (offset < 0 && -int64_t(offset) > base) return -1;
        target = base + offset;
        break;
    }
    default:
        return -1;
    }
    if (uint64_t(target) > fom::seekLimit(*e)) return -1;

    if (target <= int64_t(e->length)) {
        e->position = static_cast<uint32_t>(target);
    } else {
        // Extend with zero bytes from the current length, as a file system
        // would materialise the hole.
        e->position = e->length;
        int64_t gap = target - int64_t(e->length);
        if (gap > fom::kMaxInt32) gap = fom::kMaxInt32;
        if (fom_fill(fd, 0, static_cast<int>(gap)) < gap) return -1;
    }
    return fom_tell(fd);
}

int fom_tell(int fd) {
    const fom::Entry* e = processRegistry.getEntry(fd);
    if (e == nullptr) return -1;
    // Only a record-only file counting writes outside a recording gets here.
    if (e->position > fom::seekLimit(*e)) return -1;
    return e->position > uint32_t(fom::kMaxInt32) ? fom::kMaxInt32 : static_cast<int>(e->position);
}

int fom_eof(int fd) {
    const fom::Entry* e = processRegistry.getEntry(fd);
    if (e == nullptr) return 1;
    return e->position >= fom::readEnd(*e) ? 1 : 0;
}
