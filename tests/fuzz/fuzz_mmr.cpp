// Tavrin_bwToMmr with width, height, resolutions, buffer capacity and pixels
// from the input. The coded bytes are wrapped in a TIFF by libtiff and
// decoded back, and must give the input image; the call must succeed
// exactly when the capacity holds the coded size (known from a call with
// ample room), write nothing past the capacity, and always leave the store
// as it found it.
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "TavrinEncode.h"
#include "TavrinFom.h"

namespace {

constexpr size_t kGuard = 16;
constexpr uint8_t kGuardByte = 0xA5;

// Decodes bare T.6 bytes of a width x height image into packed rows, through
// a one-strip TIFF file that libtiff writes around them and reads back.
std::vector<uint8_t> decode(const uint8_t* mmr, size_t n, uint32_t width, uint32_t height) {
    static const std::string path =
        (access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + std::string("/fuzz_mmr_") + std::to_string(getpid());
    TIFF* w = TIFFOpen(path.c_str(), "w");
    TIFFSetField(w, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(w, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(w, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(w, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(w, TIFFTAG_ROWSPERSTRIP, height);
    TIFFSetField(w, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFWriteRawStrip(w, 0, const_cast<uint8_t*>(mmr), n);
    TIFFClose(w);
    TIFF* r = TIFFOpen(path.c_str(), "r");
    std::vector<uint8_t> rows(size_t((width + 7) / 8) * height);
    if (r == nullptr || TIFFReadEncodedStrip(r, 0, rows.data(), rows.size()) != tmsize_t(rows.size()))
        std::abort();
    TIFFClose(r);
    return rows;
}

void quiet(const char*, const char*, va_list) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool silenced = (TIFFSetErrorHandler(quiet), TIFFSetWarningHandler(quiet), true);
    (void)silenced;
    FuzzedDataProvider in(data, size);
    strFgImgInfo info{};
    info.usWidth = in.ConsumeIntegralInRange<uint16_t>(0, 300);
    info.usHeight = in.ConsumeIntegralInRange<uint16_t>(0, 300);
    info.usXReso = in.ConsumeIntegral<uint16_t>();
    info.usYReso = in.ConsumeIntegral<uint16_t>();
    const size_t wanted = in.ConsumeIntegralInRange<size_t>(0, 70000);
    const bool nameTaken = in.ConsumeBool();
    const size_t rowBytes = (info.usWidth + 7) / 8;
    std::vector<uint8_t> image(rowBytes * info.usHeight);
    const std::vector<uint8_t> pixels = in.ConsumeRemainingBytes<uint8_t>();
    for (size_t i = 0; i < image.size() && !pixels.empty(); ++i) image[i] = pixels[i % pixels.size()];

    // Coded size with ample room (T.6 can expand a worst-case image about
    // ninefold), then the call under test with the capacity from the input.
    std::vector<uint8_t> ample(image.size() * 9 + 1024);
    info.pucMmrData = ample.data();
    const int firstStatus = Tavrin_bwToMmr(&info, image.data(), ample.size());
    const size_t coded = info.lMmrSize;
    if ((firstStatus == 0) != (coded > 0) || (firstStatus != 0 && firstStatus != 20) ||
        (firstStatus != 0 && info.usWidth > 0 && info.usHeight > 0))
        std::abort();

    std::vector<uint8_t> buffer(wanted + kGuard, kGuardByte);
    uint8_t marker[1] = {0};
    if (nameTaken && fom_set("outFile_bwToMmr", O_RDWR, marker, 1, 0, 0, nullptr) != 0) std::abort();
    info.pucMmrData = buffer.data();
    const int status = Tavrin_bwToMmr(&info, image.data(), wanted);
    if (nameTaken && (status != 20 || fom_unset("outFile_bwToMmr") != 0)) std::abort();
    if (fom_isOnMemory("outFile_bwToMmr")) std::abort();
    for (size_t i = wanted; i < buffer.size(); ++i)
        if (buffer[i] != kGuardByte) std::abort();
    if (nameTaken || firstStatus != 0) return 0;
    if (status != (wanted >= coded ? 0 : 20) || info.lMmrSize != (status == 0 ? int32_t(coded) : 0)) std::abort();
    if (status != 0) return 0;
    if (std::memcmp(buffer.data(), ample.data(), coded) != 0) std::abort();  // the same bytes every time

    const std::vector<uint8_t> decoded = decode(buffer.data(), coded, info.usWidth, info.usHeight);
    const uint8_t lastMask = uint8_t(0xFF << ((8 - info.usWidth % 8) % 8));  // padding bits are not image
    for (size_t y = 0; y < info.usHeight; ++y)
        for (size_t x = 0; x < rowBytes; ++x) {
            const uint8_t mask = x + 1 == rowBytes ? lastMask : 0xFF;
            if ((decoded[y * rowBytes + x] ^ image[y * rowBytes + x]) & mask) std::abort();
        }
    return 0;
}
