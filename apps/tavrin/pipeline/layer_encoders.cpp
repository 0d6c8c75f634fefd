#include "pipeline/layer_encoders.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "TavrinCommon.h"
#include "pipeline/app_error.h"

namespace tavrin {

namespace {

// Output buffers are sized for the worst case but only the head is ever
// written: leave them uninitialised so that untouched pages cost nothing.
std::unique_ptr<uint8_t[]> scratch(size_t bytes) {
    return std::unique_ptr<uint8_t[]>(new uint8_t[bytes]);
}

// The library's JPEG buffer is width * height * components bytes; below
// this the headers alone may not fit.
constexpr size_t kMinJpegBufferBytes = 16384;

// `src` with its shorter side doubled (pixels repeated): one side at a
// time, so that an image just short of the minimum doubles its blocks
// rather than growing four-fold. A PDF scales an image to its box either way.
Page doubled(const Page& src) {
    const int sx = src.width <= src.height ? 2 : 1, sy = 3 - sx;
    Page d = src;
    d.width = src.width * sx;
    d.height = src.height * sy;
    d.dpiX *= sx, d.dpiY *= sy;
    d.pixels.resize(d.pixelCount() * d.channels);
    for (int y = 0; y < d.height; ++y)
        for (int x = 0; x < d.width; ++x)
            for (int c = 0; c < d.channels; ++c)
                d.row(y)[size_t(x) * d.channels + c] = src.row(y / sy)[size_t(x / sx) * d.channels + c];
    return d;
}

}  // namespace

uint16_t resolutionField100(double dpi) {
    return uint16_t(std::clamp<long>(std::lround(dpi * 100.0), 1, 65535));
}

size_t mmrWorstCaseBytes(int width, int height) {
    const uint64_t bits = uint64_t(height) * (9ull * uint64_t(width) + 25) + 24;
    return size_t((bits + 7) / 8 + 16);
}

std::string encodeMmr(std::vector<uint8_t>& packed, int width, int height, uint16_t xReso,
                      uint16_t yReso, const std::string& what) {
    const size_t capacity = mmrWorstCaseBytes(width, height);
    const std::unique_ptr<uint8_t[]> out = scratch(capacity);
    strFgImgInfo info{};
    info.pucMmrData = out.get();
    info.usWidth = uint16_t(width);
    info.usHeight = uint16_t(height);
    info.usXReso = xReso;
    info.usYReso = yReso;
    const int status = Tavrin_bwToMmr(&info, packed.data(), capacity);
    if (status != 0 || info.lMmrSize <= 0)
        throw AppError(kExitFailure, what + ": MMR encoding failed (Tavrin_bwToMmr returned " +
                                         std::to_string(status) + ")");
    return std::string(reinterpret_cast<const char*>(out.get()), size_t(info.lMmrSize));
}

std::string encodeJpeg(const Page& image, int quality, int chromaOffset, int sampling,
                       const std::string& what, int* usedQuality) {
    const size_t capacity = image.pixelCount() * image.channels;
    const std::unique_ptr<uint8_t[]> out = scratch(capacity);
    ImgTavrin src{};
    const uint16_t xr = resolutionField100(image.dpiX), yr = resolutionField100(image.dpiY);
    set_ImageTavrinP(&src, const_cast<uint8_t*>(image.pixels.data()), uint16_t(image.width),
                     uint16_t(image.height), image.channels == 3 ? TAVRIN_TYPE_RGB : TAVRIN_TYPE_GRAY,
                     xr, yr, false);
    int status = 0;
    for (int q = quality;; q -= 10) {
        q = std::max(q, 1);
        strBgImgInfo info{};
        info.pucStreamData = out.get();
        status = Tavrin_MakeJPGStream(&info, &src, q, chromaOffset, sampling);
        if (status == 0) {
            if (usedQuality) *usedQuality = q;
            return std::string(reinterpret_cast<const char*>(out.get()), info.ulStreamSize);
        }
        // 11 is also what a stream too long for the buffer gives.
        if (status != 11 || q == 1) break;
    }
    throw AppError(kExitFailure, what + ": JPEG encoding failed (Tavrin_MakeJPGStream returned " +
                                     std::to_string(status) +
                                     (status == 11 ? ", a libjpeg error" : ", not a libjpeg error") + ")");
}

EncodedImage encodeImage(const Page& image, int quality, const JpegSettings& s, const std::string& what) {
    Page big;
    const Page* src = &image;
    while (src->pixelCount() * src->channels < kMinJpegBufferBytes) big = doubled(*src), src = &big;
    EncodedImage e;
    e.width = src->width;
    e.height = src->height;
    e.channels = src->channels;
    e.data = encodeJpeg(*src, quality, s.chromaOffset, s.sampling, what, &e.quality);
    e.jpegBytes = e.data.size();
    if (s.flate) {
        e.data = wrapFlate(e.data, what);
        e.flate = true;
    }
    return e;
}

std::string wrapFlate(const std::string& jpeg, const std::string& what) {
    std::vector<uint8_t> source(jpeg.begin(), jpeg.end());
    const unsigned long capacity = compressBound(uLong(source.size()));
    const std::unique_ptr<uint8_t[]> out = scratch(capacity);
    strBgImgInfo info{};
    info.ulStreamSize = uint32_t(source.size());
    info.pucStreamData = out.get();
    const int status = Tavrin_jpgToflate(&info, source.data(), capacity);
    if (status != 0)
        throw AppError(kExitFailure, what + ": Flate wrapping failed (Tavrin_jpgToflate returned " +
                                         std::to_string(status) + ")");
    return std::string(reinterpret_cast<const char*>(out.get()), info.ulStreamSize);
}

}  // namespace tavrin
