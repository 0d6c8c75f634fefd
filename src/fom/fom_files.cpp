// Registration, descriptors and recording marks of the in-memory file API.
#include <climits>

#include "fom/descriptor_table.h"
#include "fom/fom_registry.h"

using fom::processRegistry;

int fom_set(const char* name, int mode, void* buffer, unsigned long capacity,
            unsigned long length, int recordOnly, void* storage) {
    if (capacity == 0 || capacity < length) return -1;
    if (name == nullptr || buffer == nullptr) return -1;
    // A read-only file never receives the writes that a recording captures.
    if ((mode & 3) == 0 && recordOnly != 0) return -1;
    bool ok = processRegistry.set(name, mode, static_cast<unsigned char*>(buffer), capacity,
                                  length, recordOnly != 0, storage);
    return ok ? 0 : -1;
}

int fom_unset(const char* name) { return processRegistry.unset(name) ? 0 : -1; }

int fom_isOnMemory(const char* name) { return processRegistry.inEntrys(name) ? 1 : 0; }

int fom_open(const char* name, int flags) {
    if (fom::descriptorsExhausted(processRegistry)) return -1;
    fom::Entry* e = processRegistry.getEntry(name);
    if (e == nullptr) return -1;
    if (((flags ^ e->mode) & 3) != 0) return -1;  // access mode must match
    try {
        return fom::allocateDescriptor(processRegistry, name);
    } catch (...) {
        return -1;  // no memory for the copy of the name
    }
}

int fom_close(int fd) { return fom::releaseDescriptor(processRegistry, fd) ? 0 : -1; }

void fom_startRecording(fom::Entry* e) {
    if (e == nullptr) return;
    e->recordStart = e->position;
    e->recording = true;
}

void fom_stopRecording(fom::Entry* e) {
    if (e == nullptr) return;
    e->recordEnd = e->position;
    e->recording = false;
}

void fom_startRecording(const char* name) { fom_startRecording(processRegistry.getEntry(name)); }
void fom_stopRecording(const char* name) { fom_stopRecording(processRegistry.getEntry(name)); }
void fom_startRecording(long fd) { fom_startRecording(processRegistry.getEntry(fd)); }
void fom_stopRecording(long fd) { fom_stopRecording(processRegistry.getEntry(fd)); }

int fom_getWritedBytes(const char* name) {
    const fom::Entry* e = processRegistry.getEntry(name);
    if (e == nullptr) return 0;
    if (!e->recordOnly) return static_cast<int>(e->length > INT_MAX ? INT_MAX : e->length);
    if (e->recording) return 0;
    // Also covers a file whose recording never ended (recordEnd all ones).
    if (e->length < e->recordEnd || e->recordEnd < e->recordStart) return 0;
    uint32_t recorded = e->recordEnd - e->recordStart;
    return static_cast<int>(recorded > INT_MAX ? INT_MAX : recorded);
}
