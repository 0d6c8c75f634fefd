// Debug output of libTavrinCommon: dump paths and directories, and dump
// writers. Every path buffer is 1024 bytes; its last byte is always zero.
//
// The header needs no libtiff header: TIFF is forward-declared with the same
// typedef that libtiff uses.
//
// Threads: the path functions only touch the buffers they are given, and
// the dumps keep no state of their own, so all may run on several threads
// at once on different files (two threads may also make the same dump
// directory at once). The one shared state, the installation of the tag
// extension by the first foreground dump or _XTIFFInitialize, happens
// exactly once even when several threads arrive first together.
#ifndef TAVRIN_DEBUG_H
#define TAVRIN_DEBUG_H

#include <cstdint>
#include <cstdio>

#include "TavrinDetect.h"
#include "TavrinEncode.h"
#include "TavrinExport.h"
#include "TavrinImage.h"

typedef struct tiff TIFF;

enum { TAVRIN_PATH_SIZE = 1024, TAVRIN_DUMP_NAME_SIZE = 16 };

// Process control information: where dumps go.
struct __TavrinProcess_Ctrl_Info {
    char cCoreDirName[TAVRIN_PATH_SIZE];  // base directory of all dumps
    char cDebugPath[TAVRIN_PATH_SIZE];    // core directory joined with a name
};

// Settings of one dump target.
struct ST_DEBUG_INFO {
    uint8_t ucDumpSw;                       // 0 = dumps off
    char cDumpName[TAVRIN_DUMP_NAME_SIZE];  // directory below the core directory
};

// Clears the 1024-byte dst and copies name (shorter than 1024 bytes). Returns 0.
TAVRIN_API int set_CoreDirName(char* dst, char* name);
// dst (1024 bytes) = dir + "/" + name, cut to 1023 characters. Returns 0.
TAVRIN_API int catPath(char* dst, char* dir, char* name);
// ctrl->cDebugPath = catPath(ctrl->cCoreDirName, name). Returns 0.
TAVRIN_API int setDebugPath(__TavrinProcess_Ctrl_Info* ctrl, char* name);
// With sw non-zero: makes sure dir + "/" + name is a directory (creating the
// last component with mode 0777) and stores the path in dst. Returns 0, or 1
// when it cannot be created (dst untouched). sw 0: returns 0, does nothing.
TAVRIN_API int setDumpPath(char* dst, char* dir, char* name, uint8_t sw);
// With dbg->ucDumpSw non-zero: stores name (at most 15 characters) in
// dbg->cDumpName and makes sure core directory + "/" + name is a directory.
// Returns 0, or 1 when it cannot be created.
TAVRIN_API int setDumpPath2(__TavrinProcess_Ctrl_Info* ctrl, ST_DEBUG_INFO* dbg, char* name);
// Opens path with fopen(mode) into *fp (null first). Returns 0, or -1 when
// it could not be opened (*fp null).
TAVRIN_C_API int _tfopen_s(FILE** fp, const char* path, const char* mode);

// ---- Dump writers -----------------------------------------------------------
//
// Dumps are best-effort: a file that cannot be opened is skipped and the
// call still returns 0 (only Tavrin_Debug_Image passes on the TIFF writer's
// status). Missing inputs create no file. Where a function takes a
// directory and a file name, the file is catPath(dir, name).

// The caller's foreground layers: an array of equal slots (24 bytes on
// i386, 32 on x86-64). Slot 0 carries the slot count in iLayerNum (slot 0
// included); the rest of slot 0 is the caller's and never read. Slots
// 1 .. iLayerNum - 1 each hold one layer, so layer s is
// result[s].stFgImgInfo.
union SoftCicResult {
    int32_t iLayerNum;          // slot 0 only: number of slots, slot 0 included
    strFgImgInfo stFgImgInfo;   // slots 1 .. iLayerNum - 1
};

// Private TIFF tags of the foreground dump.
enum : uint32_t {
    TAVRIN_TIFFTAG_CIC_MASKOFFSET = 43000,  // "CIC_MaskOffset": 2 SLONG (x, y)
    TAVRIN_TIFFTAG_CIC_MASK_COLOR = 43001,  // "CIC_Mask_Color": 3 SHORT (0..255)
};

// Writes the first info->ulStreamSize bytes of info->pucStreamData to path
// (replaced), without a header of its own. flag is not used. Nothing is
// written when the stream buffer is null. Returns 0.
TAVRIN_API int TavrinApp_DebugBGImg(strBgImgInfo* info, char* path, uint8_t flag);

// Writes img as a Deflate TIFF (Tavrin_WriteTIFF) to dir/name. Returns 0
// when img has no pixels (no file); otherwise the writer's status: 0, or -1
// for a type it does not write (3 and codes other than 0, 1, 2, 7), a zero
// height (no file) or a file that cannot be created.
TAVRIN_API int Tavrin_Debug_Image(char* dir, char* name, ImgTavrin* img);

// Writes the raw pixel bytes of img, usWidth * usHeight * (ucType != 0 ? 3
// : 1), to dir/name without a header. No file when img has no pixels.
// Returns 0.
TAVRIN_API int Tavrin_Debug_RawImage(char* dir, char* name, ImgTavrin* img);

// Writes one text line per layout entry i to dir/name:
//   i, A.sItem0..3, A.iItem4, 0, B.sItem0..3, B.iItem4, 0, B.cItem5
// (fourteen comma-separated decimals, signed) with A = pstLayoutA[i] and
// B = pstLayoutB[i]. No file when either array is null; an empty file when
// iLayoutNum <= 0. Returns 0.
TAVRIN_API int Tavrin_Debug_LayoutData(char* dir, char* name, ST_LAYOUT* layout);

// Writes width * height bytes, each (pixel * (scale mod 256)) mod 256, to
// "<base>.raw" (no directory added): scale 255 turns a 0/1 mask into 0/255.
// The path must fit in 260 bytes with its terminating zero; a longer base
// name, a negative size or missing pixels write no file. Returns 0.
TAVRIN_API int DebugOut(const char* base, uint8_t* pixels, int width, int height, int scale);

// Scale 1: Tavrin_Debug_Image(dir, name, img). Any other scale: a copy of
// img whose every byte is (pixel * (scale mod 256)) mod 256 is written the
// same way (meant for type-0 planes; other types are scaled byte by byte
// over their whole size). No file when dir is empty or null, name is null
// or img has no pixels. Returns 0 whatever the writer returned.
TAVRIN_API int DebugOutTiff(char* dir, char* name, ImgTavrin* img, int scale);

// Writes the non-empty layers (lMmrSize != 0) of slots 1 .. iLayerNum - 1 to
// path (replaced) as a multi-page TIFF: one CCITT Group 4 page per layer in
// slot order, the coded bytes stored as they are (not coded again), the two
// private tags carrying the mask offset and colour. Every stored byte has
// its bit order reversed (bit 7 <-> bit 0, ...) while the page's FillOrder
// field says 1: the strips give the layer's image when decoded with fill
// order 2. The reversal is done in place for the write and undone before
// the call returns, whatever happens, so pucMmrData is left as it was.
// Stops at the first layer whose strip cannot be written completely (a
// negative lMmrSize or null pucMmrData count as such); the pages before it
// stay in the file, which is closed properly. Installs the tag extension
// first (_XTIFFInitialize). An unopenable path writes nothing. Returns 0.
TAVRIN_API int TavrinApp_DebugFGImg(SoftCicResult* result, char* path);

// Installs _XTIFFDefaultDirectory as libtiff's tag extender, once per
// process (safe when several threads call it first at the same time); the
// extender installed before it is kept and chained. Later calls do nothing.
TAVRIN_API void _XTIFFInitialize();

// Tag extender: merges the definitions of the two private tags into tif,
// then calls the extender that was installed before this one, if any.
TAVRIN_API void _XTIFFDefaultDirectory(TIFF* tif);

#endif
