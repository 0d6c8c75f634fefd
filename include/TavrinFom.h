// In-memory file store ("file on memory") of libTavrinCommon.
//
// Named files, each backed by one fixed buffer of the caller, reached
// through integer descriptors with POSIX-like read/write/seek semantics, so
// that a file-oriented writer (libtiff, through tifomOpen) can produce its
// bytes straight into caller memory. There is exactly one registry in the
// process, built when the library is loaded and destroyed at exit.
//
// Sizes, offsets and descriptors are 32-bit throughout. On platforms where
// unsigned long is wider, fom_set and fom::Manager::set refuse a capacity or
// length above 0xFFFFFFFF, and descriptors outside the int range are never
// open. The store never allocates, frees or grows a buffer.
//
// Threads: not thread-safe. The store has no lock, so every fom_* call,
// every tifomOpen (it looks the name up in the store even when it then opens
// a file on disk), every I/O through a handle on an in-memory file and every
// Tavrin_bwToMmr must come from one thread at a time in the whole process.
// The library's parallel detection filters never touch the store.
#ifndef TAVRIN_FOM_H
#define TAVRIN_FOM_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "TavrinExport.h"

typedef struct tiff TIFF;

namespace fom {

// One in-memory file. Field order is part of the interface.
class TAVRIN_API Entry {
public:
    // Initial state by access mode (mode & 3): 0 read-only (noWrite), 1
    // write-only (noRead, length 0 whatever is given), 2 and 3 read-write.
    // Except for write-only files, length = min(capacity, length). position
    // and recordStart start at 0, recordEnd at 0xFFFFFFFF. capacity and
    // length are limited to 0xFFFFFFFF here; fom::Manager::set refuses
    // larger values before an entry is built.
    Entry(int mode, unsigned char* buffer, unsigned long capacity, unsigned long length,
          bool recordOnly, bool external);

    int32_t mode;          // open flags given at registration; only mode & 3 is used
    bool noWrite;          // read-only: writes and fills store nothing, return 0
    bool noRead;           // write-only: reads return 0
    bool recordOnly;       // only bytes written during a recording are stored
    bool external;         // this object lives in caller storage; never deleted
    unsigned char* buffer; // caller's buffer, never owned
    uint32_t capacity;     // bytes of buffer; fixed
    uint32_t position;     // current offset, shared by every descriptor on the file
    uint32_t length;       // highest offset reached by a write, fill or forward seek
    uint32_t recordStart;  // position at which the last recording began
    uint32_t recordEnd;    // position at which the last recording ended; 0xFFFFFFFF before
    bool recording;        // a recording is under way
};

// The registry. Names are compared byte by byte (ordinary string order,
// case-sensitive); lookups never add a key. The transparent comparator lets
// lookups by C string run without building a std::string.
class TAVRIN_API Manager {
public:
    Manager();   // both maps empty
    // Deletes the entries the registry allocated; buffers and external
    // entries are left alone; open descriptors are forgotten.
    ~Manager();
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    // Largest open descriptor, or -1 when none is open.
    int maxFd() const;
    // True when name (may be null) is registered.
    bool inEntrys(const char* name) const;
    // The file registered under name, or null (also for a null name).
    Entry* getEntry(const char* name) const;
    // The file registered under the name that descriptor fd was opened on;
    // null when fd is not open or that name is no longer registered.
    Entry* getEntry(long fd) const;
    // Registers name over buffer (capacity bytes, of which length are valid).
    // storage: room for one Entry (suitably aligned) that the caller keeps
    // valid until unset, or null to let the registry allocate the entry.
    // False, with nothing changed, for a null name, length > capacity,
    // capacity above 0xFFFFFFFF, a name already registered or an allocation
    // failure. Never throws.
    bool set(const char* name, int mode, unsigned char* buffer, unsigned long capacity,
             unsigned long length, bool recordOnly, void* storage);
    // Removes name; deletes the entry only when the registry allocated it.
    // Leaves descriptors and the buffer alone. False when not registered.
    bool unset(const char* name);

    std::map<std::string, Entry*, std::less<>> entries;  // registered files
    std::map<int, std::string> descriptors;              // open descriptor -> name
};

}  // namespace fom

// ---- In-memory file API (plain symbol names) -------------------------------
//
// mode/flags are POSIX open flags; only the access bits (& 3) matter:
// 0 O_RDONLY, 1 O_WRONLY, 2 O_RDWR (3 acts as read-write). Counts and
// offsets are bytes.

// Registers name over buffer. capacity: bytes of buffer (1 .. 0xFFFFFFFF);
// length: valid bytes already in it (<= capacity). recordOnly non-zero: only
// bytes written while a recording runs are stored, from buffer offset 0 on.
// storage: room for one fom::Entry kept valid by the caller until fom_unset,
// or null. Returns 0, or -1 for capacity 0 / above 0xFFFFFFFF / below length,
// a null name or buffer, read-only with record-only, a name already
// registered, or an allocation failure.
TAVRIN_C_API int fom_set(const char* name, int mode, void* buffer, unsigned long capacity,
                         unsigned long length, int recordOnly, void* storage);
// Unregisters name (open descriptors stay open but reach nothing). Returns
// 0, or -1 when name is not registered.
TAVRIN_C_API int fom_unset(const char* name);
// 1 when name is registered, else 0.
TAVRIN_C_API int fom_isOnMemory(const char* name);
// Opens a registered file. The access bits of flags must equal those it was
// registered with; creation and truncation bits are ignored. The file
// position is not reset. Returns the new descriptor (one above the largest
// open one), or -1: name not registered, access mode differs, descriptor
// 2147483647 already open, or an allocation failure.
TAVRIN_C_API int fom_open(const char* name, int flags);
// Closes fd; the file and its position are untouched. 0, or -1 when not open.
TAVRIN_C_API int fom_close(int fd);
// Reads up to count bytes at the position. Returns the bytes read; 0 for a
// write-only or record-only file, at the end, or count 0; -1 for a null
// destination, a negative count or no file behind fd.
TAVRIN_C_API int fom_read(int fd, void* destination, int count);
// Writes up to count bytes at the position; never past the buffer. Returns
// the bytes accepted (short when the buffer fills); 0 for a read-only or
// full file; -1 for a negative count, null source, no file, or - while a
// record-only file records - a position before the recording start or a
// write passing the previous recording's end mark. A record-only file that
// is not recording counts the bytes without storing them; -1 if that would
// take the position past 0xFFFFFFFF.
TAVRIN_C_API int fom_write(int fd, const void* source, int count);
// As fom_write with count copies of the low byte of value.
TAVRIN_C_API int fom_fill(int fd, int value, int count);
// whence 0 (SEEK_SET), 1 (SEEK_CUR), 2 (SEEK_END: from the length). Seeking
// past the length extends the file with zero bytes (at most 2147483647 per
// call). Returns the new position (as fom_tell), or -1: no file, another
// whence, a negative absolute offset, a negative relative offset larger than
// its base, a target beyond capacity (capacity + recording start for a
// record-only file) - position unchanged - or a gap that could not be filled.
TAVRIN_C_API int fom_lseek(int fd, int offset, int whence);
// Position (values from 2147483648 on reported as 2147483647), or -1 for no
// file or a position beyond the seek limit.
TAVRIN_C_API int fom_tell(int fd);
// 1 when the position is at or past the readable end, or no file; else 0.
TAVRIN_C_API int fom_eof(int fd);
// Recording marks of the file registered under name; nothing if none.
// Start: recording start = position. Stop: recording end = position.
TAVRIN_C_API void fom_startRecording(const char* name);
TAVRIN_C_API void fom_stopRecording(const char* name);
// Record-only file: bytes written between the last start and stop of a
// recording; other files: the length. 0 when not registered, while
// recording, or without a completed recording.
TAVRIN_C_API int fom_getWritedBytes(const char* name);

// The same recording marks, reaching the file through an open descriptor or
// directly through an entry (nothing for an unknown descriptor or null).
TAVRIN_API void fom_startRecording(long fd);
TAVRIN_API void fom_stopRecording(long fd);
TAVRIN_API void fom_startRecording(fom::Entry* entry);
TAVRIN_API void fom_stopRecording(fom::Entry* entry);

// ---- TIFF over in-memory files ----------------------------------------------

// Opens a libtiff handle like TIFFOpen(name, mode). When name is registered
// in the store, libtiff's I/O goes to that in-memory file ("r" needs a file
// registered read-only, "w"/"a" read-write; TIFFFileno gives the fom
// descriptor, and TIFFClose closes it but does not unregister the name).
// Otherwise the file on disk is opened by libtiff. Returns null for a null
// name, a bad mode (reported through libtiff's error handler with module
// "TIFFOpen"), a refused open, or when libtiff cannot start the file (the
// descriptor is closed again).
TAVRIN_C_API TIFF* tifomOpen(const char* name, const char* mode);

#endif
