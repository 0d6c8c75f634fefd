// Region acceptance after a labelling pass: a region survives when its box is
// large enough, densely filled by the region and not dominated by
// high-attribute pixels; the survivors' boxes, grown by a margin, become the
// new picture mask, so that the next labelling pass merges boxes that now
// touch.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "TavrinDetect.h"

namespace {

// Sum of the count plane's bytes over the inclusive box, read only where the
// box lies inside the plane (boxes from a labelling of the plane always do).
uint64_t sumOverBox(const uint8_t* plane, int width, int height, const PictLabel& box) {
    const int64_t x0 = std::max<int64_t>(box.min_x, 0);
    const int64_t x1 = std::min<int64_t>(box.max_x, width - 1);
    const int64_t y0 = std::max<int64_t>(box.min_y, 0);
    const int64_t y1 = std::min<int64_t>(box.max_y, height - 1);
    uint64_t sum = 0;
    if (x0 > x1) return 0;
    for (int64_t y = y0; y <= y1; ++y) {
        const uint8_t* row = plane + static_cast<size_t>(y) * width;
        uint32_t rowSum = 0;  // at most 65535 * 255
        for (int64_t x = x0; x <= x1; ++x) rowSum += row[x];
        sum += rowSum;
    }
    return sum;
}

bool accepted(const PictLabel& e, const uint8_t* countPlane, int width, int height,
              const ST_PARAM_DETECT_PICT& param) {
    // Widths and the area wrap like the 32-bit integers they are.
    const int32_t w = static_cast<int32_t>(static_cast<uint32_t>(e.max_x) -
                                           static_cast<uint32_t>(e.min_x) + 1u);
    if (w < param.iMinWidth) return false;
    const int32_t h = static_cast<int32_t>(static_cast<uint32_t>(e.max_y) -
                                           static_cast<uint32_t>(e.min_y) + 1u);
    if (h < param.iMinHeight) return false;
    const int32_t area =
        static_cast<int32_t>(static_cast<uint32_t>(w) * static_cast<uint32_t>(h));
    if (area < param.iMinArea) return false;
    if (e.pixel <= 0) return false;
    // Ratios in double; written so that a NaN ratio fails its test.
    const double highAttr = static_cast<double>(sumOverBox(countPlane, width, height, e));
    if (!(highAttr <= area * param.dMaxHighAttrRatio)) return false;
    if (!(e.pixel >= area * param.dMinFillRatio)) return false;
    return true;
}

void paintGrownBox(uint8_t* mask, int width, int height, const PictLabel& e, int margin) {
    const int64_t x0 = std::max<int64_t>(static_cast<int64_t>(e.min_x) - margin, 0);
    const int64_t x1 = std::min<int64_t>(static_cast<int64_t>(e.max_x) + margin, width - 1);
    const int64_t y0 = std::max<int64_t>(static_cast<int64_t>(e.min_y) - margin, 0);
    const int64_t y1 = std::min<int64_t>(static_cast<int64_t>(e.max_y) + margin, height - 1);
    if (x0 > x1) return;
    for (int64_t y = y0; y <= y1; ++y)
        std::memset(mask + static_cast<size_t>(y) * width + x0, 1, static_cast<size_t>(x1 - x0 + 1));
}

}  // namespace

// The size reference supplies W and H for all three planes.
int boudingBox(PictLabel* pstLabel, int n, ImgTavrin sizeRef, ImgTavrin countPlane,
               ImgTavrin outMask, int margin, ST_PARAM_DETECT_PICT* pstParam) {
    const int width = sizeRef.usWidth;
    const int height = sizeRef.usHeight;
    if (outMask.pucImage == nullptr) return 0;
    std::memset(outMask.pucImage, 0, static_cast<size_t>(width) * height);
    if (n < 1 || pstLabel == nullptr || pstParam == nullptr || countPlane.pucImage == nullptr)
        return 0;

    for (int k = 1; k <= n; ++k) {
        PictLabel& e = pstLabel[k];
        if (accepted(e, countPlane.pucImage, width, height, *pstParam))
            paintGrownBox(outMask.pucImage, width, height, e, margin);
        else
            e.pixel = 0;  // the box coordinates stay
    }
    return 0;
}
