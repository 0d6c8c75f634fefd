// The in-memory file store driven by arbitrary call sequences and checked,
// call by call, against a plain model of the same files: every result, and
// after every call the whole buffer of every file (nothing may be written
// outside what a call is meant to write). Three names share descriptors,
// so re-registration and descriptors outliving their file are reached.
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "TavrinFom.h"

namespace {

const char* const kNames[] = {"a", "b", "outFile_bwToMmr"};
constexpr int kNameCount = 3;
constexpr uint64_t kAllOnes = 0xFFFFFFFFu;

struct ModelFile {
    bool registered = false;
    int mode = 0;
    bool recordOnly = false;
    uint32_t capacity = 0;
    uint64_t position = 0, length = 0, recordStart = 0, recordEnd = kAllOnes;
    bool recording = false;
    std::vector<uint8_t> bytes;          // what the buffer must hold
    std::unique_ptr<uint8_t[]> buffer;   // the buffer the store writes into
    alignas(fom::Entry) unsigned char storage[sizeof(fom::Entry)];
    int access() const { return mode & 3; }
    uint64_t seekLimit() const { return recordOnly ? capacity + recordStart : capacity; }
    uint64_t readEnd() const { return std::min(length, seekLimit()); }
};

struct Model {
    ModelFile files[kNameCount];
    std::map<int, int> descriptors;  // descriptor -> name index

    ModelFile* fileOf(int fd) {
        auto it = descriptors.find(fd);
        if (it == descriptors.end() || !files[it->second].registered) return nullptr;
        return &files[it->second];
    }
    // Write or fill of count bytes (source null: fill with value).
    int store(int fd, const uint8_t* source, uint8_t value, int count) {
        ModelFile* f = fileOf(fd);
        if (f == nullptr) return -1;
        if (f->access() == 0) return 0;
        if (f->recordOnly && !f->recording) {  // counted, not stored
            if (f->position + count > kAllOnes) return -1;
            f->position += count;
            f->length = std::max(f->length, f->position);
            return count;
        }
        uint64_t room, at;
        if (f->recordOnly) {
            if (f->position < f->recordStart || f->position + count > f->recordEnd) return -1;
            room = f->seekLimit() > f->position ? f->seekLimit() - f->position : 0;
            at = f->position - f->recordStart;
        } else {
            room = f->capacity > f->position ? f->capacity - f->position : 0;
            at = f->position;
        }
        const uint64_t n = std::min<uint64_t>(room, count);
        for (uint64_t i = 0; i < n; ++i) f->bytes[at + i] = source ? source[i] : value;
        f->position += n;
        f->length = std::max(f->length, f->position);
        return int(n);
    }
    int tell(int fd) {
        ModelFile* f = fileOf(fd);
        if (f == nullptr || f->position > f->seekLimit()) return -1;
        return int(std::min<uint64_t>(f->position, INT_MAX));
    }
    int seek(int fd, int offset, int whence) {
        ModelFile* f = fileOf(fd);
        if (f == nullptr || whence < 0 || whence > 2) return -1;
        const int64_t base = whence == 0 ? 0 : whence == 1 ? f->position : f->length;
        if (offset < 0 && (whence == 0 || -int64_t(offset) > base)) return -1;
        const int64_t target = base + offset;
        if (uint64_t(target) > f->seekLimit()) return -1;
        if (uint64_t(target) <= f->length) {
            f->position = target;
        } else {
            f->position = f->length;
            const int64_t gap = std::min<int64_t>(target - f->length, INT_MAX);
            if (store(fd, nullptr, 0, int(gap)) < gap) return -1;
        }
        return tell(fd);
    }
    int writtenBytes(int k) {
        const ModelFile& f = files[k];
        if (!f.registered) return 0;
        if (!f.recordOnly) return int(std::min<uint64_t>(f.length, INT_MAX));
        if (f.recording || f.length < f.recordEnd || f.recordEnd < f.recordStart) return 0;
        return int(std::min<uint64_t>(f.recordEnd - f.recordStart, INT_MAX));
    }
};

// Counts and offsets: mostly small, sometimes anything.
int amount(FuzzedDataProvider& in) {
    return in.ConsumeBool() ? in.ConsumeIntegralInRange(-2, 80) : in.ConsumeIntegral<int>();
}

void check(bool ok) {
    if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    Model m;
    uint8_t scratch[128];
    while (in.remaining_bytes() > 0) {
        const int k = in.ConsumeIntegralInRange(0, kNameCount - 1);
        ModelFile& f = m.files[k];
        const char* name = kNames[k];
        const int fd = in.ConsumeIntegralInRange(-1, 4);
        switch (in.ConsumeIntegralInRange(0, 11)) {
            case 0: {  // register
                const int mode = in.ConsumeIntegralInRange(0, 3) | (in.ConsumeBool() ? O_CREAT : 0);
                const uint32_t capacity = in.ConsumeIntegralInRange(0, 64);
                const uint32_t length = in.ConsumeIntegralInRange(0, 65);
                const bool recordOnly = in.ConsumeBool(), external = in.ConsumeBool();
                std::unique_ptr<uint8_t[]> buffer(new uint8_t[std::max(capacity, 1u)]);
                for (uint32_t i = 0; i < capacity; ++i) buffer[i] = uint8_t(i * 7 + k);
                const bool refuse = capacity == 0 || capacity < length || ((mode & 3) == 0 && recordOnly) ||
                                    f.registered;
                check(fom_set(name, mode, buffer.get(), capacity, length, recordOnly,
                              external ? f.storage : nullptr) == (refuse ? -1 : 0));
                if (refuse) break;
                f.registered = true, f.mode = mode, f.recordOnly = recordOnly, f.capacity = capacity;
                f.position = f.recordStart = 0, f.recordEnd = kAllOnes, f.recording = false;
                f.length = (mode & 3) == 1 ? 0 : length;
                f.bytes.assign(buffer.get(), buffer.get() + capacity);
                f.buffer = std::move(buffer);  // the old buffer is freed: the store must not reach it
                break;
            }
            case 1:
                check(fom_unset(name) == (f.registered ? 0 : -1));
                f.registered = false;
                break;
            case 2: {
                const int flags = in.ConsumeIntegralInRange(0, 3) | (in.ConsumeBool() ? O_TRUNC : 0);
                int expected = -1;
                if (f.registered && ((flags ^ f.mode) & 3) == 0)
                    expected = m.descriptors.empty() ? 0 : m.descriptors.rbegin()->first + 1;
                check(fom_open(name, flags) == expected);
                if (expected >= 0) m.descriptors[expected] = k;
                break;
            }
            case 3:
                check(fom_close(fd) == (m.descriptors.erase(fd) ? 0 : -1));
                break;
            case 4: {
                const int count = amount(in);
                ModelFile* g = m.fileOf(fd);
                int expected = count < 0 || g == nullptr ? -1 : 0;
                if (expected == 0 && g->access() != 1 && !g->recordOnly && g->position < g->readEnd())
                    expected = int(std::min<uint64_t>(count, g->readEnd() - g->position));
                check(fom_read(fd, scratch, count) == expected);
                if (expected > 0) {
                    check(std::memcmp(scratch, &g->bytes[g->position], expected) == 0);
                    g->position += expected;
                }
                break;
            }
            case 5: {
                const int count = amount(in);
                for (uint8_t& b : scratch) b = in.ConsumeIntegral<uint8_t>();
                check(fom_write(fd, scratch, count) == (count < 0 ? -1 : m.store(fd, scratch, 0, count)));
                break;
            }
            case 6: {
                const int value = in.ConsumeIntegral<int>(), count = amount(in);
                check(fom_fill(fd, value, count) == (count < 0 ? -1 : m.store(fd, nullptr, uint8_t(value), count)));
                break;
            }
            case 7: {
                const int offset = amount(in), whence = in.ConsumeIntegralInRange(-1, 3);
                check(fom_lseek(fd, offset, whence) == m.seek(fd, offset, whence));
                break;
            }
            case 8: {
                ModelFile* g = m.fileOf(fd);
                check(fom_tell(fd) == m.tell(fd));
                check(fom_eof(fd) == (g == nullptr || g->position >= g->readEnd() ? 1 : 0));
                check(fom_isOnMemory(name) == (f.registered ? 1 : 0));
                break;
            }
            case 9:
            case 10: {  // recording marks, by name or through a descriptor
                const bool start = in.ConsumeBool(), byName = in.ConsumeBool();
                ModelFile* g = byName ? (f.registered ? &f : nullptr) : m.fileOf(fd);
                if (start)
                    byName ? fom_startRecording(name) : fom_startRecording(long(fd));
                else
                    byName ? fom_stopRecording(name) : fom_stopRecording(long(fd));
                if (g != nullptr) (start ? g->recordStart : g->recordEnd) = g->position, g->recording = start;
                break;
            }
            default:
                check(fom_getWritedBytes(name) == m.writtenBytes(k));
                break;
        }
        for (const ModelFile& g : m.files)
            if (g.registered) check(std::memcmp(g.buffer.get(), g.bytes.data(), g.capacity) == 0);
    }
    // The registry is process-wide: leave it empty for the next input.
    for (const auto& d : m.descriptors) fom_close(d.first);
    for (int k = 0; k < kNameCount; ++k)
        if (m.files[k].registered) fom_unset(kNames[k]);
    return 0;
}
