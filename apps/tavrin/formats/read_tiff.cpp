// TIFF pages through libtiff, one directory after the other. 8-bit gray and
// bi-level pages are read by strips or scanlines; every other layout goes
// through libtiff's RGBA reader. libtiff's messages are kept for the error
// text instead of being printed.
#include <tiffio.h>

#include <cstdarg>
#include <cstdio>
#include <algorithm>
#include <cstring>
#include <new>

#include "formats/page_reader.h"
#include "pipeline/app_error.h"

namespace tavrin {

namespace {

thread_local std::string g_tiffMessage;

void onTiffError(const char* module, const char* fmt, va_list ap) {
    char buf[512];
    std::vsnprintf(buf, sizeof buf, fmt, ap);
    g_tiffMessage = module ? std::string(module) + ": " + buf : std::string(buf);
}

void onTiffWarning(const char*, const char*, va_list) {}

class TiffReader : public PageReader {
public:
    TiffReader(const std::string& path, TIFF* tif)
        : PageReader(path, ImageFormat::Tiff), tif_(tif), count_(TIFFNumberOfDirectories(tif)) {}
    ~TiffReader() override { TIFFClose(tif_); }
    bool next(Page& page) override;
    int pageCount() const override { return count_; }

private:
    AppError damaged(const std::string& what) const {
        std::string msg = path_ + ": damaged TIFF, page " + std::to_string(index_ + 1) + " (" + what;
        if (!g_tiffMessage.empty()) msg += ": " + g_tiffMessage;
        return AppError(kExitFormat, msg + ")");
    }
    void readGray(Page& page, uint16_t bits, bool minIsWhite);
    void readRgba(Page& page, bool gray);

    TIFF* tif_;
    int count_;
    int index_ = -1;
};

void TiffReader::readGray(Page& page, uint16_t bits, bool minIsWhite) {
    std::vector<uint8_t> line(TIFFScanlineSize(tif_));
    for (int y = 0; y < page.height; ++y) {
        if (TIFFReadScanline(tif_, line.data(), uint32_t(y), 0) < 0) throw damaged("pixels");
        uint8_t* d = page.row(y);
        if (bits == 8) {
            std::memcpy(d, line.data(), size_t(page.width));
        } else {  // 1 bit per pixel, most significant bit first
            for (int x = 0; x < page.width; ++x) d[x] = (line[x >> 3] >> (7 - (x & 7)) & 1) ? 255 : 0;
        }
        if (minIsWhite)
            for (int x = 0; x < page.width; ++x) d[x] = uint8_t(255 - d[x]);
    }
}

void TiffReader::readRgba(Page& page, bool gray) {
    // Page memory, not zero-filled: a small file that claims a huge page
    // fails at its first strip without the raster ever being touched.
    std::vector<uint32_t, DefaultInitAllocator<uint32_t>> raster;
    try {
        raster.resize(page.pixelCount());
    } catch (const std::bad_alloc&) {
        throw outOfMemory(page, path_ + " page " + std::to_string(index_ + 1));
    }
    // Stop at the first strip or tile that cannot be read: a page with a
    // hole is damaged, not white.
    if (!TIFFReadRGBAImageOriented(tif_, uint32_t(page.width), uint32_t(page.height), raster.data(),
                                   ORIENTATION_TOPLEFT, 1))
        throw damaged("pixels");
    uint8_t* d = page.pixels.data();
    for (size_t i = 0; i < raster.size(); ++i) {
        const uint32_t p = raster[i];
        const unsigned a = TIFFGetA(p);
        // Flatten onto white paper (libtiff hands back premultiplied colour).
        const unsigned r = TIFFGetR(p) + (255 - a), g = TIFFGetG(p) + (255 - a),
                       b = TIFFGetB(p) + (255 - a);
        if (gray) {
            d[i] = uint8_t(std::min(255u, r));
        } else {
            d[3 * i] = uint8_t(std::min(255u, r));
            d[3 * i + 1] = uint8_t(std::min(255u, g));
            d[3 * i + 2] = uint8_t(std::min(255u, b));
        }
    }
}

bool TiffReader::next(Page& page) {
    ++index_;
    if (index_ >= count_) return false;
    g_tiffMessage.clear();
    if (!TIFFSetDirectory(tif_, uint16_t(index_))) throw damaged("directory");
    uint32_t w = 0, h = 0;
    uint16_t spp = 1, bits = 1, photometric = 0;
    TIFFGetField(tif_, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(tif_, TIFFTAG_IMAGELENGTH, &h);
    TIFFGetFieldDefaulted(tif_, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(tif_, TIFFTAG_BITSPERSAMPLE, &bits);
    // Without the tag, bi-level pages are fax-like (0 = white), others gray.
    if (!TIFFGetField(tif_, TIFFTAG_PHOTOMETRIC, &photometric))
        photometric = bits == 1 ? PHOTOMETRIC_MINISWHITE : PHOTOMETRIC_MINISBLACK;
    checkPageSize(w, h, path_ + " page " + std::to_string(index_ + 1));
    const bool grayish = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
    page = Page();
    page.width = int(w);
    page.height = int(h);
    page.channels = grayish ? 1 : 3;
    allocatePixels(page, path_ + " page " + std::to_string(index_ + 1));
    if (grayish && spp == 1 && (bits == 8 || bits == 1) && !TIFFIsTiled(tif_))
        readGray(page, bits, photometric == PHOTOMETRIC_MINISWHITE);
    else
        readRgba(page, grayish);
    float xres = 0, yres = 0;
    uint16_t unit = RESUNIT_INCH;
    TIFFGetFieldDefaulted(tif_, TIFFTAG_RESOLUTIONUNIT, &unit);
    if (TIFFGetField(tif_, TIFFTAG_XRESOLUTION, &xres) && unit != RESUNIT_NONE) {
        if (!TIFFGetField(tif_, TIFFTAG_YRESOLUTION, &yres)) yres = xres;
        page.dpiX = unit == RESUNIT_CENTIMETER ? dpiFromMetric(xres, 2.54) : xres;
        page.dpiY = unit == RESUNIT_CENTIMETER ? dpiFromMetric(yres, 2.54) : yres;
    }
    return true;
}

}  // namespace

void quietTiffMessages() {
    TIFFSetErrorHandler(onTiffError);
    TIFFSetWarningHandler(onTiffWarning);
}

std::unique_ptr<PageReader> openTiff(const std::string& path) {
    quietTiffMessages();
    g_tiffMessage.clear();
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    if (!tif) throw AppError(kExitFormat, path + ": damaged TIFF (" + g_tiffMessage + ")");
    return std::unique_ptr<PageReader>(new TiffReader(path, tif));
}

}  // namespace tavrin
