// Picture-region detection driver. Works on a quarter-resolution copy of the
// page, every plane and table at a fixed offset of the caller's work buffer:
// attribute masks, smoothing, masked entropy, candidate mask, table
// exclusion, morphological cleaning, then labelling and box acceptance until
// the region count is stable, and finally the page-level decision.
//
// Each stage that fails throws its int status; one handler per entry point
// turns status e into -|e| (3: a region did not fit, 1: a filter failed,
// 4 + p: labelling pass p failed) and anything else into -3.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "TavrinDetect.h"
#include "detect/dump_file.h"
#include "detect/labeling_passes.h"

int illust_flag = 0;

namespace {

constexpr int kFilterFailed = 1;
constexpr int kNoRoom = 3;
constexpr int kLabelPassBase = 4;
constexpr int kPlaneCount = 10;
constexpr uint8_t kPAttribute = 112;  // 'p': P-attribute pixel
constexpr uint8_t kEntropyThreshold = 165;

enum Plane {
    kHighAttr = 0,         // attr >> 7
    kPAttr = 1,            // attr == 112
    kHighAttrDilated = 2,  // count plane of the box stage
    kPAttrDilated2 = 3,    // grown by two pixels; size reference of the box stage
    kSmoothed = 4,
    kEntropy = 5,
    kHighEntropy = 6,
    kCandidate = 7,
    kLabels = 8,
    kScratch = 9,
};

int failureResult(int status) {
    return status < 0 ? status : -status;
}

// Status of a failed labelling pass p (counted from 0), saturated for
// absurdly large pass counts.
int labelPassStatus(int64_t pass) {
    return static_cast<int>(std::min<int64_t>(kLabelPassBase + pass, INT_MAX));
}

void place(ImgTavrin* img, uint8_t* work, uint32_t offset, const ImgTavrin& geometry) {
    if (set_ImageTavrin_withMemCheck(img, work, TAVRIN_DETECT_PLANE_LIMIT, offset,
                                     geometry.usWidth, geometry.usHeight, TAVRIN_TYPE_GRAY,
                                     geometry.usXReso, geometry.usYReso, false) != 0)
        throw kNoRoom;
}

// The morphology needs planes at least 1 pixel wide and 2 rows high; a
// smaller page is refused with -3 before anything is written.
void requireMorphologySize(int width, int height) {
    if (width < 1 || height < 2) throw kNoRoom;
}

// Table exclusion: each rectangle is halved onto the quarter grid and read
// as left, top, right, bottom. A rectangle reaching outside the plane is
// clipped to it, so nothing outside the plane is written.
void excludeTables(const ST_TABLEDATA& tables, ImgTavrin& candidate) {
    if (tables.iTableNum <= 0) return;
    if (tables.pstTableRect == nullptr) throw kNoRoom;
    const int width = candidate.usWidth;
    const int height = candidate.usHeight;
    for (int t = 1; t <= tables.iTableNum; ++t) {
        const ST_TABLERECT& r = tables.pstTableRect[t];
        const int x0 = std::max(r.sRect0 >> 1, 0);
        const int y0 = std::max(r.sRect1 >> 1, 0);
        const int x1 = std::min(r.sRect2 >> 1, width - 1);
        const int y1 = std::min(r.sRect3 >> 1, height - 1);
        if (x0 > x1 || y0 > y1) continue;
        for (int y = y0; y <= y1; ++y)
            std::fill_n(candidate.pucImage + static_cast<size_t>(y) * width + x0, x1 - x0 + 1,
                        uint8_t{0});
    }
}

// dst[j] = src[step * j] for j < n, where src holds `available` bytes; step
// 2 or 4. Sixteen outputs at a time where their source bytes lie inside.
void sampleRow(const uint8_t* src, size_t available, int step, uint8_t* dst, int n) {
    int j = 0;
#if defined(__SSE2__)
    auto load = [&](int k) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + static_cast<size_t>(step) * j + 16 * k));
    };
    if (step == 4) {
        const __m128i low = _mm_set1_epi32(0xFF);
        for (; j + 16 <= n && static_cast<size_t>(4) * (j + 16) <= available; j += 16) {
            const __m128i a = _mm_packs_epi32(_mm_and_si128(load(0), low), _mm_and_si128(load(1), low));
            const __m128i b = _mm_packs_epi32(_mm_and_si128(load(2), low), _mm_and_si128(load(3), low));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + j), _mm_packus_epi16(a, b));
        }
    } else if (step == 2) {
        const __m128i low = _mm_set1_epi16(0xFF);
        for (; j + 16 <= n && static_cast<size_t>(2) * (j + 16) <= available; j += 16)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + j),
                             _mm_packus_epi16(_mm_and_si128(load(0), low), _mm_and_si128(load(1), low)));
    }
#endif
    for (; j < n; ++j) dst[j] = src[static_cast<size_t>(step) * j];
}

// Sum of n bytes (sixteen at a time with SSE2's sum of absolute differences).
uint64_t byteSum(const uint8_t* p, size_t n) {
    uint64_t sum = 0;
    size_t i = 0;
#if defined(__SSE2__)
    __m128i sums = _mm_setzero_si128();
    for (; i + 16 <= n; i += 16)
        sums = _mm_add_epi64(sums, _mm_sad_epu8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i)),
                                                _mm_setzero_si128()));
    uint64_t halves[2];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(halves), sums);
    sum = halves[0] + halves[1];
#endif
    for (; i < n; ++i) sum += p[i];
    return sum;
}

void writePictCount(char* debugPath, int32_t covered, int32_t total) {
    FILE* fp = tavrin_detect::openDumpFile(debugPath, "pict_count.csv");
    if (fp == nullptr) return;
    std::fprintf(fp, "%d,%d\n", covered, total);
    std::fclose(fp);
}

int detectOnPlanes(PictLabel* labels, ImgTavrin* gray, ImgTavrin* attr, ImgTavrin* pict,
                   ST_TABLEDATA* tables, uint8_t* work, int attrMode, int labelPassMax,
                   ST_PARAM_DETECT_PICT* param, int parallel, char* debugPath) {
    if (work == nullptr || labels == nullptr || gray == nullptr || attr == nullptr ||
        pict == nullptr || tables == nullptr || param == nullptr || debugPath == nullptr)
        throw kNoRoom;
    requireMorphologySize(gray->usWidth, gray->usHeight);
    if (gray->pucImage == nullptr || attr->pucImage == nullptr || pict->pucImage == nullptr)
        throw kNoRoom;
    const size_t n = static_cast<size_t>(gray->usWidth) * gray->usHeight;

    ImgTavrin plane[kPlaneCount];
    for (ImgTavrin& p : plane) release_ImageTavrin(&p);
    for (int k = 0; k < kPlaneCount; ++k)
        place(&plane[k], work, TAVRIN_DETECT_PLANES_OFFSET + k * TAVRIN_DETECT_PLANE_LIMIT, *gray);

    // Attribute masks.
    const uint8_t* a = attr->pucImage;
    uint8_t* high = plane[kHighAttr].pucImage;
    uint8_t* pAttr = plane[kPAttr].pucImage;
    for (size_t i = 0; i < n; ++i) {
        high[i] = static_cast<uint8_t>(a[i] >> 7);
        pAttr[i] = a[i] == kPAttribute ? 1 : 0;
    }
    morphologyTrans(plane[kHighAttr], plane[kHighAttrDilated], 0, parallel);
    remove_SoloPoint(plane[kPAttr]);
    morphologyTrans(plane[kPAttr], plane[kScratch], 0, parallel);
    morphologyTrans(plane[kScratch], plane[kPAttrDilated2], 0, parallel);

    // Texture: smoothing and masked entropy, high-attribute pixels left out.
    if (smoothFilter(gray, &plane[kHighAttr], &plane[kSmoothed], work, param, parallel) != 0)
        throw kFilterFailed;
    if (maskedEntropy(&plane[kSmoothed], &plane[kHighAttr], &plane[kEntropy], parallel) != 0)
        throw kFilterFailed;

    // High-entropy mask and, in the same pass, the candidate mask: with the
    // P-attribute areas added (mode 1) or a copy of it.
    const uint8_t* entropy = plane[kEntropy].pucImage;
    const uint8_t* grown = plane[kPAttrDilated2].pucImage;
    uint8_t* highEntropy = plane[kHighEntropy].pucImage;
    uint8_t* cand = plane[kCandidate].pucImage;
    const uint8_t addGrown = attrMode == 1 ? 0xFF : 0;
    for (size_t i = 0; i < n; ++i) {
        const uint8_t high = entropy[i] > kEntropyThreshold ? 1 : 0;
        highEntropy[i] = high;
        cand[i] = high | (grown[i] & addGrown);
    }
    excludeTables(*tables, plane[kCandidate]);

    // Cleaning: 3 x 3 closing, then one more erosion into the picture mask.
    remove_SoloPoint(plane[kCandidate]);
    morphologyTrans(plane[kCandidate], plane[kScratch], 0, parallel);
    morphologyTrans(plane[kScratch], plane[kCandidate], 1, parallel);
    morphologyTrans(plane[kCandidate], *pict, 1, parallel);

    // Label and replace accepted regions by their grown boxes until the
    // region count stops changing (or the passes run out).
    // Every pass labels the same plane: the table entries that no earlier
    // pass changed still hold their initial values.
    int previous = 0;
    uint32_t identityFrom = 0;
    for (int64_t pass = 0; pass <= labelPassMax; ++pass) {
        const int regions = tavrin::detect::labelAgain(labels, pict, &plane[kLabels], work,
                                                       debugPath, identityFrom);
        if (regions < 0) throw labelPassStatus(pass);
        if (regions == previous) break;
        boudingBox(labels, regions, plane[kPAttrDilated2], plane[kHighAttrDilated], *pict, 1,
                   param);
        previous = regions;
    }

    // Page decision on the covered share, in double. A NaN threshold fails
    // the comparison (result 0); an empty page has the share 0.
    const uint8_t* mask = pict->pucImage;
    const uint64_t covered = byteSum(mask, n);
    const double share = n > 0 ? static_cast<double>(covered) / static_cast<double>(n) : 0.0;
    const int result = share >= param->dPictPageRatio ? 1 : 0;
    param->iPictPixelNum = static_cast<int32_t>(covered);

    writePictCount(debugPath, static_cast<int32_t>(covered), static_cast<int32_t>(n));
    return result;
}

// Quarter planes and label table of runDetectPict, sampled from the page.
int detectOnPage(structFGInfos* fg, uint8_t* work, int attrMode, int labelPassMax,
                 ST_PARAM_DETECT_PICT* param, int parallel, char* debugPath) {
    if (work == nullptr || fg == nullptr || param == nullptr || debugPath == nullptr)
        throw kNoRoom;
    const ImgTavrin& page = fg->stPageImg;
    const ImgTavrin& attrMap = fg->stAttrImg;
    const int pageWidth = page.usWidth;
    const int width = (page.usWidth + 3) >> 2;
    const int height = (page.usHeight + 3) >> 2;
    requireMorphologySize(width, height);

    ImgTavrin quarter = page;
    quarter.usWidth = static_cast<uint16_t>(width);
    quarter.usHeight = static_cast<uint16_t>(height);
    quarter.usXReso = static_cast<uint16_t>(page.usXReso >> 2);
    quarter.usYReso = static_cast<uint16_t>(page.usYReso >> 2);

    ImgTavrin gray{}, attr{}, pict{};
    place(&gray, work, TAVRIN_DETECT_GRAY_OFFSET, quarter);
    place(&attr, work, TAVRIN_DETECT_ATTR_OFFSET, quarter);
    place(&pict, work, TAVRIN_DETECT_PICT_OFFSET, quarter);
    PictLabel* labels = reinterpret_cast<PictLabel*>(
        TavrinApp_MemAlloc(work, 4097 * static_cast<int>(sizeof(PictLabel)),
                           static_cast<int>(TAVRIN_DETECT_LABEL_LIMIT),
                           static_cast<int>(TAVRIN_DETECT_LABEL_OFFSET)));
    if (labels == nullptr) throw kNoRoom;

    // The sampled positions must lie inside the pixels the records
    // describe; the page always covers them, the attribute map is checked.
    if (page.pucImage == nullptr || attrMap.pucImage == nullptr) throw kNoRoom;
    const size_t attrStride = attrMap.usWidth;
    const size_t lastAttr = 2 * static_cast<size_t>(height - 1) * attrStride + 2 * (width - 1);
    if (lastAttr >= attrStride * attrMap.usHeight) throw kNoRoom;

    // Sampling without filtering: first byte of page pixel (4j, 4i), byte
    // of the attribute map at (2j, 2i).
    const size_t bytesPerPixel = page.ucType == TAVRIN_TYPE_GRAY ? 1 : 3;
    const size_t pageRow = static_cast<size_t>(pageWidth) * bytesPerPixel;
    for (int i = 0; i < height; ++i) {
        const uint8_t* src = page.pucImage + 4 * static_cast<size_t>(i) * pageRow;
        const uint8_t* attrRow = attrMap.pucImage + 2 * static_cast<size_t>(i) * attrStride;
        uint8_t* g = gray.pucImage + static_cast<size_t>(i) * width;
        if (bytesPerPixel == 1)
            sampleRow(src, pageRow, 4, g, width);
        else
            for (int j = 0; j < width; ++j) g[j] = src[12 * static_cast<size_t>(j)];
        sampleRow(attrRow, attrStride, 2, attr.pucImage + static_cast<size_t>(i) * width, width);
    }

    return runDetectPict2(labels, &gray, &attr, &pict, &fg->stLayout, &fg->stTableData, work,
                          attrMode, labelPassMax, param, parallel, debugPath);
}

}  // namespace

int runDetectPict(structFGInfos* pstFGInfos, uint8_t* pucWorkBuf, int iPictAttrMode,
                  int iLabelPassMax, ST_PARAM_DETECT_PICT* pstParam, int iParallel,
                  char* pcDebugPath) {
    try {
        return detectOnPage(pstFGInfos, pucWorkBuf, iPictAttrMode, iLabelPassMax, pstParam,
                            iParallel, pcDebugPath);
    } catch (int status) {
        return failureResult(status);
    } catch (...) {
        return -kNoRoom;
    }
}

int runDetectPict2(PictLabel* pstLabel, ImgTavrin* pstGray, ImgTavrin* pstAttr,
                   ImgTavrin* pstPict, ST_LAYOUT* /*pstLayout: not used*/,
                   ST_TABLEDATA* pstTableData, uint8_t* pucWorkBuf, int iPictAttrMode,
                   int iLabelPassMax, ST_PARAM_DETECT_PICT* pstParam, int iParallel,
                   char* pcDebugPath) {
    try {
        return detectOnPlanes(pstLabel, pstGray, pstAttr, pstPict, pstTableData, pucWorkBuf,
                              iPictAttrMode, iLabelPassMax, pstParam, iParallel, pcDebugPath);
    } catch (int status) {
        return failureResult(status);
    } catch (...) {
        return -kNoRoom;
    }
}
