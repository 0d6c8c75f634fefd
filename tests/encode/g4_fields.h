// The fields the MMR encoder writes for a one-strip Group 4 page, for
// reference files and baselines made with plain libtiff.
#ifndef TAVRIN_TESTS_ENCODE_G4_FIELDS_H
#define TAVRIN_TESTS_ENCODE_G4_FIELDS_H

#include <tiffio.h>

#include <cstdint>

namespace encode_test {

// Bi-level, min-is-white, MSB first, 300 dpi, one strip of height rows.
inline void setG4Fields(TIFF* tif, uint32_t width, uint32_t height) {
    const uint32_t fields[][2] = {
        {TIFFTAG_IMAGEWIDTH, width},  {TIFFTAG_IMAGELENGTH, height}, {TIFFTAG_BITSPERSAMPLE, 1}, {TIFFTAG_SAMPLESPERPIXEL, 1},
        {TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE}, {TIFFTAG_FILLORDER, FILLORDER_MSB2LSB},
        {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG}, {TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT},
        {TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH}, {TIFFTAG_ROWSPERSTRIP, height}, {TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4}};
    for (const auto& f : fields) TIFFSetField(tif, f[0], f[1]);
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, 300.0);
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, 300.0);
}

}  // namespace encode_test

#endif
