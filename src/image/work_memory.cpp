// Placement of regions in the caller's work buffer, status merging of
// parallel branches, and the version text.
#include <cstdint>

#include "TavrinImage.h"

const char* LibTavrinCommonGetVersion() {
    return "libTavrinCommon API for e-Tavrin API, Ver. 5.5.0.1";
}

uint8_t* TavrinApp_MemAlloc(uint8_t* base, int size, int limit, int offset) {
    // The size check is the only check: regions are not recorded, and a
    // negative size passes the signed comparison.
    if (size > limit) return nullptr;
    return base + offset;
}

int TavrinApp_MemCheck(void* ptr, int size, int limit) {
    return (size > limit || ptr == nullptr) ? 2 : 0;
}

uint8_t* TavrinApp_MemSetHeadPointer(uint8_t* base, int total, int used) {
    // Compared as unsigned addresses; computed on integers so that a "used"
    // beyond the block never forms an out-of-range pointer.
    const uintptr_t head = reinterpret_cast<uintptr_t>(base) + static_cast<uintptr_t>(static_cast<intptr_t>(used));
    const uintptr_t end = reinterpret_cast<uintptr_t>(base) + static_cast<uintptr_t>(static_cast<intptr_t>(total));
    if (head > end) return nullptr;
    return reinterpret_cast<uint8_t*>(head);
}

int set_ErrorCode_forParallel(int a, int b, int ok, int fail) {
    if (a == b) return a;
    if (a == ok) return b;
    if (b == ok) return a;
    return fail;
}
