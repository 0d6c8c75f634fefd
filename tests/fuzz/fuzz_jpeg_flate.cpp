// Tavrin_MakeJPGStream and Tavrin_jpgToflate with every record field,
// argument and capacity from the input, and guard bytes after each buffer.
// A stream that is produced must decode with libjpeg to the image's size and
// component count; a Flate stream must inflate to its source; a failure
// leaves the size field as it was; nothing is written past a capacity.
#include <fuzzer/FuzzedDataProvider.h>
#include <zlib.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <jpeglib.h>

#include "TavrinEncode.h"

namespace {

constexpr size_t kGuard = 32;
constexpr uint8_t kGuardByte = 0x5A;
constexpr uint32_t kUntouched = 0xDEADBEEF;

void expectGuard(const std::vector<uint8_t>& b, size_t from) {
    for (size_t i = from; i < b.size(); ++i)
        if (b[i] != kGuardByte) std::abort();
}

struct Decoded {
    bool ok;
    unsigned width, height;
    int components;
};

struct JumpingError {
    jpeg_error_mgr pub;
    std::jmp_buf jump;
};
void jumpOut(j_common_ptr c) { std::longjmp(reinterpret_cast<JumpingError*>(c->err)->jump, 1); }
void silent(j_common_ptr, int) {}

Decoded decodeHeader(const uint8_t* data, size_t n) {
    jpeg_decompress_struct d;
    JumpingError err;
    d.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = jumpOut;
    err.pub.emit_message = silent;
    Decoded r{false, 0, 0, 0};
    jpeg_create_decompress(&d);
    if (setjmp(err.jump) == 0) {
        jpeg_mem_src(&d, data, n);
        jpeg_read_header(&d, TRUE);
        jpeg_start_decompress(&d);
        std::vector<uint8_t> row(size_t(d.output_width) * d.output_components);
        JSAMPROW p = row.data();
        while (d.output_scanline < d.output_height) jpeg_read_scanlines(&d, &p, 1);
        jpeg_finish_decompress(&d);
        r = Decoded{true, d.image_width, d.image_height, d.num_components};
    }
    jpeg_destroy_decompress(&d);
    return r;
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
        const Decoded d = decodeHeader(stream.data(), info.ulStreamSize);
        if (info.ulStreamSize > capacity || !d.ok || d.width != img.usWidth || d.height != img.usHeight ||
            d.components != components)
            std::abort();
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
