// Image record, work-buffer placement and common helpers of libTavrinCommon.
//
// An ImgTavrin only describes pixels that live elsewhere (a caller buffer or
// the caller's work buffer); no function here allocates or frees pixels.
// Statuses: 0 success, 2 bad argument (or no room in the work buffer).
//
// Threads: every function here touches only the records, buffers and file
// it is given, so any of them may run on several threads at once as long as
// no two calls write the same record or pixels.
#ifndef TAVRIN_IMAGE_H
#define TAVRIN_IMAGE_H

#include <cstdint>

#include "TavrinExport.h"
#include "TavrinParams.h"

// Pixel type codes (ucType).
enum : uint8_t {
    TAVRIN_TYPE_GRAY = 0,     // 8-bit gray, 1 byte per pixel
    TAVRIN_TYPE_RGB = 1,      // interleaved R, G, B
    TAVRIN_TYPE_RGB2 = 2,     // treated exactly like 1
    TAVRIN_TYPE_BILEVEL = 3,  // bi-level, one byte or one bit per pixel
    TAVRIN_TYPE_FURTHER = 7,  // colour-sized code: RGB TIFF, gray JPEG
};

// One image: pixels are never owned. Byte size by the general rule is
// usWidth * usHeight * (ucType != 0 ? 3 : 1), formed in 32-bit unsigned
// arithmetic. Resolutions are in hundredths of a dot per inch.
struct ImgTavrin {
    uint8_t* pucImage;  // first pixel byte, rows without padding
    uint16_t usWidth;   // pixels
    uint16_t usHeight;  // rows
    uint16_t usXReso;   // 1/100 dpi (30000 = 300 dpi)
    uint16_t usYReso;   // 1/100 dpi
    uint8_t ucType;     // pixel type code
};

// ---- Image record family -------------------------------------------------

// Sets width, height, type and resolutions; keeps pucImage. When clear is
// true and pucImage is not null, zero-fills the pixel bytes. Returns 0.
TAVRIN_API int set_ImageTavrin(ImgTavrin* img, uint16_t usWidth, uint16_t usHeight,
                               uint8_t ucType, uint16_t usXReso, uint16_t usYReso,
                               bool clear);
// Stores the pixel pointer, then set_ImageTavrin. Returns 0.
TAVRIN_API int set_ImageTavrinP(ImgTavrin* img, uint8_t* pucImage, uint16_t usWidth,
                                uint16_t usHeight, uint8_t ucType, uint16_t usXReso,
                                uint16_t usYReso, bool clear);
// Takes geometry, type and resolutions from `from`; img keeps its pixels. Returns 0.
TAVRIN_API int set_ImageTavrinFI(ImgTavrin* img, ImgTavrin* from, bool clear);
// Stores the pixel pointer, then set_ImageTavrinFI. Returns 0.
TAVRIN_API int set_ImageTavrinFIP(ImgTavrin* img, ImgTavrin* from, uint8_t* pucImage,
                                  bool clear);
// Places the image at base + offset in a work buffer when its byte size
// (general rule) is within limit. Returns 0; or 2 with img->pucImage set to
// null (other fields unchanged) when it does not fit.
TAVRIN_API int set_ImageTavrin_withMemCheck(ImgTavrin* img, uint8_t* base, uint32_t limit,
                                            uint32_t offset, uint16_t usWidth,
                                            uint16_t usHeight, uint8_t ucType,
                                            uint16_t usXReso, uint16_t usYReso, bool clear);
// Zero-fills the pixel bytes (general rule). Returns 0.
TAVRIN_API int initZero_ImageTavrin(ImgTavrin* img);
// Sets every field to zero; frees nothing. Returns 0.
TAVRIN_API int release_ImageTavrin(ImgTavrin* img);
// mode 2: whole record copied (both describe the same pixels). Other modes:
// fields copied, destination keeps its pointer; mode 1 also copies the pixel
// bytes when the destination pointer is not null. Returns 0.
TAVRIN_API int copy_ImageTavrin(ImgTavrin* src, ImgTavrin* dst, int mode);
// One byte per pixel (0 = black) to one bit per pixel (1 = black, MSB first,
// rows of (w + 7) / 8 bytes). In place allowed. Returns 0, or 2 when a
// record or pointer is null or the source type is not 3.
TAVRIN_API int pack_ImageTavrin(ImgTavrin* src, ImgTavrin* dst);
// One bit per pixel to one byte per pixel (black 0, white 255). Returns 0,
// or 2 for null records/pointers, a source type other than 3, or the same
// pixel buffer on both sides.
TAVRIN_API int unpack_ImageTavrin(ImgTavrin* src, ImgTavrin* dst);
// Writes the raw pixel bytes (general rule, no header) to path. Returns 0,
// also when the file cannot be opened (then nothing is written).
TAVRIN_API int debugOut_ImageTavrin(ImgTavrin* img, char* path);

// ---- Work memory and common helpers --------------------------------------

// "libTavrinCommon API for e-Tavrin API, Ver. 5.5.0.1"
TAVRIN_API const char* LibTavrinCommonGetVersion();
// base + offset when size <= limit (signed), else null.
TAVRIN_API uint8_t* TavrinApp_MemAlloc(uint8_t* base, int size, int limit, int offset);
// 2 when size > limit (signed) or ptr is null, else 0.
TAVRIN_API int TavrinApp_MemCheck(void* ptr, int size, int limit);
// base + used when base + used <= base + total (unsigned addresses), else null.
TAVRIN_API uint8_t* TavrinApp_MemSetHeadPointer(uint8_t* base, int total, int used);
// Merges the statuses of two parallel branches: a == b gives a; a == ok
// gives b; b == ok gives a; otherwise fail.
TAVRIN_API int set_ErrorCode_forParallel(int a, int b, int ok, int fail);
// Processing case of a request, by the first rule that matches:
// ucModeCicFunc set -> 1; ucModeIdxColFunc set -> 2; ucModeEditFunc clear
// -> 3; otherwise 0.
TAVRIN_API int TavrinApp_GetCaseNumber(const StructInputParams& params);
// True when the page (img.usWidth x img.usHeight pixels) fits the limit of its
// case, short side x long side, equality passing: case 1: 3626 x 5220;
// cases 0 and 2: 7252 x 10441; case 3: 3626 x 5220 when ucSizeFlag is 0 or
// when skew and crop estimation are both on with ucFeeder 4, else 3508 x 5102.
TAVRIN_API bool TavrinApp_CheckInSize(const StructInputParams& params, ImgTavrin& img,
                                      uint8_t ucSizeFlag);
// True for model identifier 21 (the A4 type).
TAVRIN_API bool TavrinApp_CheckA4Type(uint8_t ucModelID);

// Skew-and-crop (SC) results: crop width/height, origin x/y in pixels of the
// named resolution (300 or 75 dpi), angle in hundredths of a degree. All are
// changed in place; there is no failure.

// Shrinks a 300-dpi crop to the page limit (long x short side 5102 x 3508, or
// 4205 x 2551 when bLegal) after removing a margin of fMarginX / fMarginY
// pixels from each side (16-bit arithmetic: a margin wider than the side
// wraps and the limit wins). The crop shrinks about its centre in the frame
// rotated by sAngle, so the origin moves by the rotated half-shrink, rounded
// as trunc(value + 0.5).
TAVRIN_API void TavrinApp_LimitSCResult300(uint16_t& usWidth, uint16_t& usHeight,
                                           int16_t& sX, int16_t& sY, int16_t sAngle,
                                           float fMarginX, float fMarginY, bool bLegal);
// The same for a 75-dpi result (width and height taken as unsigned): scaled
// by 4, limited without margins at the standard size, and shifted back right
// by 2 (x and y arithmetically, rounding toward minus infinity).
TAVRIN_API void TavrinApp_LimitSCResult075(int16_t& sWidth, int16_t& sHeight, int16_t& sX,
                                           int16_t& sY, int16_t sAngle);
// Multiplies all four values by fScale (single precision, truncated toward
// zero), then limits them as TavrinApp_LimitSCResult300.
TAVRIN_API void TavrinApp_ScaleUpSCResult(uint16_t& usWidth, uint16_t& usHeight,
                                          int16_t& sX, int16_t& sY, int16_t sAngle,
                                          float fMarginX, float fMarginY, float fScale,
                                          bool bLegal);
// Limits a 300-dpi result (no margins, standard size) and brings it to 75 dpi
// by shifting right by 2 (x and y arithmetically).
TAVRIN_API void TavrinApp_ScaleDownSCResult(uint16_t& usWidth, uint16_t& usHeight,
                                            int16_t& sX, int16_t& sY, int16_t sAngle);

#endif
