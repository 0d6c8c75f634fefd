// Picture-region detection of libTavrinCommon: records, the driver and its
// stages (smoothing, masked entropy, morphology, labelling, boxes, table
// splitting).
//
// The records are shared with callers in binary form and laid out as on
// 32-bit x86: f64 members aligned to 4 bytes, so a record without pointers
// is byte-identical on i386 and x86-64.
//
// Threads: the detection keeps no global state; everything lives in the
// work buffer, the caller's records and the stack. Calls with distinct work
// buffers, parameter records and debug directories may run at the same time
// on different threads (each with iParallel set, too); calls that share a
// work buffer must not overlap. With iParallel non-zero the smoothing,
// entropy and morphology filters run two row bands in one OpenMP parallel
// region on the runtime's default team and join it before returning; the
// stage functions may likewise run at once on distinct planes.
#ifndef TAVRIN_DETECT_H
#define TAVRIN_DETECT_H

#include <cstdint>

#include "TavrinExport.h"
#include "TavrinImage.h"

#pragma pack(push, 4)

// Detection parameters: the caller fills the first nine fields, the driver
// writes iPictPixelNum. 72 bytes.
struct ST_PARAM_DETECT_PICT {
    double dSpaceSigma;        //  0  spatial sigma of the smoothing filter, pixels
    double dRangeSigma;        //  8  gray-level sigma of the smoothing filter
    int32_t iMinWidth;         // 16  minimum region width, quarter-resolution pixels
    int32_t iMinHeight;        // 20  minimum region height
    int32_t iMinArea;          // 24  minimum width * height of a region's box
    double dMinFillRatio;      // 28  minimum share of the box covered by the region
    uint8_t aucReserved[16];   // 36  caller's fields, never read
    double dMaxHighAttrRatio;  // 52  maximum share of high-attribute pixels in the box
    double dPictPageRatio;     // 60  page-level picture share threshold
    int32_t iPictPixelNum;     // 68  out: pixels set in the final picture mask
};

// One region of the quarter-resolution mask; inclusive bounding box. 20 bytes.
struct PictLabel {
    int32_t pixel;  // pixel count; 0 marks an empty or rejected entry
    int32_t min_x;
    int32_t min_y;
    int32_t max_x;
    int32_t max_y;
};

// One table rectangle in half-resolution pixels, inclusive. 20 bytes.
struct ST_TABLERECT {
    int16_t sRect0;
    int16_t sRect1;
    int16_t sRect2;
    int16_t sRect3;
    uint8_t aucReserved[12];  // caller's fields, never read
};

// Table rectangles known to the caller; entries 1..iTableNum are used.
struct ST_TABLEDATA {
    int32_t iTableNum;           // 0 or less: none
    ST_TABLERECT* pstTableRect;  // indexed from 1
};

// One layout element (meaning is the caller's). 16 bytes.
struct ST_LAYOUTRECT {
    int16_t sItem0;
    int16_t sItem1;
    int16_t sItem2;
    int16_t sItem3;
    int32_t iItem4;
    int8_t cItem5;
};

// The caller's layout result: two parallel arrays of iLayoutNum entries.
struct ST_LAYOUT {
    int32_t iLayoutNum;
    ST_LAYOUTRECT* pstLayoutA;
    ST_LAYOUTRECT* pstLayoutB;
};

// The page record given to runDetectPict; only these members are read.
struct structFGInfos {
    ImgTavrin stPageImg;         // full-resolution page (type 0: 1 byte/pixel, else 3)
    ImgTavrin stAttrImg;         // half-resolution attribute map, 1 byte/pixel
    ST_TABLEDATA stTableData;    // table rectangles to exclude
    ST_LAYOUT stLayout;          // passed through untouched
};

#pragma pack(pop)

// Work-buffer map of the detector (byte offsets and region limits).
enum : uint32_t {
    TAVRIN_DETECT_PLANE_LIMIT = 1187664,        // every quarter plane, W4 * H4 bytes
    TAVRIN_DETECT_GRAY_OFFSET = 0,
    TAVRIN_DETECT_ATTR_OFFSET = 1187664,
    TAVRIN_DETECT_PICT_OFFSET = 2375328,        // final picture mask (result)
    TAVRIN_DETECT_LABEL_OFFSET = 3562992,       // label table, 4097 PictLabel
    TAVRIN_DETECT_LABEL_LIMIT = 163840,
    TAVRIN_DETECT_PLANES_OFFSET = 3726832,      // planes 0..9 of the inner stage
    TAVRIN_DETECT_EQUIV_OFFSET = 15603472,      // labelling equivalence table
    TAVRIN_DETECT_EQUIV_LIMIT = 4750656,
    TAVRIN_DETECT_PROV_OFFSET = 20354128,       // provisional label plane (u16)
    TAVRIN_DETECT_PROV_LIMIT = 2375328,
    TAVRIN_DETECT_CORR_OFFSET = 22729456,       // correlation table (u32)
    TAVRIN_DETECT_CORR_LIMIT = 32768,
    TAVRIN_DETECT_ZEROROW_OFFSET = 22762224,    // zero row of the smoothing filter
    TAVRIN_DETECT_ZEROROW_LIMIT = 1312,
    TAVRIN_DETECT_WORK_SIZE = 22763536,         // smallest work buffer
};

// Exported for the caller; the library never reads or writes it.
TAVRIN_API extern int illust_flag;

// ---- Driver ---------------------------------------------------------------

// Finds the picture areas of a page. All work is done at quarter resolution,
// W4 = (usWidth + 3) / 4 by H4 = (usHeight + 3) / 4 pixels (every fourth page
// pixel, every second attribute pixel), inside pucWorkBuf, which holds at
// least TAVRIN_DETECT_WORK_SIZE bytes (4-byte aligned); nothing is allocated.
//   pstFGInfos     page (ucType 0: 1 byte per pixel, other: 3, the first one
//                  used), half-resolution attribute map (bit 7 set: high
//                  attribute; 112: P attribute), table rectangles in
//                  half-resolution pixels read as left, top, right, bottom and
//                  clipped to the page, layout (not read).
//   iPictAttrMode  1 adds the P-attribute areas to the candidates; other
//                  values leave them out.
//   iLabelPassMax  index of the last labelling pass; negative: no labelling.
//   pstParam       thresholds; iPictPixelNum receives the number of picture
//                  pixels, on results 0 and 1 only.
//   iParallel      non-zero lets the smoothing, entropy and morphology run two
//                  OpenMP bands; the results are identical.
//   pcDebugPath    dump directory, "" for none, never null: "pict_count.csv"
//                  ("S,N\n") and the labelling tables.
// Returns 1 when the picture mask covers at least dPictPageRatio of the page,
// 0 when less (also for a NaN threshold); -1 the smoothing or the entropy
// failed (W4 above 1312); -3 a null buffer or record, W4 * H4 above
// 1187664, a quarter plane narrower than 1 or lower than 2 pixels, or an
// attribute map that does not cover the sampled pixels, all before anything
// is written; -(4 + p) labelling pass p (from 0) failed (4096 or more
// regions). The mask (W4 x H4 bytes, 1 = picture) is left at
// TAVRIN_DETECT_PICT_OFFSET, the label table at TAVRIN_DETECT_LABEL_OFFSET.
TAVRIN_API int runDetectPict(structFGInfos* pstFGInfos, uint8_t* pucWorkBuf, int iPictAttrMode,
                             int iLabelPassMax, ST_PARAM_DETECT_PICT* pstParam, int iParallel,
                             char* pcDebugPath);
// Inner stage of runDetectPict on the quarter gray, attribute and picture
// planes and the label table, placed as runDetectPict places them; the
// ST_LAYOUT pointer is not used. Same arguments and results (the plane-size
// checks apply to the gray plane).
TAVRIN_API int runDetectPict2(PictLabel* pstLabel, ImgTavrin* pstGray, ImgTavrin* pstAttr,
                              ImgTavrin* pstPict, ST_LAYOUT* pstLayout,
                              ST_TABLEDATA* pstTableData, uint8_t* pucWorkBuf,
                              int iPictAttrMode, int iLabelPassMax,
                              ST_PARAM_DETECT_PICT* pstParam, int iParallel, char* pcDebugPath);

// ---- Entropy texture filter ------------------------------------------------

// Zero-fills dst and writes the masked entropy (0..255) of every 3x3 block
// of src, ignoring pixels whose mask byte is non-zero. Returns 0 (or the
// merged status of the two bands); 2, writing nothing, for a null record or
// pixel pointer, or a mask or destination of another size.
TAVRIN_API int maskedEntropy(ImgTavrin* src, ImgTavrin* mask, ImgTavrin* dst, int iParallel);
// Band worker: blocks whose centre rows lie in [first, end). Returns 0.
TAVRIN_API int maskedEntropy2(int first, int end, ImgTavrin* src, ImgTavrin* mask,
                              ImgTavrin* dst);

// ---- Smoothing filter -------------------------------------------------------

// Masked 7x7 bilateral filter: copies src into dst, then filters every pixel
// whose mask byte is 0. Uses the zero row of the work buffer. Returns 0 (or
// the merged status of the two bands); 2, writing nothing, for null
// arguments, a mask of another size, in-place use (src and dst sharing
// pixels), or a width above the zero row's 1312 bytes. Each band takes
// about 40 KB of its thread's stack (rows of its window).
TAVRIN_API int smoothFilter(ImgTavrin* src, ImgTavrin* mask, ImgTavrin* dst,
                            uint8_t* pucWorkBuf, ST_PARAM_DETECT_PICT* pstParam, int iParallel);
// Band worker over rows [first, end): kernel is 49 floats, range points at
// the entry for the difference -255 of a 511-entry table. Returns 0; 2 for
// null arguments, a mask or destination of another size, or a width above
// 1312.
TAVRIN_API int filter2(int first, int end, ImgTavrin* src, ImgTavrin* mask, ImgTavrin* dst,
                       float* kernel, float* range, uint8_t* pucWorkBuf);

// ---- Connected-component labelling -------------------------------------------

// Labels the non-zero pixels of mask (8-connectivity; the equivalence table
// is followed two steps, so a region can keep two labels). labelPlane (same
// geometry) receives the low 8 bits of each pixel's final label, pstLabel[0..K]
// the pixel count (capped at 2097151) and inclusive box of each label, entry
// 0 those of the background. Tables live in pucWorkBuf at the labelling
// offsets. pcDumpDir: "" or a directory receiving "init_table.txt",
// "corr_table.txt" and "label_table.txt".
// Returns K (0..4095), or -4096 when the plane exceeds 1187664 pixels, more
// than 8191 provisional or 4095 final labels arise, or a pointer is
// null; then pstLabel is untouched.
TAVRIN_API int entLabeling(PictLabel* pstLabel, ImgTavrin* mask, ImgTavrin* labelPlane,
                           uint8_t* pucWorkBuf, char* pcDumpDir);
// Provisional raster pass over a W x H mask into pusProv, linking labels in
// puiTable (T[i] = i beforehand). Returns the number of provisional labels,
// or -8193 when an 8193rd would be needed (no dump then).
TAVRIN_API int init_label(uint8_t* pucMask, uint16_t* pusProv, uint32_t* puiTable, int iWidth,
                          int iHeight, char* pcDumpDir);
// Turns the n provisional labels into consecutive final labels in puiCorr
// (n + 1 entries, corr[0] = 0). Returns the number of final labels, or -4097
// when a 4097th would be needed (no dump then).
TAVRIN_API int CorrelationTableGeneration(uint32_t* puiTable, uint32_t* puiCorr, int n,
                                          char* pcDumpDir);
// Final pass: writes the label plane and adds every pixel to its entry of
// pstLabel (entries 0..K initialised by the caller). Returns 0.
TAVRIN_API int correct_label(PictLabel* pstLabel, uint16_t* pusProv, uint8_t* pucLabel,
                             uint32_t* puiCorr, int iWidth, int iHeight);

// ---- Region bounding boxes ----------------------------------------------------

// Judges labels 1..n (minimum width, height and box area; pixel > 0; the sum
// of countPlane's bytes over the box at most area * dMaxHighAttrRatio; pixel
// at least area * dMinFillRatio; NaN ratios reject) and repaints outMask
// (cleared first) with 1 over each accepted box grown by margin and clipped
// to the plane. Rejected labels get pixel = 0 and keep their box. sizeRef
// gives the width and height of all three planes. Returns 0.
TAVRIN_API int boudingBox(PictLabel* pstLabel, int n, ImgTavrin sizeRef, ImgTavrin countPlane,
                          ImgTavrin outMask, int margin, ST_PARAM_DETECT_PICT* pstParam);

// ---- Binary morphology --------------------------------------------------------

// One 3x3 dilation (mode 0) or erosion (other) of src into dst (distinct
// planes of the same size, at least 1 wide and 2 high). Returns 0 or the
// merged status of the two parallel pieces; 2, writing nothing, when a plane
// is null, narrower than 1 or lower than 2 pixels, the destination differs in
// size, or source and destination share pixels.
TAVRIN_API int morphologyTrans(ImgTavrin src, ImgTavrin dst, int mode, int iParallel);
// Inner rows [first, end) (1 <= first, end <= height - 1). Return 0.
TAVRIN_API int dilation33(int first, int end, uint8_t* src, uint8_t* dst, int width, int height);
TAVRIN_API int erosion33(int first, int end, uint8_t* src, uint8_t* dst, int width, int height);
// Border row from the row and its one neighbouring row. Returns 0.
TAVRIN_API int morophology_border(uint8_t* row, uint8_t* neighbour, uint8_t* dst, int width,
                                  int mode);
// Removes pixels of value exactly 1 whose eight neighbours are all 0 (inner
// rows and columns only). Returns 0.
TAVRIN_API int remove_SoloPoint(ImgTavrin plane);

// ---- Table-region splitting ---------------------------------------------------

// For every label 1..n with pixel > 0 and every table 1..iTableNum whose
// rectangle (half-resolution, read as left, right, top, bottom, halved and
// clipped to the mask) the label's box overlaps at exactly one corner, writes
// zeros over the overlap with a one-pixel margin and along a cut row at the
// table's edge, so that the rest of the box falls into two rectangles apart
// from the table. Only zeros are written, only inside the mask. Returns 0.
TAVRIN_API int splitRect_forTable(PictLabel* pstLabel, ImgTavrin* mask, ST_TABLEDATA* pstTableData,
                                  int n);

#endif
