// Reading page images: PNG, TIFF (every page of a multi-page file), JPEG and
// PNM (P1 to P6), recognised by their first bytes, not by the file name.
#ifndef TAVRIN_APP_PAGE_READER_H
#define TAVRIN_APP_PAGE_READER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pipeline/app_error.h"
#include "pipeline/page.h"

namespace tavrin {

// Pages with more pixels than this are refused before any pixel memory is
// taken (an A0 sheet at 600 dpi still fits). The fuzz build lowers it, so
// that no input spends seconds on a page that a few bytes claim.
#ifndef TAVRIN_MAX_PAGE_PIXELS
#define TAVRIN_MAX_PAGE_PIXELS 600000000ull
#endif
constexpr uint64_t kMaxPagePixels = TAVRIN_MAX_PAGE_PIXELS;

enum class ImageFormat { Png, Tiff, Jpeg, Pnm, Unknown };

// Format from the first bytes of a file.
ImageFormat sniffFormat(const uint8_t* head, size_t size);
const char* formatName(ImageFormat f);

// Yields the pages of one file in order. Every failure throws AppError with
// the file name in its message: kExitInput for a file that cannot be opened
// or read, kExitFormat for an unsupported, damaged or oversized image.
class PageReader {
public:
    static std::unique_ptr<PageReader> open(const std::string& path);
    virtual ~PageReader() = default;
    // Reads the next page into `page`; false after the last one.
    virtual bool next(Page& page) = 0;
    // Number of pages in the file (TIFF directories; 1 for the others).
    virtual int pageCount() const = 0;
    ImageFormat format() const { return format_; }
    const std::string& path() const { return path_; }

protected:
    PageReader(std::string path, ImageFormat f) : path_(std::move(path)), format_(f) {}
    std::string path_;
    ImageFormat format_;
};

// Dots per inch from a resolution in dots per metre or centimetre
// (`unitsPerInch`: 0.0254 or 2.54): the whole number of dpi when the stored
// value is that number rounded to the unit, or within 0.01 dpi of it (PNG
// keeps 300 dpi as 11811 per metre, 299.9994 dpi, which would make the PDF
// page a fraction of a pixel larger than the scan and shift a viewer's
// rendering by a row); the exact value otherwise.
double dpiFromMetric(double value, double unitsPerInch);

// Decoders of a whole file held in memory (one page each). They throw
// AppError(kExitFormat) naming `path` on damaged data.
Page decodePng(const std::vector<uint8_t>& file, const std::string& path);
Page decodeJpeg(const std::vector<uint8_t>& file, const std::string& path);
Page decodePnm(const std::vector<uint8_t>& file, const std::string& path);
std::unique_ptr<PageReader> openTiff(const std::string& path);

// Keeps libtiff's error and warning messages (also those of the library's
// MMR encoder, which drives libtiff) off the terminal; a failure is reported
// through the status it causes.
void quietTiffMessages();

// Refuses geometry the program cannot handle (kExitFormat).
void checkPageSize(uint64_t width, uint64_t height, const std::string& path);

// Sizes page.pixels to width x height x channels (contents undefined).
// Throws AppError(kExitFailure) naming the page when the memory is not there.
void allocatePixels(Page& page, const std::string& path);
// The error for a page whose decoding ran out of memory.
AppError outOfMemory(const Page& page, const std::string& path);

}  // namespace tavrin

#endif
