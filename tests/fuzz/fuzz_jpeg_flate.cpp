// Tavrin_MakeJPGStream and Tavrin_jpgToflate with every record field,
// argument and capacity from the input, and guard bytes after each buffer.
// A stream that is produced must decode with libjpeg to the image's size and
// component count; a Flate stream must inflate to its source; a failure
// leaves the size field as it was; nothing is written past a capacity.
// (An image the decoder cannot take ends the input with the reader's error,
// which libFuzzer reports as an uncaught exception.)
#include <fuzzer/FuzzedDataProvider.h>
#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "TavrinEncode.h"
#include "formats/page_reader.h"

namespace {

constexpr size_t kGuard = 32;
constexpr uint8_t kGuardByte = 0x5A;
constexpr uint32_t kUntouched = 0xDEADBEEF;

void expectGuard(const std::vector<uint8_t>& b, size_t from) {
    for (size_t i = from; i < b.size(); ++i)
        if (b[i] != kGuardByte) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    ImgTavrin img{};
    img.usWidth = in.ConsumeIntegralInRange<uint16_t>(0, 160);
    img.usHeight = in.ConsumeIntegralInRange<uint16_t>(0, 160);
    img.usXReso = in.ConsumeIntegral<uint16_t>();
    img.usYReso = in.ConsumeIntegral<uint16_t>();
    img.ucType = in.ConsumeIntegral<uint8_t>();
    const int quality = in.ConsumeBool() ? in.ConsumeIntegralInRange(-5, 105) : in.ConsumeIntegral<int>();
    const int chromaOffset = in.ConsumeBool() ? in.ConsumeIntegralInRange(-105, 105) : in.ConsumeIntegral<int>();
    const int sampling = in.ConsumeIntegral<int>();
    const bool nullPixels = in.ConsumeBool();
    const size_t flateCapacity = in.ConsumeIntegralInRange<size_t>(0, 1 << 18);
    const size_t flateSource = in.ConsumeIntegralInRange<size_t>(0, 1 << 18);
    const int components = img.ucType == 1 || img.ucType == 2 ? 3 : 1;
    const size_t capacity = size_t(img.usWidth) * img.usHeight * components;

    std::vector<uint8_t> pixels(capacity);
    const std::vector<uint8_t> rest = in.ConsumeRemainingBytes<uint8_t>();
    for (size_t i = 0; i < capacity && !rest.empty(); ++i) pixels[i] = rest[i % rest.size()];
    img.pucImage = nullPixels ? nullptr : pixels.data();
    std::vector<uint8_t> stream(capacity + kGuard, kGuardByte);
    strBgImgInfo info{kUntouched, stream.data()};
    const int status = Tavrin_MakeJPGStream(&info, &img, quality, chromaOffset, sampling);
    expectGuard(stream, capacity);
    if (status != 0) {
        if ((status != 11 && status != 18) || info.ulStreamSize != kUntouched) std::abort();
    } else {
        if (info.ulStreamSize > capacity) std::abort();
        // libjpeg, through the program's reader, must decode the whole image.
        const tavrin::Page page = tavrin::decodeJpeg({stream.begin(), stream.begin() + info.ulStreamSize}, "stream");
        if (page.width != img.usWidth || page.height != img.usHeight || page.channels != components) std::abort();
    }

    // Flate over the stream when there is one, else over the pixels.
    const std::vector<uint8_t>& source = status == 0 ? stream : pixels;
    const uint32_t length = uint32_t(std::min(flateSource, status == 0 ? size_t(info.ulStreamSize) : capacity));
    std::vector<uint8_t> flate(flateCapacity + kGuard, kGuardByte);
    strBgImgInfo wrapped{length, flate.data()};
    const int flateStatus = Tavrin_jpgToflate(&wrapped, const_cast<uint8_t*>(source.data()), flateCapacity);
    expectGuard(flate, flateCapacity);
    if (flateStatus != 0) {
        if (flateStatus != 19 || wrapped.ulStreamSize != length || flateCapacity >= compressBound(length))
            std::abort();
        return 0;
    }
    std::vector<uint8_t> back(length + 1);
    uLongf backLength = back.size();
    if (wrapped.ulStreamSize > flateCapacity ||
        uncompress(back.data(), &backLength, flate.data(), wrapped.ulStreamSize) != Z_OK || backLength != length ||
        (length > 0 && std::memcmp(back.data(), source.data(), length) != 0))
        std::abort();
    return 0;
}
