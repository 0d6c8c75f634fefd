// JPEG pages through libjpeg; gray stays gray, everything else becomes RGB
// (CMYK and YCCK converted here). The resolution comes from the JFIF density.
// The header is read first; a large sequential page is then decoded by two
// decoders side by side, each with rows of its own.
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <new>

#include <jpeglib.h>
#include <jerror.h>

#include "formats/page_reader.h"
#include "pipeline/app_error.h"
#include "pipeline/run_each.h"

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

// A large page is decoded in two parts side by side: a second decoder skips
// the rows of the first (it must still read their entropy codes, about half
// the cost of decoding them) and decodes the rest. The parts meet at a row
// of whole coding units and give the bytes of one decoder.
constexpr size_t kSplitFromPixels = size_t(1) << 20;
constexpr double kFirstPartShare = 0.68;  // evens the parts out at that skipping cost

void prepare(jpeg_decompress_struct* cinfo, ErrorManager* err, const uint8_t* data, size_t size) {
    std::memset(cinfo, 0, sizeof *cinfo);
    cinfo->err = jpeg_std_error(&err->pub);
    err->pub.error_exit = onError;
    err->pub.emit_message = onMessage;
    jpeg_create_decompress(cinfo);
    jpeg_mem_src(cinfo, data, static_cast<unsigned long>(size));
}

// CMYK and YCCK stay four channels (converted afterwards), gray stays gray.
J_COLOR_SPACE outputSpace(const jpeg_decompress_struct& cinfo) {
    if (cinfo.jpeg_color_space == JCS_GRAYSCALE) return JCS_GRAYSCALE;
    if (cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK) return JCS_CMYK;
    return JCS_RGB;
}

// What the decoder that read to the end saw: the resolution and the Adobe
// marker may come between the scans of a multi-scan file.
struct Trailer {
    int densityUnit = 0, xDensity = 0, yDensity = 0;
    bool adobe = false;
};

// Called after the caller's setjmp, so that libjpeg's errors land there.
void readHeaderFor(jpeg_decompress_struct* cinfo) {
    jpeg_read_header(cinfo, TRUE);
    cinfo->out_color_space = outputSpace(*cinfo);
}

bool tryResize(Bytes* pixels, size_t bytes) {
    try {
        pixels->resize(bytes);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Rows [first, last) into `pixels` (rows of `rowBytes`); the decoder that
// reaches the last row checks the trailer and fills `trailer`. `pixels` is
// sized here, once the decoder has started (so that a damaged file is
// reported as damaged before its size is asked for), unless it is already.
// Free of objects with destructors because of longjmp.
bool decodeRows(const uint8_t* data, size_t size, int first, int last, Bytes* pixels, size_t bytes,
                size_t rowBytes, Trailer* trailer, bool* outOfMemory, ErrorManager* err) {
    jpeg_decompress_struct cinfo;
    prepare(&cinfo, err, data, size);
    if (setjmp(err->jump)) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    readHeaderFor(&cinfo);
    jpeg_start_decompress(&cinfo);
    if (pixels->size() != bytes && !tryResize(pixels, bytes)) {
        *outOfMemory = true;
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    if (first > 0) jpeg_skip_scanlines(&cinfo, JDIMENSION(first));
    while (int(cinfo.output_scanline) < last) {
        JSAMPROW row = pixels->data() + size_t(cinfo.output_scanline) * rowBytes;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    if (cinfo.output_scanline == cinfo.output_height) {
        trailer->densityUnit = cinfo.density_unit;
        trailer->xDensity = cinfo.X_density;
        trailer->yDensity = cinfo.Y_density;
        trailer->adobe = cinfo.saw_Adobe_marker;
        jpeg_finish_decompress(&cinfo);
    }
    jpeg_destroy_decompress(&cinfo);
    return true;
}

struct Header {
    int width = 0, height = 0, components = 0;
    bool cmyk = false, splittable = false;
    int unitRows = 0;  // rows of one row of coding units
};

// The header alone: size and colour. Free of objects with destructors.
bool readHeader(const uint8_t* data, size_t size, Page* page, Header* h, ErrorManager* err) {
    jpeg_decompress_struct cinfo;
    prepare(&cinfo, err, data, size);
    if (setjmp(err->jump)) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    readHeaderFor(&cinfo);
    page->width = int(cinfo.image_width);
    page->height = int(cinfo.image_height);
    jpeg_calc_output_dimensions(&cinfo);
    h->width = int(cinfo.output_width);
    h->height = int(cinfo.output_height);
    h->components = cinfo.output_components;
    h->cmyk = cinfo.out_color_space == JCS_CMYK;
    // A progressive file is read whole before its first row: nothing to share.
    h->splittable = !jpeg_has_multiple_scans(&cinfo);
    h->unitRows = cinfo.max_v_samp_factor * DCTSIZE;
    page->channels = h->components == 1 ? 1 : 3;
    jpeg_destroy_decompress(&cinfo);
    return true;
}

void convertCmyk(Bytes* out, size_t pixels, bool inverted) {
    uint8_t* p = out->data();
    for (size_t i = 0; i < pixels; ++i) {
        unsigned c = p[4 * i], m = p[4 * i + 1], y = p[4 * i + 2], k = p[4 * i + 3];
        if (!inverted) c = 255 - c, m = 255 - m, y = 255 - y, k = 255 - k;
        // Inverted values: c = 255 - cyan ink, so R = c * k / 255.
        p[3 * i] = uint8_t(c * k / 255);
        p[3 * i + 1] = uint8_t(m * k / 255);
        p[3 * i + 2] = uint8_t(y * k / 255);
    }
    out->resize(pixels * 3);
}

}  // namespace

Page decodeJpeg(const std::vector<uint8_t>& file, const std::string& path) {
    Page page;
    ErrorManager err[2];
    std::memset(err, 0, sizeof err);
    const auto damaged = [&](const ErrorManager& e) {
        if (e.pub.msg_code == JERR_OUT_OF_MEMORY) return AppError(outOfMemory(page, path));
        return AppError(kExitFormat, path + ": damaged JPEG (" + e.message + ")");
    };
    Header h;
    if (!readHeader(file.data(), file.size(), &page, &h, &err[0])) throw damaged(err[0]);
    checkPageSize(uint64_t(page.width), uint64_t(page.height), path);
    page.width = h.width;
    page.height = h.height;
    const size_t rowBytes = size_t(h.width) * h.components, bytes = rowBytes * size_t(h.height);
    int split = h.height;
    if (h.splittable && page.pixelCount() >= kSplitFromPixels)
        split = int(h.height * kFirstPartShare) / h.unitRows * h.unitRows;
    Bytes pixels;
    Trailer trailer;
    bool ok[2] = {true, true}, noMemory[2] = {false, false};
    if (split < h.height) {
        // Sized before the parts start, once a decoder is seen to start (no
        // rows, nothing sized): the errors a start raises, such as a missing
        // table, come before the page's memory is asked for.
        if (!decodeRows(file.data(), file.size(), 0, 0, &pixels, 0, rowBytes, &trailer, &noMemory[0], &err[0]))
            throw damaged(err[0]);
        if (!tryResize(&pixels, bytes)) throw AppError(outOfMemory(page, path));
    }
    const auto part = [&](size_t k) {
        ok[k] = k == 0 ? decodeRows(file.data(), file.size(), 0, split, &pixels, bytes, rowBytes, &trailer,
                                    &noMemory[0], &err[0])
                       : decodeRows(file.data(), file.size(), split, h.height, &pixels, bytes, rowBytes, &trailer,
                                    &noMemory[1], &err[1]);
    };
    if (split < h.height)
        runEach(2, part);
    else
        part(0);
    for (int k = 0; k < 2; ++k) {
        if (noMemory[k]) throw AppError(outOfMemory(page, path));
        if (!ok[k]) throw damaged(err[k]);
    }
    if (trailer.densityUnit == 1) {
        page.dpiX = trailer.xDensity;
        page.dpiY = trailer.yDensity;
    } else if (trailer.densityUnit == 2) {
        page.dpiX = dpiFromMetric(trailer.xDensity, 2.54);
        page.dpiY = dpiFromMetric(trailer.yDensity, 2.54);
    }
    // Adobe writes CMYK inverted (0 = full ink).
    if (h.cmyk) convertCmyk(&pixels, page.pixelCount(), trailer.adobe);
    page.pixels = std::move(pixels);
    return page;
}

}  // namespace tavrin
