// Processing case of a request and the page-size limit of each case.
#include <TavrinImage.h>

namespace {

constexpr uint8_t kA4ModelID = 21;
constexpr uint8_t kFeederWithSkewAndCrop = 4;

// Largest page of a case, in pixels.
struct SizeLimit {
    uint16_t shortSide;
    uint16_t longSide;
};
constexpr SizeLimit kStandardPage{3626, 5220};
constexpr SizeLimit kLargePage{7252, 10441};
constexpr SizeLimit kReducedPage{3508, 5102};

SizeLimit sizeLimitOf(const StructInputParams& params, uint8_t ucSizeFlag) {
    switch (TavrinApp_GetCaseNumber(params)) {
        case 1:
            return kStandardPage;
        case 3:
            if (ucSizeFlag == 0) return kStandardPage;
            if (params.ucModeSkewEstFunc != 0 && params.ucModeCropEstFunc != 0 &&
                params.ucFeeder == kFeederWithSkewAndCrop) {
                return kStandardPage;
            }
            return kReducedPage;
        default:  // cases 0 and 2
            return kLargePage;
    }
}

}  // namespace

int TavrinApp_GetCaseNumber(const StructInputParams& params) {
    if (params.ucModeCicFunc != 0) return 1;
    if (params.ucModeIdxColFunc != 0) return 2;
    if (params.ucModeEditFunc == 0) return 3;
    return 0;
}

bool TavrinApp_CheckInSize(const StructInputParams& params, ImgTavrin& img, uint8_t ucSizeFlag) {
    const uint16_t longSide = img.usWidth >= img.usHeight ? img.usWidth : img.usHeight;
    const uint16_t shortSide = img.usWidth >= img.usHeight ? img.usHeight : img.usWidth;
    const SizeLimit limit = sizeLimitOf(params, ucSizeFlag);
    return shortSide <= limit.shortSide && longSide <= limit.longSide;
}

bool TavrinApp_CheckA4Type(uint8_t ucModelID) { return ucModelID == kA4ModelID; }
