// tifomOpen: libtiff handles whose I/O goes to in-memory files of the fom
// store. The client data libtiff passes back to the procedures below is the
// fom descriptor.
#include <fcntl.h>
#include <tiffio.h>

#include <climits>
#include <cstdint>

#include "TavrinFom.h"

namespace {

int descriptorOf(thandle_t handle) {
    return static_cast<int>(reinterpret_cast<intptr_t>(handle));
}

// libtiff's buffers may exceed the 32-bit counts of the store; a larger
// request is cut, which libtiff sees as a short transfer.
int storeCount(tmsize_t size) {
    return size > INT_MAX ? INT_MAX : static_cast<int>(size);
}

tmsize_t tifomRead(thandle_t handle, void* buffer, tmsize_t size) {
    return fom_read(descriptorOf(handle), buffer, storeCount(size));
}

tmsize_t tifomWrite(thandle_t handle, void* buffer, tmsize_t size) {
    return fom_write(descriptorOf(handle), buffer, storeCount(size));
}

toff_t tifomSeek(thandle_t handle, toff_t offset, int whence) {
    // Low 32 bits of the offset; -1 is widened with its sign to the
    // all-ones offset that libtiff takes as failure.
    int32_t low = static_cast<int32_t>(static_cast<uint32_t>(offset));
    int64_t result = fom_lseek(descriptorOf(handle), low, whence);
    return static_cast<toff_t>(result);
}

int tifomClose(thandle_t handle) { return fom_close(descriptorOf(handle)) == 0 ? 0 : -1; }

// Leaves the position at the end; libtiff seeks before every transfer.
toff_t tifomSize(thandle_t handle) {
    int end = fom_lseek(descriptorOf(handle), 0, SEEK_END);
    return end < 0 ? 0 : static_cast<toff_t>(end);
}

// Nothing is mapped, so libtiff reads through tifomRead.
int tifomMap(thandle_t, void**, toff_t*) { return 0; }
void tifomUnmap(thandle_t, void*, toff_t) {}

// Open flags of a libtiff mode string, as libtiff derives them: "r" read-only
// ("r+" read-write), "w" read-write + create + truncate, "a" read-write +
// create. Letters after the first are libtiff's modifiers and do not change
// the flags. -1 for a bad mode, reported the way TIFFOpen reports it.
int openFlagsOfMode(const char* mode) {
    switch (mode[0]) {
    case 'r':
        return mode[1] == '+' ? O_RDWR : O_RDONLY;
    case 'w':
        return O_RDWR | O_CREAT | O_TRUNC;
    case 'a':
        return O_RDWR | O_CREAT;
    default:
        TIFFErrorExt(nullptr, "TIFFOpen", "\"%s\": Bad mode", mode);
        return -1;
    }
}

}  // namespace

TIFF* tifomOpen(const char* name, const char* mode) {
    if (name == nullptr) return nullptr;
    if (mode == nullptr) {
        TIFFErrorExt(nullptr, "TIFFOpen", "Bad mode");
        return nullptr;
    }
    // A bad mode ends here, reported once, for memory and disk names alike.
    const int flags = openFlagsOfMode(mode);
    if (flags < 0) return nullptr;
    if (fom_isOnMemory(name) == 0) return TIFFOpen(name, mode);

    // A refused open hands -1 on; every procedure then fails and libtiff
    // reports that it cannot read or write the header.
    const int fd = fom_open(name, flags);
    TIFF* tif = TIFFClientOpen(name, mode, reinterpret_cast<thandle_t>(static_cast<intptr_t>(fd)),
                               tifomRead, tifomWrite, tifomSeek, tifomClose, tifomSize,
                               tifomMap, tifomUnmap);
    if (tif == nullptr) {
        if (fd >= 0) fom_close(fd);  // libtiff never took the descriptor over
        return nullptr;
    }
    TIFFSetFileno(tif, fd);
    return tif;
}
