// fom::Entry and fom::Manager: the file records and the registry that holds
// them, plus the process-wide registry instance.
#include <climits>
#include <new>

#include "fom/fom_registry.h"

namespace fom {

Manager processRegistry;

namespace {
constexpr unsigned long kMax32 = 0xFFFFFFFFul;

uint32_t clamp32(unsigned long v) { return v > kMax32 ? 0xFFFFFFFFu : static_cast<uint32_t>(v); }
}  // namespace

Entry::Entry(int mode_, unsigned char* buffer_, unsigned long capacity_, unsigned long length_,
             bool recordOnly_, bool external_)
    : mode(mode_),
      noWrite((mode_ & 3) == 0),
      noRead((mode_ & 3) == 1),
      recordOnly(recordOnly_),
      external(external_),
      buffer(buffer_),
      capacity(clamp32(capacity_)),
      position(0),
      length(0),
      recordStart(0),
      recordEnd(kNoRecordEnd),
      recording(false) {
    // A write-only file starts empty; otherwise the given content length,
    // never more than the buffer holds.
    if (!noRead) length = clamp32(length_ < capacity_ ? length_ : capacity_);
}

Manager::Manager() = default;

Manager::~Manager() {
    for (auto& named : entries)
        if (!named.second->external) delete named.second;
    entries.clear();
    descriptors.clear();
}

int Manager::maxFd() const { return descriptors.empty() ? -1 : descriptors.rbegin()->first; }

bool Manager::inEntrys(const char* name) const {
    return name != nullptr && entries.find(name) != entries.end();
}

Entry* Manager::getEntry(const char* name) const {
    if (name == nullptr) return nullptr;
    auto it = entries.find(name);
    return it == entries.end() ? nullptr : it->second;
}

Entry* Manager::getEntry(long fd) const {
    if (fd < INT_MIN || fd > INT_MAX) return nullptr;
    auto open = descriptors.find(static_cast<int>(fd));
    if (open == descriptors.end()) return nullptr;
    auto it = entries.find(open->second);
    return it == entries.end() ? nullptr : it->second;
}

bool Manager::set(const char* name, int mode, unsigned char* buffer, unsigned long capacity,
                  unsigned long length, bool recordOnly, void* storage) {
    if (name == nullptr) return false;
    if (capacity < length) return false;
    if (capacity > kMax32) return false;  // the store is 32-bit
    if (inEntrys(name)) return false;     // no replacement
    Entry* entry = nullptr;
    try {
        if (storage != nullptr)
            entry = ::new (storage) Entry(mode, buffer, capacity, length, recordOnly, true);
        else
            entry = new Entry(mode, buffer, capacity, length, recordOnly, false);
        entries.emplace(name, entry);
        return true;
    } catch (...) {
        // Only an entry the registry allocated is its to free.
        if (entry != nullptr && !entry->external) delete entry;
        return false;
    }
}

bool Manager::unset(const char* name) {
    if (name == nullptr) return false;
    auto it = entries.find(name);
    if (it == entries.end()) return false;
    if (!it->second->external) delete it->second;
    entries.erase(it);
    return true;
}

}  // namespace fom
