// Encoders of libTavrinCommon: the MMR (T.6) foreground, the baseline JPEG
// background, its Flate wrapper and the Deflate TIFF file writer.
//
// The header needs no libtiff or libjpeg header: the types it mentions are
// forward-declared with the same tags those libraries use.
#ifndef TAVRIN_ENCODE_H
#define TAVRIN_ENCODE_H

#include <cstdint>

#include "TavrinExport.h"
#include "TavrinImage.h"

struct jpeg_compress_struct;
struct jpeg_common_struct;

// One foreground layer. The encoder reads pucMmrData, the geometry and the
// resolutions and writes lMmrSize; the mask offset and colour are for the
// foreground dump.
struct strFgImgInfo {
    int32_t lMmrSize;         // out: MMR bytes in pucMmrData (0 after a failure)
    uint8_t* pucMmrData;      // caller's buffer for the MMR bytes
    uint16_t usWidth;         // pixels
    uint16_t usHeight;        // rows
    uint16_t usXReso;         // 1/100 dpi
    uint16_t usYReso;         // 1/100 dpi
    int16_t sMaskOffsetX;     // layer offset on the page
    int16_t sMaskOffsetY;
    uint8_t aucMaskColor[3];  // layer colour
};

// The background stream.
struct strBgImgInfo {
    uint32_t ulStreamSize;    // bytes of the stream in pucStreamData
    uint8_t* pucStreamData;   // caller's buffer
};

// Compresses a packed bi-level image (rows of (usWidth + 7) / 8 bytes, MSB
// first, 1 = black) into bare T.6 bytes in info->pucMmrData, which holds
// capacity bytes. Returns 0 with info->lMmrSize set, or 20 on any failure
// (lMmrSize 0). Not reentrant: uses the in-memory file "outFile_bwToMmr".
TAVRIN_API int Tavrin_bwToMmr(strFgImgInfo* info, uint8_t* pucImage, unsigned long capacity);

// Installs this library's memory destination (no growth) on a libjpeg
// compression object.
TAVRIN_API void jpeg_memory_dest(jpeg_compress_struct* cinfo, uint8_t* buffer, uint32_t capacity);
// libjpeg error_exit: throws 10 for a decompressor, 11 otherwise. Never returns.
TAVRIN_API void JpegErrorExit(jpeg_common_struct* cinfo);
// Encodes src (type 1, 2: RGB; any other: one gray component) as a baseline
// JPEG into info->pucStreamData, whose capacity must be at least
// usWidth * usHeight * components. quality 0..100; iChromaOffset is added to
// quality for the chrominance table of colour input; iSampling chooses the
// first component's sampling (5: 1x1; 2, 4: 2x1; others 2x2).
// Returns 0 with info->ulStreamSize set; 11 for a libjpeg error (also a
// stream that would not fit), 18 for any other failure.
TAVRIN_API int Tavrin_MakeJPGStream(strBgImgInfo* info, ImgTavrin* src, int quality,
                                    int iChromaOffset, int iSampling);
// Compresses info->ulStreamSize bytes of source with zlib into
// info->pucStreamData (at most capacity bytes) and stores the new size.
// Returns 0, or 19 on any zlib failure (size left unchanged).
TAVRIN_API int Tavrin_jpgToflate(strBgImgInfo* info, uint8_t* source, unsigned long capacity);
// Writes a gray (type 0) or RGB (types 1, 2, 7) image as a Deflate TIFF with
// 128-row strips. Returns 0, or -1 for another type or a file that cannot be
// created.
TAVRIN_API int Tavrin_WriteTIFF(const char* path, ImgTavrin* img);

#endif
