// Tavrin_bwToMmr: bare T.6 (MMR) bytes of a packed bi-level image, produced
// by libtiff's Group 4 codec writing a one-strip TIFF into a record-only
// in-memory file. Only the bytes written for the strip are recorded, so the
// caller's buffer receives the coded data without header or directory.
#include <fcntl.h>
#include <tiffio.h>

#include <cstdint>

#include "TavrinEncode.h"
#include "TavrinFom.h"

namespace {

constexpr const char* kFileName = "outFile_bwToMmr";
constexpr int kFailed = 20;

// TIFFSetField answers 1 on success; anything else fails the encoding.
template <typename... Args>
void setField(TIFF* tif, uint32_t tag, Args... value) {
    if (TIFFSetField(tif, tag, value...) != 1) throw kFailed;
}

}  // namespace

int Tavrin_bwToMmr(strFgImgInfo* info, uint8_t* pucImage, unsigned long capacity) {
    if (info == nullptr) return kFailed;
    // The file entry lives in this frame; the name is unset on every path
    // before the frame ends.
    alignas(fom::Entry) unsigned char entryStorage[sizeof(fom::Entry)];
    bool registered = false;
    bool recording = false;
    TIFF* tif = nullptr;
    try {
        if (pucImage == nullptr) throw kFailed;
        // The store is 32-bit; a larger buffer offers more room than any
        // strip can need.
        if (capacity > 0xFFFFFFFFul) capacity = 0xFFFFFFFFul;
        if (fom_set(kFileName, O_RDWR, info->pucMmrData, capacity, 0, 1, entryStorage) != 0)
            throw kFailed;
        registered = true;

        tif = tifomOpen(kFileName, "w");  // the 8-byte header is counted, not stored
        if (tif == nullptr) throw kFailed;

        const uint32_t width = info->usWidth;
        const uint32_t height = info->usHeight;
        setField(tif, TIFFTAG_IMAGEWIDTH, width);
        setField(tif, TIFFTAG_IMAGELENGTH, height);
        setField(tif, TIFFTAG_BITSPERSAMPLE, 1);
        setField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
        setField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);  // set bit = black
        setField(tif, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
        setField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        setField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
        setField(tif, TIFFTAG_XRESOLUTION, info->usXReso / 100.0);
        setField(tif, TIFFTAG_YRESOLUTION, info->usYReso / 100.0);
        setField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        setField(tif, TIFFTAG_ROWSPERSTRIP, height);  // one strip: one coding call
        setField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);

        // libtiff appends the coded strip right after the header, so the
        // recording captures exactly the T.6 bytes, from buffer offset 0.
        fom_startRecording(kFileName);
        recording = true;
        const tmsize_t inputBytes = tmsize_t((width + 7) / 8) * tmsize_t(height);
        if (TIFFWriteEncodedStrip(tif, 0, pucImage, inputBytes) == -1) throw kFailed;
        fom_stopRecording(kFileName);
        recording = false;

        TIFF* closing = tif;
        tif = nullptr;
        TIFFClose(closing);  // directory and header patch: counted, not stored

        const int coded = fom_getWritedBytes(kFileName);
        if (coded == 0) throw kFailed;
        fom_unset(kFileName);
        registered = false;
        info->lMmrSize = coded;
        return 0;
    } catch (...) {
        info->lMmrSize = 0;
        // End a recording first, so that the directory libtiff writes while
        // closing is only counted, like on the success path.
        if (recording) fom_stopRecording(kFileName);
        if (tif != nullptr) TIFFClose(tif);
        if (registered) fom_unset(kFileName);
        return kFailed;
    }
}
