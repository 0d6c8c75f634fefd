// The PNG is encoded in memory and written in one go, so that a write error
// (a full disk) is reported like that of every other output. An overlay is
// a picture to look at, written once: zlib's fastest level and the "up"
// filter make it in a third of the default settings' time, for a file
// about a sixth larger.
#include "formats/write_png.h"

#include <png.h>

#include <csetjmp>
#include <new>
#include <string>

#include "pipeline/app_error.h"

namespace tavrin {
namespace {

struct PngSink {
    std::string bytes;
    std::string error;
};

// No exception may cross libpng's C frames: a failed append is noted and
// reported once libpng returns.
void appendBytes(png_structp png, png_bytep data, png_size_t length) {
    PngSink& sink = *static_cast<PngSink*>(png_get_io_ptr(png));
    if (!sink.error.empty()) return;
    try {
        sink.bytes.append(reinterpret_cast<const char*>(data), length);
    } catch (const std::bad_alloc&) {
        sink.error = "out of memory";
    }
}

void flushNothing(png_structp) {}

void onError(png_structp png, png_const_charp message) {
    static_cast<PngSink*>(png_get_error_ptr(png))->error = message;
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

// Encodes `page` into `sink`; false with sink.error set on failure.
bool encode(const Page& page, PngSink& sink) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &sink, onError, onWarning);
    if (!png) return sink.error = "out of memory", false;
    png_infop info = png_create_info_struct(png);
    if (!info || setjmp(png_jmpbuf(png))) {
        if (sink.error.empty()) sink.error = "out of memory";
        png_destroy_write_struct(&png, info ? &info : nullptr);
        return false;
    }
    png_set_write_fn(png, &sink, appendBytes, flushNothing);
    png_set_IHDR(png, info, uint32_t(page.width), uint32_t(page.height), 8,
                 page.channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 1);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_UP);
    png_write_info(png, info);
    for (int y = 0; y < page.height; ++y) png_write_row(png, page.row(y));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return sink.error.empty();
}

}  // namespace

void writePng(const Page& page, AtomicOutput& out) {
    PngSink sink;
    if (!encode(page, sink)) throw AppError(kExitFailure, out.path() + ": cannot write PNG: " + sink.error);
    out.write(sink.bytes);
}

void writePng(const Page& page, const std::string& path) {
    AtomicOutput out(path);
    writePng(page, out);
    out.commit();
}

}  // namespace tavrin
