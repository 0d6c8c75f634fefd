// Encoders of libTavrinCommon: the MMR (T.6) foreground, the baseline JPEG
// background, its Flate wrapper and the Deflate TIFF file writer.
//
// The header needs no libtiff or libjpeg header: the types it mentions are
// forward-declared with the same tags those libraries use.
//
// Threads: Tavrin_bwToMmr codes through the process-wide in-memory file
// store under one fixed name, so only one call may run at a time in the
// process, and no other use of the store meanwhile (TavrinFom.h).
// Tavrin_MakeJPGStream, Tavrin_jpgToflate and Tavrin_WriteTIFF keep no state
// of their own: they may run on several threads at once with distinct
// buffers and paths.
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

// Compresses a packed bi-level image into bare T.6 (MMR, CCITT Group 4)
// bytes, without TIFF header or directory.
//   info->pucMmrData  receives the bytes; capacity is its size in bytes
//                     (values above 0xFFFFFFFF count as 0xFFFFFFFF)
//   info->usWidth, usHeight  image size in pixels
//   info->usXReso, usYReso   1/100 dpi; recorded for libtiff, no effect on the bytes
//   pucImage          rows of (usWidth + 7) / 8 bytes, leftmost pixel in the
//                     most significant bit, 1 = black; padding bits ignored
// Returns 0 with info->lMmrSize = number of bytes, or 20 with lMmrSize 0 on
// any failure: null image or buffer, capacity 0 or too small for the coded
// data (the buffer may then hold partial data), a zero height, or the name
// "outFile_bwToMmr" already registered in the in-memory file store (that
// registration is left alone). Not reentrant, not thread-safe.
TAVRIN_API int Tavrin_bwToMmr(strFgImgInfo* info, uint8_t* pucImage, unsigned long capacity);

// Installs this library's memory destination on a libjpeg compression
// object (created with jpeg_CreateCompress): the stream goes to buffer,
// which holds capacity bytes and never grows. A null buffer has no room.
// The destination record comes from the object's permanent pool; an existing
// destination of this kind is reused. Nothing is ever written past capacity:
// a stream that exactly fills the buffer is complete, a longer one raises
// the libjpeg error JERR_BUFFER_SIZE through the object's error_exit.
TAVRIN_API void jpeg_memory_dest(jpeg_compress_struct* cinfo, uint8_t* buffer, uint32_t capacity);

// libjpeg error_exit that prints nothing and never returns: throws the int
// 10 for a decompression object (is_decompressor == 1), otherwise 11.
[[noreturn]] TAVRIN_API void JpegErrorExit(jpeg_common_struct* cinfo);

// Encodes src as a baseline JPEG (JFIF, Annex K Huffman tables) into
// info->pucStreamData, whose capacity is taken to be usWidth x usHeight x
// components bytes (held at 0xFFFFFFFF beyond that).
//   src->ucType  1, 2: RGB, 3 components; any other: 1 gray component
//   quality      libjpeg quality 1..100 (values outside are clamped)
//   iChromaOffset  added to quality for the chrominance table (types other
//                than 0); type 0 uses libjpeg's own quality call
//   iSampling    first component's h x v sampling for types other than 0:
//                5 -> 1x1; 2, 4 -> 2x1; 0, 1, 3 and any other -> 2x2
// Density: dots per inch, usXReso / 100 and usYReso / 100 (truncated).
// Returns 0 with info->ulStreamSize = stream bytes; 11 for an error reported
// by libjpeg, including a zero width or height and a stream longer than the
// capacity (no byte past the capacity is written); 18 for any other failure
// (null info, src or pixels). On failure ulStreamSize is unchanged and the
// buffer may hold a partial stream.
TAVRIN_API int Tavrin_MakeJPGStream(strBgImgInfo* info, ImgTavrin* src, int quality,
                                    int iChromaOffset, int iSampling);

// Compresses info->ulStreamSize bytes of source with zlib's compress
// (default level) into info->pucStreamData, at most capacity bytes, and
// stores the zlib stream's size in info->ulStreamSize. source must not
// overlap the stream buffer; compressBound(size) bytes always suffice.
// Returns 0, or 19 for any zlib failure (buffer too small, no memory) or a
// null pointer; the size is then unchanged.
TAVRIN_API int Tavrin_jpgToflate(strBgImgInfo* info, uint8_t* source, unsigned long capacity);

// Writes a gray (type 0) or RGB (types 1, 2, 7) image to path as a TIFF with
// Deflate compression (32946), 128-row strips, resolution usXReso / 100 per
// inch and Software = path. An existing file is replaced.
// Returns 0 once the file is open (later libtiff errors are not reported),
// or -1 for another type, a null path/image/pixels, a zero height (no file
// is touched, no pixel read), or a file that cannot be created.
TAVRIN_API int Tavrin_WriteTIFF(const char* path, ImgTavrin* img);

#endif
