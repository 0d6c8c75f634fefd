// tifomOpen in read mode on an in-memory file holding arbitrary bytes, then
// libtiff walking every directory and reading the first strip or tile of
// each (small ones only). The file is registered read-only, so its buffer
// must come back unchanged, and the store must be empty again afterwards.
#include <fcntl.h>
#include <tiffio.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "TavrinFom.h"

namespace {

void quiet(const char*, const char*, va_list) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool silenced = (TIFFSetErrorHandler(quiet), TIFFSetWarningHandler(quiet), true);
    (void)silenced;
    if (size == 0) return -1;  // the store refuses an empty buffer
    std::vector<uint8_t> buffer(data, data + size);
    if (fom_set("fuzz.tif", O_RDONLY, buffer.data(), size, size, 0, nullptr) != 0) std::abort();
    if (TIFF* tif = tifomOpen("fuzz.tif", "r")) {
        std::vector<uint8_t> chunk;
        int directories = 0;
        do {
            const bool tiled = TIFFIsTiled(tif);
            const tmsize_t bytes = tiled ? TIFFTileSize(tif) : TIFFStripSize(tif);
            if (bytes > 0 && bytes <= (1 << 20)) {
                chunk.resize(bytes);
                if (tiled)
                    TIFFReadEncodedTile(tif, 0, chunk.data(), bytes);
                else
                    TIFFReadEncodedStrip(tif, 0, chunk.data(), bytes);
            }
        } while (++directories < 64 && TIFFReadDirectory(tif));
        TIFFClose(tif);
    }
    if (fom_unset("fuzz.tif") != 0 || std::memcmp(buffer.data(), data, size) != 0) std::abort();
    // Every descriptor was closed again: the next one opened is 0.
    if (fom_set("probe", O_RDONLY, buffer.data(), 1, 1, 0, nullptr) != 0 || fom_open("probe", O_RDONLY) != 0 ||
        fom_close(0) != 0 || fom_unset("probe") != 0)
        std::abort();
    return 0;
}
