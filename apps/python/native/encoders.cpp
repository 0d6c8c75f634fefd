#include "encoders.h"

#include <zlib.h>

#include <memory>

#include "TavrinCommon.h"
#include "errors.h"
#include "pipeline/app_error.h"
#include "pipeline/layer_encoders.h"

namespace tavrin_python {

namespace {

// Output buffers are sized for the worst case and only their head is
// written: left uninitialised.
std::unique_ptr<uint8_t[]> scratch(size_t bytes) { return std::unique_ptr<uint8_t[]>(new uint8_t[bytes]); }

py::bytes bytesOf(const uint8_t* data, size_t size) {
    return py::bytes(reinterpret_cast<const char*>(data), size);
}

}  // namespace

std::mutex& mmrLock() {
    static std::mutex lock;
    return lock;
}

py::bytes encodeMmr(const PixelArray& packed, int width, double dpi) {
    if (packed.ndim() != 2 || width < 1 || width > tavrin::kMaxPageSide || packed.shape(0) < 1 ||
        packed.shape(0) > tavrin::kMaxPageSide || packed.shape(1) != (width + 7) / 8)
        throw tavrin::AppError(tavrin::kExitFormat, "mmr: expected 1 to 65535 rows of (width + 7) / 8 bytes");
    const int height = int(packed.shape(0));
    const size_t capacity = tavrin::mmrWorstCaseBytes(width, height);
    const std::unique_ptr<uint8_t[]> out = scratch(capacity);
    // The encoder takes a writable image; give it its own copy.
    std::vector<uint8_t> rows(packed.data(), packed.data() + packed.size());
    strFgImgInfo info{};
    info.pucMmrData = out.get();
    info.usWidth = uint16_t(width);
    info.usHeight = uint16_t(height);
    info.usXReso = info.usYReso = tavrin::resolutionField100(dpi);
    int status;
    {
        py::gil_scoped_release noGil;
        std::lock_guard<std::mutex> one(mmrLock());
        status = Tavrin_bwToMmr(&info, rows.data(), capacity);
    }
    if (status != 0) throw LibraryFailure(status, "mmr: Tavrin_bwToMmr returned " + std::to_string(status));
    return bytesOf(out.get(), size_t(info.lMmrSize));
}

py::bytes encodeJpeg(const PixelArray& image, int quality, int chromaOffset, int sampling, double dpi) {
    const PageView v = viewPage(image, "jpeg");
    // The library's capacity rule: one byte per sample of the image.
    const size_t capacity = size_t(v.width) * v.height * v.channels;
    const std::unique_ptr<uint8_t[]> out = scratch(capacity);
    ImgTavrin src{};
    const uint16_t reso = tavrin::resolutionField100(dpi);
    set_ImageTavrinP(&src, const_cast<uint8_t*>(v.pixels), uint16_t(v.width), uint16_t(v.height),
                     v.channels == 3 ? TAVRIN_TYPE_RGB : TAVRIN_TYPE_GRAY, reso, reso, false);
    strBgImgInfo info{};
    info.pucStreamData = out.get();
    int status;
    {
        py::gil_scoped_release noGil;
        status = Tavrin_MakeJPGStream(&info, &src, quality, chromaOffset, sampling);
    }
    if (status != 0)
        throw LibraryFailure(status, "jpeg: Tavrin_MakeJPGStream returned " + std::to_string(status) +
                                         (status == 11 ? " (a libjpeg error, or a stream longer than the "
                                                         "image's raw size)"
                                                       : ""));
    return bytesOf(out.get(), info.ulStreamSize);
}

py::bytes wrapFlate(const std::string& data) {
    if (data.size() > 0xFFFFFFFFu) throw tavrin::AppError(tavrin::kExitFormat, "flate: more than 4 GiB of data");
    const unsigned long capacity = compressBound(uLong(data.size()));
    const std::unique_ptr<uint8_t[]> out = scratch(capacity);
    strBgImgInfo info{};
    info.ulStreamSize = uint32_t(data.size());
    info.pucStreamData = out.get();
    int status;
    {
        py::gil_scoped_release noGil;
        status = Tavrin_jpgToflate(&info, reinterpret_cast<uint8_t*>(const_cast<char*>(data.data())), capacity);
    }
    if (status != 0) throw LibraryFailure(status, "flate: Tavrin_jpgToflate returned " + std::to_string(status));
    return bytesOf(out.get(), info.ulStreamSize);
}

}  // namespace tavrin_python
