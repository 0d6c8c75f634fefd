// JPEG pages through libjpeg; gray stays gray, everything else becomes RGB
// (CMYK and YCCK converted here). The resolution comes from the JFIF density.
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <new>

#include <jpeglib.h>
#include <jerror.h>

#include "formats/page_reader.h"
#include "pipeline/app_error.h"

namespace tavrin {

namespace {

struct ErrorManager {
    jpeg_error_mgr pub;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void onError(j_common_ptr cinfo) {
    auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, err->message);
    std::longjmp(err->jump, 1);
}

// Warnings stay quiet (libjpeg goes on over corrupt data), except for the
// end of the data before the end of the image: that page is damaged, as a
// truncated PNG or TIFF page is.
void onMessage(j_common_ptr cinfo, int level) {
    if (level < 0 && cinfo->err->msg_code == JWRN_JPEG_EOF) onError(cinfo);
}

// Decodes into `out` (sized once the header is known). Kept free of
// objects with destructors because of longjmp; the program's own errors
// (page size, memory) come back through `appError`.
bool decode(const uint8_t* data, size_t size, Page* page, ErrorManager* err,
            Bytes* out, const std::string* path, AppError** appError) {
    jpeg_decompress_struct cinfo;
    std::memset(&cinfo, 0, sizeof cinfo);
    cinfo.err = jpeg_std_error(&err->pub);
    err->pub.error_exit = onError;
    err->pub.emit_message = onMessage;
    if (setjmp(err->jump)) {
        if (err->pub.msg_code == JERR_OUT_OF_MEMORY) *appError = new AppError(outOfMemory(*page, *path));
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, data, static_cast<unsigned long>(size));
    jpeg_read_header(&cinfo, TRUE);
    page->width = int(cinfo.image_width);
    page->height = int(cinfo.image_height);
    page->channels = cinfo.jpeg_color_space == JCS_GRAYSCALE ? 1 : 3;
    try {
        checkPageSize(cinfo.image_width, cinfo.image_height, *path);
    } catch (AppError& e) {
        *appError = new AppError(e);
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    const bool cmyk = cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
    if (cinfo.jpeg_color_space == JCS_GRAYSCALE)
        cinfo.out_color_space = JCS_GRAYSCALE;
    else if (cmyk)
        cinfo.out_color_space = JCS_CMYK;
    else
        cinfo.out_color_space = JCS_RGB;
    jpeg_start_decompress(&cinfo);
    page->width = int(cinfo.output_width);
    page->height = int(cinfo.output_height);
    page->channels = cinfo.out_color_space == JCS_GRAYSCALE ? 1 : 3;
    const int comps = cinfo.output_components;
    try {
        out->resize(size_t(page->width) * page->height * comps);
    } catch (const std::bad_alloc&) {
        *appError = new AppError(outOfMemory(*page, *path));
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = out->data() + size_t(cinfo.output_scanline) * page->width * comps;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    if (cinfo.density_unit == 1) {
        page->dpiX = cinfo.X_density;
        page->dpiY = cinfo.Y_density;
    } else if (cinfo.density_unit == 2) {
        page->dpiX = dpiFromMetric(cinfo.X_density, 2.54);
        page->dpiY = dpiFromMetric(cinfo.Y_density, 2.54);
    }
    // Adobe writes CMYK inverted (0 = full ink).
    const bool inverted = cmyk && cinfo.saw_Adobe_marker;
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    if (cmyk) {
        const size_t n = page->pixelCount();
        uint8_t* p = out->data();
        for (size_t i = 0; i < n; ++i) {
            unsigned c = p[4 * i], m = p[4 * i + 1], y = p[4 * i + 2], k = p[4 * i + 3];
            if (!inverted) c = 255 - c, m = 255 - m, y = 255 - y, k = 255 - k;
            // Inverted values: c = 255 - cyan ink, so R = c * k / 255.
            p[3 * i] = uint8_t(c * k / 255);
            p[3 * i + 1] = uint8_t(m * k / 255);
            p[3 * i + 2] = uint8_t(y * k / 255);
        }
        out->resize(n * 3);
    }
    return true;
}

}  // namespace

Page decodeJpeg(const std::vector<uint8_t>& file, const std::string& path) {
    Page page;
    ErrorManager err;
    std::memset(&err, 0, sizeof err);
    AppError* appError = nullptr;
    Bytes pixels;
    if (!decode(file.data(), file.size(), &page, &err, &pixels, &path, &appError)) {
        if (appError) {
            AppError e(*appError);
            delete appError;
            throw e;
        }
        throw AppError(kExitFormat, path + ": damaged JPEG (" + err.message + ")");
    }
    page.pixels = std::move(pixels);
    return page;
}

}  // namespace tavrin
