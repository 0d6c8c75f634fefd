// PNG pages through libpng's simplified reading interface; the resolution
// comes from the pHYs chunk, which that interface does not report.
#include <png.h>

#include <cstring>

#include "formats/page_reader.h"
#include "pipeline/app_error.h"

namespace tavrin {

namespace {

uint32_t be32(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// Pixels per metre of pHYs (unit 1) as dots per inch; 0 when absent.
void pngResolution(const std::vector<uint8_t>& file, double& dpiX, double& dpiY) {
    size_t pos = 8;
    while (pos + 12 <= file.size()) {
        const uint32_t len = be32(&file[pos]);
        const uint8_t* type = &file[pos + 4];
        if (std::memcmp(type, "IDAT", 4) == 0 || len > file.size() - pos - 12) return;
        if (std::memcmp(type, "pHYs", 4) == 0 && len == 9 && file[pos + 16] == 1) {
            dpiX = dpiFromMetric(be32(&file[pos + 8]), 0.0254);
            dpiY = dpiFromMetric(be32(&file[pos + 12]), 0.0254);
            return;
        }
        pos += 12 + size_t(len);
    }
}

}  // namespace

Page decodePng(const std::vector<uint8_t>& file, const std::string& path) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    Page page;
    auto fail = [&](const char* what) {
        // libpng's words for a failed allocation (its limits on chunk sizes
        // say "too much" or "exceeds": those chunks are damaged).
        const char* m = image.message;
        const bool memory = strcasestr(m, "out of memory") || strcasestr(m, "insufficient memory") ||
                            strcasestr(m, "allocation failed");
        const std::string msg = path + ": damaged PNG (" + what + ": " + image.message + ")";
        png_image_free(&image);
        return memory ? outOfMemory(page, path) : AppError(kExitFormat, msg);
    };
    if (!png_image_begin_read_from_memory(&image, file.data(), file.size())) throw fail("header");
    page.width = int(image.width);
    page.height = int(image.height);
    page.channels = (image.format & PNG_FORMAT_FLAG_COLOR) ? 3 : 1;
    try {
        checkPageSize(image.width, image.height, path);
        allocatePixels(page, path);
    } catch (...) {
        png_image_free(&image);
        throw;
    }
    // Transparency is flattened onto white paper.
    image.format = page.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    png_color white = {255, 255, 255};
    if (!png_image_finish_read(&image, &white, page.pixels.data(), 0, nullptr)) throw fail("pixels");
    png_image_free(&image);
    pngResolution(file, page.dpiX, page.dpiY);
    return page;
}

}  // namespace tavrin
