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

// Rows [first, last) into `out` (rows of `rowBytes`), the trailer checked
// when `last` is the final row. Free of objects with destructors because of
// longjmp.
bool decodeRows(const uint8_t* data, size_t size, int first, int last, uint8_t* out, size_t rowBytes,
                ErrorManager* err) {
    jpeg_decompress_struct cinfo;
    prepare(&cinfo, err, data, size);
    if (setjmp(err->jump)) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = outputSpace(cinfo);
    jpeg_start_decompress(&cinfo);
    if (first > 0) jpeg_skip_scanlines(&cinfo, JDIMENSION(first));
    while (int(cinfo.output_scanline) < last) {
        JSAMPROW row = out + size_t(cinfo.output_scanline) * rowBytes;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    if (cinfo.output_scanline == cinfo.output_height) jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}

struct Header {
    int width = 0, height = 0, components = 0;
    bool cmyk = false, inverted = false, splittable = false;
    int unitRows = 0;  // rows of one row of coding units
};

// The header alone: size, colour, resolution. Free of objects with destructors.
bool readHeader(const uint8_t* data, size_t size, Page* page, Header* h, ErrorManager* err) {
    jpeg_decompress_struct cinfo;
    prepare(&cinfo, err, data, size);
    if (setjmp(err->jump)) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = outputSpace(cinfo);
    jpeg_calc_output_dimensions(&cinfo);
    h->width = int(cinfo.output_width);
    h->height = int(cinfo.output_height);
    h->components = cinfo.output_components;
    h->cmyk = cinfo.out_color_space == JCS_CMYK;
    // Adobe writes CMYK inverted (0 = full ink).
    h->inverted = h->cmyk && cinfo.saw_Adobe_marker;
    // A progressive file is read whole before its first row: nothing to share.
    h->splittable = !jpeg_has_multiple_scans(&cinfo);
    h->unitRows = cinfo.max_v_samp_factor * DCTSIZE;
    page->width = h->width;
    page->height = h->height;
    page->channels = h->components == 1 ? 1 : 3;
    if (cinfo.density_unit == 1) {
        page->dpiX = cinfo.X_density;
        page->dpiY = cinfo.Y_density;
    } else if (cinfo.density_unit == 2) {
        page->dpiX = dpiFromMetric(cinfo.X_density, 2.54);
        page->dpiY = dpiFromMetric(cinfo.Y_density, 2.54);
    }
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
    Header h;
    if (!readHeader(file.data(), file.size(), &page, &h, &err[0]))
        throw AppError(kExitFormat, path + ": damaged JPEG (" + err[0].message + ")");
    checkPageSize(uint64_t(h.width), uint64_t(h.height), path);
    Bytes pixels;
    try {
        pixels.resize(page.pixelCount() * h.components);
    } catch (const std::bad_alloc&) {
        throw AppError(outOfMemory(page, path));
    }
    const size_t rowBytes = size_t(h.width) * h.components;
    int split = h.height;
    if (h.splittable && page.pixelCount() >= kSplitFromPixels)
        split = int(h.height * kFirstPartShare) / h.unitRows * h.unitRows;
    bool ok[2] = {true, true};
    const auto part = [&](size_t k) {
        ok[k] = k == 0 ? decodeRows(file.data(), file.size(), 0, split, pixels.data(), rowBytes, &err[0])
                       : decodeRows(file.data(), file.size(), split, h.height, pixels.data(), rowBytes, &err[1]);
    };
    if (split < h.height)
        runEach(2, part);
    else
        part(0);
    for (int k = 0; k < 2; ++k) {
        if (ok[k]) continue;
        if (err[k].pub.msg_code == JERR_OUT_OF_MEMORY) throw AppError(outOfMemory(page, path));
        throw AppError(kExitFormat, path + ": damaged JPEG (" + err[k].message + ")");
    }
    if (h.cmyk) convertCmyk(&pixels, page.pixelCount(), h.inverted);
    page.pixels = std::move(pixels);
    return page;
}

}  // namespace tavrin
