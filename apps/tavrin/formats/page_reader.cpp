#include "formats/page_reader.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

#include "pipeline/app_error.h"

namespace tavrin {

double dpiFromMetric(double value, double unitsPerInch) {
    const double dpi = value * unitsPerInch, whole = std::round(dpi);
    if (!(whole > 0 && whole < 1e6)) return dpi;  // damaged values are refused later
    // A whole field is the whole dpi rounded to the unit; a fractional one
    // (a TIFF rational) must be that dpi to within rounding.
    const bool roundedField = value == std::floor(value) && std::llround(whole / unitsPerInch) == (long long)value;
    return roundedField || std::abs(dpi - whole) < 0.01 ? whole : dpi;
}

ImageFormat sniffFormat(const uint8_t* h, size_t n) {
    if (n >= 8 && std::memcmp(h, "\x89PNG\r\n\x1a\n", 8) == 0) return ImageFormat::Png;
    if (n >= 4 && (std::memcmp(h, "II*\0", 4) == 0 || std::memcmp(h, "MM\0*", 4) == 0 ||
                   std::memcmp(h, "II+\0", 4) == 0 || std::memcmp(h, "MM\0+", 4) == 0))
        return ImageFormat::Tiff;
    if (n >= 3 && h[0] == 0xFF && h[1] == 0xD8 && h[2] == 0xFF) return ImageFormat::Jpeg;
    if (n >= 2 && h[0] == 'P' && h[1] >= '1' && h[1] <= '6') return ImageFormat::Pnm;
    return ImageFormat::Unknown;
}

const char* formatName(ImageFormat f) {
    switch (f) {
        case ImageFormat::Png: return "PNG";
        case ImageFormat::Tiff: return "TIFF";
        case ImageFormat::Jpeg: return "JPEG";
        case ImageFormat::Pnm: return "PNM";
        default: return "unknown";
    }
}

void checkPageSize(uint64_t w, uint64_t h, const std::string& path) {
    if (w == 0 || h == 0)
        throw AppError(kExitFormat, path + ": the image is empty (" + std::to_string(w) + " x " +
                                        std::to_string(h) + " pixels)");
    if (w > uint64_t(kMaxPageSide) || h > uint64_t(kMaxPageSide))
        throw AppError(kExitFormat, path + ": page of " + std::to_string(w) + " x " +
                                        std::to_string(h) + " pixels; at most " +
                                        std::to_string(kMaxPageSide) + " pixels per side");
    if (w * h > kMaxPagePixels)
        throw AppError(kExitFormat, path + ": page of " + std::to_string(w) + " x " +
                                        std::to_string(h) + " pixels; at most " +
                                        std::to_string(kMaxPagePixels / 1000000) +
                                        " million pixels");
}

AppError outOfMemory(const Page& page, const std::string& path) {
    const uint64_t mib = (uint64_t(page.pixelCount()) * page.channels + (1 << 20) - 1) >> 20;
    return AppError(kExitFailure, path + ": not enough memory for a page of " + std::to_string(page.width) +
                                      " x " + std::to_string(page.height) + " pixels (" + std::to_string(mib) +
                                      " MiB)");
}

void allocatePixels(Page& page, const std::string& path) {
    try {
        page.pixels.resize(page.pixelCount() * page.channels);
    } catch (const std::bad_alloc&) {
        throw outOfMemory(page, path);
    }
}

namespace {

std::vector<uint8_t> readWholeFile(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) throw AppError(kExitInput, path + ": cannot open: " + std::strerror(errno));
    std::vector<uint8_t> data;
    uint8_t buf[1 << 16];
    size_t got;
    while ((got = std::fread(buf, 1, sizeof buf, f)) > 0) data.insert(data.end(), buf, buf + got);
    const bool failed = std::ferror(f);
    const int err = errno;
    std::fclose(f);
    // A directory opens but fails to read (EISDIR).
    if (failed) throw AppError(kExitInput, path + ": cannot read: " + std::strerror(err));
    return data;
}

// PNG, JPEG and PNM files hold one page and are decoded from memory.
class SinglePageReader : public PageReader {
public:
    SinglePageReader(std::string path, ImageFormat f, std::vector<uint8_t> data)
        : PageReader(std::move(path), f), data_(std::move(data)) {}
    bool next(Page& page) override {
        if (done_) return false;
        done_ = true;
        switch (format_) {
            case ImageFormat::Png: page = decodePng(data_, path_); break;
            case ImageFormat::Jpeg: page = decodeJpeg(data_, path_); break;
            default: page = decodePnm(data_, path_); break;
        }
        std::vector<uint8_t>().swap(data_);
        return true;
    }
    int pageCount() const override { return 1; }

private:
    std::vector<uint8_t> data_;
    bool done_ = false;
};

}  // namespace

std::unique_ptr<PageReader> PageReader::open(const std::string& path) {
    // Sniff first: a TIFF is read by libtiff straight from the file.
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) throw AppError(kExitInput, path + ": cannot open: " + std::strerror(errno));
    uint8_t head[8] = {};
    const size_t n = std::fread(head, 1, sizeof head, f);
    const bool failed = std::ferror(f);
    const int err = errno;
    std::fclose(f);
    if (failed) throw AppError(kExitInput, path + ": cannot read: " + std::strerror(err));
    const ImageFormat fmt = sniffFormat(head, n);
    switch (fmt) {
        case ImageFormat::Unknown:
            throw AppError(kExitFormat, path + ": unsupported format (not a PNG, TIFF, JPEG or PNM image)");
        case ImageFormat::Tiff:
            return openTiff(path);
        default:
            return std::unique_ptr<PageReader>(new SinglePageReader(path, fmt, readWholeFile(path)));
    }
}

}  // namespace tavrin
