// Descriptor numbering of the in-memory file registry: a new descriptor is
// one above the largest open one, bound to its own copy of the file name.
// Header-only so that the numbering rules can be exercised on any Manager.
#ifndef TAVRIN_SRC_FOM_DESCRIPTOR_TABLE_H
#define TAVRIN_SRC_FOM_DESCRIPTOR_TABLE_H

#include <climits>

#include "TavrinFom.h"

namespace fom {

// No descriptor can follow INT_MAX.
inline bool descriptorsExhausted(const Manager& m) { return m.maxFd() == INT_MAX; }

// Binds maxFd() + 1 to a copy of name and returns it; -1 when the numbers are
// exhausted. Holes below the largest open descriptor are never reused. May
// throw std::bad_alloc (copy of the name).
inline int allocateDescriptor(Manager& m, const char* name) {
    if (descriptorsExhausted(m)) return -1;
    int fd = m.maxFd() + 1;
    m.descriptors.emplace(fd, name);
    return fd;
}

// Forgets fd; false when it was not open.
inline bool releaseDescriptor(Manager& m, long fd) {
    if (fd < INT_MIN || fd > INT_MAX) return false;
    return m.descriptors.erase(static_cast<int>(fd)) != 0;
}

}  // namespace fom

#endif
