// Tavrin_WriteTIFF: a gray or RGB ImgTavrin as a Deflate TIFF file in strips
// of 128 rows, passed to libtiff straight from the image buffer.
#include <tiffio.h>

#include <cstddef>

#include "TavrinEncode.h"

namespace {
constexpr uint32_t kRowsPerStrip = 128;
constexpr uint16_t kCompressionDeflate = 32946;  // libtiff's code, not Adobe's 8
}  // namespace

int Tavrin_WriteTIFF(const char* path, ImgTavrin* img) {
    if (path == nullptr || img == nullptr) return -1;
    uint16_t samples;
    uint16_t photometric;
    switch (img->ucType) {
    case 0:
        samples = 1;
        photometric = PHOTOMETRIC_MINISBLACK;
        break;
    case 1:
    case 2:
    case 7:
        samples = 3;
        photometric = PHOTOMETRIC_RGB;
        break;
    default:
        return -1;
    }
    // Zero rows make no strip at all: refused before anything is opened, so
    // no pixel is read and no file is touched. (A zero width still gets its
    // file; libtiff reports the empty rows and nothing is read.)
    if (img->usHeight == 0 || img->pucImage == nullptr) return -1;

    TIFF* tif = TIFFOpen(path, "w");
    if (tif == nullptr) return -1;

    const uint32_t width = img->usWidth;
    const uint32_t height = img->usHeight;
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, samples);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, kCompressionDeflate);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, photometric);
    TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, img->usXReso / 100.0f);  // single precision
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, img->usYReso / 100.0f);
    TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tif, TIFFTAG_SOFTWARE, path);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, kRowsPerStrip);

    const size_t rowBytes = size_t(width) * samples;
    const size_t stripBytes = kRowsPerStrip * rowBytes;
    const uint32_t strips = (height + kRowsPerStrip - 1) / kRowsPerStrip;
    for (uint32_t s = 0; s + 1 < strips; ++s)
        TIFFWriteEncodedStrip(tif, s, img->pucImage + s * stripBytes,
                              static_cast<tmsize_t>(stripBytes));
    const uint32_t lastRows = height - (strips - 1) * kRowsPerStrip;
    TIFFWriteEncodedStrip(tif, strips - 1, img->pucImage + (strips - 1) * stripBytes,
                          static_cast<tmsize_t>(lastRows * rowBytes));
    TIFFClose(tif);
    return 0;
}
