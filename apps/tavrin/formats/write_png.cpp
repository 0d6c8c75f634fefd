#include "formats/write_png.h"

#include <png.h>

#include <cstring>

#include "formats/atomic_output.h"
#include "pipeline/app_error.h"

namespace tavrin {

void writePng(const Page& page, const std::string& path) {
    AtomicOutput out(path);
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = uint32_t(page.width);
    image.height = uint32_t(page.height);
    image.format = page.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    if (!png_image_write_to_file(&image, out.tempPath().c_str(), 0, page.pixels.data(), 0, nullptr)) {
        const std::string msg = path + ": cannot write PNG: " + image.message;
        png_image_free(&image);
        throw AppError(kExitFailure, msg);
    }
    out.commit();
}

}  // namespace tavrin
