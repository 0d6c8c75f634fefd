// The PNG is encoded in memory and written in one go, so that a write error
// (a full disk) is reported like that of every other output.
#include "formats/write_png.h"

#include <png.h>

#include <cstring>

#include "pipeline/app_error.h"

namespace tavrin {

void writePng(const Page& page, AtomicOutput& out) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = uint32_t(page.width);
    image.height = uint32_t(page.height);
    image.format = page.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    png_alloc_size_t size = 0;
    std::string bytes;
    bool ok = png_image_write_get_memory_size(image, size, 0, page.pixels.data(), 0, nullptr);
    if (ok) {
        bytes.resize(size);
        ok = png_image_write_to_memory(&image, &bytes[0], &size, 0, page.pixels.data(), 0, nullptr);
        bytes.resize(size);
    }
    if (!ok) {
        const std::string msg = out.path() + ": cannot write PNG: " + image.message;
        png_image_free(&image);
        throw AppError(kExitFailure, msg);
    }
    out.write(bytes);
}

void writePng(const Page& page, const std::string& path) {
    AtomicOutput out(path);
    writePng(page, out);
    out.commit();
}

}  // namespace tavrin
