// Foreground layer dump: the caller's MMR layers as one multi-page CCITT
// Group 4 TIFF, each page carrying the layer's mask offset and colour in the
// two private tags.
#include <tiffio.h>

#include <cstddef>
#include <cstdint>

#include "TavrinDebug.h"

namespace {

// 256-entry table: bit 7 <-> bit 0, 6 <-> 1, 5 <-> 2, 4 <-> 3.
struct BitReverseTable {
    uint8_t value[256];
    constexpr BitReverseTable() : value() {
        for (int b = 0; b < 256; ++b) {
            int r = 0;
            for (int k = 0; k < 8; ++k)
                if (b & (1 << k)) r |= 0x80 >> k;
            value[b] = static_cast<uint8_t>(r);
        }
    }
};
constexpr BitReverseTable kBitReverse;

void reverseBits(uint8_t* data, size_t n) {
    for (size_t i = 0; i < n; ++i) data[i] = kBitReverse.value[data[i]];
}

// The page's fields, in the order the dump format lists them.
void setPageFields(TIFF* tif, const strFgImgInfo& layer) {
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(layer.usWidth));
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(layer.usHeight));
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, layer.usXReso / 100.0);  // 1/100 dpi -> dpi
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, layer.usYReso / 100.0);
    TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(layer.usHeight));
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    int32_t offset[2] = {layer.sMaskOffsetX, layer.sMaskOffsetY};
    TIFFSetField(tif, TAVRIN_TIFFTAG_CIC_MASKOFFSET, offset);
    uint16_t colour[3] = {layer.aucMaskColor[0], layer.aucMaskColor[1], layer.aucMaskColor[2]};
    TIFFSetField(tif, TAVRIN_TIFFTAG_CIC_MASK_COLOR, colour);
}

// Writes the layer's coded bytes (lMmrSize > 0, data not null) as strip 0
// without coding them again. The dump stores every byte bit-reversed
// (although its FillOrder field says 1); the caller's buffer is reversed
// only for the duration of the write, so no copy of the strip is needed.
// Returns true when the whole strip was written.
bool writeLayerStrip(TIFF* tif, const strFgImgInfo& layer) {
    const tmsize_t n = layer.lMmrSize;
    reverseBits(layer.pucMmrData, static_cast<size_t>(n));
    const tmsize_t written = TIFFWriteRawStrip(tif, 0, layer.pucMmrData, n);
    reverseBits(layer.pucMmrData, static_cast<size_t>(n));
    return written == n;
}

// After a failed strip write, makes the last complete page the current
// directory again, so that closing the file neither writes the broken page
// nor links it to the pages before it. With no complete page there is
// nothing to keep.
void keepCompletePages(TIFF* tif, int pages) {
    if (pages > 0) TIFFSetDirectory(tif, static_cast<tdir_t>(pages - 1));
}

}  // namespace

int TavrinApp_DebugFGImg(SoftCicResult* result, char* path) {
    _XTIFFInitialize();
    if (result == nullptr || path == nullptr) return 0;
    TIFF* tif = TIFFOpen(path, "w");
    if (tif == nullptr) return 0;
    const int32_t slots = result[0].iLayerNum;
    int pages = 0;  // pages completely written so far
    for (int32_t s = 1; s < slots; ++s) {
        const strFgImgInfo& layer = result[s].stFgImgInfo;
        if (layer.lMmrSize == 0) continue;  // empty layer: no page
        // A strip that cannot even be handed to libtiff stops the dump like
        // a short write; checked before the page is begun, so nothing of it
        // reaches the file.
        if (layer.lMmrSize < 0 || layer.pucMmrData == nullptr) break;
        setPageFields(tif, layer);
        if (!writeLayerStrip(tif, layer)) {
            keepCompletePages(tif, pages);
            break;
        }
        if (TIFFWriteDirectory(tif)) ++pages;
    }
    TIFFClose(tif);
    return 0;
}
