// Limiting and rescaling of skew-and-crop (SC) results.
//
// An SC result is a rotated crop rectangle: width and height, the origin
// (x, y) and the skew angle in 1/100 degree. Limiting shrinks the rectangle
// symmetrically about its centre in the rotated frame, so the origin moves by
// half the shrink, rotated by the angle.
//
// Precision is part of the contract (callers compare results to the pixel):
//   - the shrink halves dx, dy are single precision;
//   - the angle in radians is double precision, with the constant 0.017453
//     rad/degree (not the full value of pi/180), evaluated left to right;
//   - sin and cos are computed in double and rounded to single precision;
//   - dx*cos + dy*sin + x is a single-precision sum (x converted to float),
//     the rounding constant 0.5 is then added in double precision, and the
//     result is truncated toward zero.
// The library targets baseline x86-64 (SSE2 scalar arithmetic, no fused
// multiply-add), so each float operation rounds on its own.
#include <TavrinImage.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kRadiansPerDegree = 0.017453;

// trunc(v) reduced to 16 bits (two's complement wrap-around, as 16-bit
// arithmetic would give). Values that have no integer part to keep (NaN,
// infinities) give 0.
uint16_t truncTo16Bits(double v) {
    if (!std::isfinite(v)) return 0;
    double wrapped = std::fmod(std::trunc(v), 65536.0);  // exact
    if (wrapped < 0) wrapped += 65536.0;
    return static_cast<uint16_t>(wrapped);
}

int16_t truncToInt16(double v) { return static_cast<int16_t>(truncTo16Bits(v)); }

}  // namespace

void TavrinApp_LimitSCResult300(uint16_t& usWidth, uint16_t& usHeight, int16_t& sX, int16_t& sY,
                                int16_t sAngle, float fMarginX, float fMarginY, bool bLegal) {
    const uint16_t width = usWidth, height = usHeight;
    const int16_t x = sX, y = sY;

    // Page limits in 300-dpi pixels; the longer side gets the long limit.
    const uint16_t longLimit = bLegal ? 4205 : 5102;
    const uint16_t shortLimit = bLegal ? 2551 : 3508;
    const bool landscape = width >= height;
    const uint16_t widthLimit = landscape ? longLimit : shortLimit;
    const uint16_t heightLimit = landscape ? shortLimit : longLimit;

    // A margin on both sides; a margin wider than the side wraps around in
    // 16 bits and the limit wins.
    const uint16_t innerWidth = static_cast<uint16_t>(width - truncTo16Bits(2.0f * fMarginX));
    const uint16_t innerHeight = static_cast<uint16_t>(height - truncTo16Bits(2.0f * fMarginY));
    const uint16_t newWidth = std::min(widthLimit, innerWidth);
    const uint16_t newHeight = std::min(heightLimit, innerHeight);

    const float dx = static_cast<float>(width - newWidth) * 0.5f;
    const float dy = static_cast<float>(height - newHeight) * 0.5f;

    const double radians = sAngle * 0.01 * kRadiansPerDegree;
    const float cosA = static_cast<float>(std::cos(radians));
    const float sinA = static_cast<float>(std::sin(radians));

    const float movedX = dx * cosA + dy * sinA + static_cast<float>(x);
    const float movedY = dy * cosA - dx * sinA + static_cast<float>(y);
    sX = truncToInt16(static_cast<double>(movedX) + 0.5);
    sY = truncToInt16(static_cast<double>(movedY) + 0.5);
    usWidth = newWidth;
    usHeight = newHeight;
}

void TavrinApp_LimitSCResult075(int16_t& sWidth, int16_t& sHeight, int16_t& sX, int16_t& sY,
                                int16_t sAngle) {
    // Width and height are unsigned values in signed storage. Scaling by 4
    // wraps in 16 bits like the values themselves.
    uint16_t width = static_cast<uint16_t>(static_cast<uint16_t>(sWidth) * 4);
    uint16_t height = static_cast<uint16_t>(static_cast<uint16_t>(sHeight) * 4);
    int16_t x = static_cast<int16_t>(sX * 4);
    int16_t y = static_cast<int16_t>(sY * 4);
    TavrinApp_LimitSCResult300(width, height, x, y, sAngle, 0.0f, 0.0f, false);
    sWidth = static_cast<int16_t>(width >> 2);
    sHeight = static_cast<int16_t>(height >> 2);
    sX = static_cast<int16_t>(x >> 2);  // arithmetic: rounds toward minus infinity
    sY = static_cast<int16_t>(y >> 2);
}

void TavrinApp_ScaleUpSCResult(uint16_t& usWidth, uint16_t& usHeight, int16_t& sX, int16_t& sY,
                               int16_t sAngle, float fMarginX, float fMarginY, float fScale,
                               bool bLegal) {
    // Products in single precision, truncated toward zero.
    usWidth = truncTo16Bits(static_cast<float>(usWidth) * fScale);
    usHeight = truncTo16Bits(static_cast<float>(usHeight) * fScale);
    sX = truncToInt16(static_cast<float>(sX) * fScale);
    sY = truncToInt16(static_cast<float>(sY) * fScale);
    TavrinApp_LimitSCResult300(usWidth, usHeight, sX, sY, sAngle, fMarginX, fMarginY, bLegal);
}

void TavrinApp_ScaleDownSCResult(uint16_t& usWidth, uint16_t& usHeight, int16_t& sX, int16_t& sY,
                                 int16_t sAngle) {
    TavrinApp_LimitSCResult300(usWidth, usHeight, sX, sY, sAngle, 0.0f, 0.0f, false);
    usWidth = static_cast<uint16_t>(usWidth >> 2);
    usHeight = static_cast<uint16_t>(usHeight >> 2);
    sX = static_cast<int16_t>(sX >> 2);  // arithmetic: rounds toward minus infinity
    sY = static_cast<int16_t>(sY >> 2);
}
