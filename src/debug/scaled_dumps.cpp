// Scaled dumps: bytes multiplied by a gain modulo 256 (scale 255 turns a
// 0/1 mask into a visible 0/255 picture), as raw bytes or as a TIFF.
#include <cstdio>
#include <memory>
#include <new>

#include "TavrinDebug.h"

namespace {

// "%s.raw" is composed in a buffer of the size of a classic path limit.
constexpr size_t kRawPathSize = 260;

// Only the low 8 bits of the scale take part: (p * (scale mod 256)) mod 256.
void scaleBytes(const uint8_t* src, uint8_t* dst, size_t n, int scale) {
    const uint8_t gain = static_cast<uint8_t>(scale & 0xFF);
    for (size_t i = 0; i < n; ++i) dst[i] = static_cast<uint8_t>(src[i] * gain);
}

std::unique_ptr<uint8_t[]> allocateBytes(size_t n) {
    return std::unique_ptr<uint8_t[]>(new (std::nothrow) uint8_t[n > 0 ? n : 1]);
}

}  // namespace

int DebugOut(const char* base, uint8_t* pixels, int width, int height, int scale) {
    if (base == nullptr || width < 0 || height < 0) return 0;
    const size_t n = static_cast<size_t>(width) * static_cast<size_t>(height);
    if (n > 0 && pixels == nullptr) return 0;
    // A base name too long for the buffer writes nothing: a cut name could
    // hit an unrelated file.
    char path[kRawPathSize];
    const int len = std::snprintf(path, sizeof path, "%s.raw", base);
    if (len < 0 || static_cast<size_t>(len) >= sizeof path) return 0;

    std::unique_ptr<uint8_t[]> scaled = allocateBytes(n);
    if (!scaled) return 0;
    if (n > 0) scaleBytes(pixels, scaled.get(), n, scale);
    FILE* fp = nullptr;
    if (_tfopen_s(&fp, path, "wb") != 0) return 0;
    if (n > 0) std::fwrite(scaled.get(), 1, n, fp);
    std::fclose(fp);
    return 0;
}

int DebugOutTiff(char* dir, char* name, ImgTavrin* img, int scale) {
    if (dir == nullptr || dir[0] == '\0' || name == nullptr) return 0;
    if (img == nullptr || img->pucImage == nullptr) return 0;
    if (scale == 1) {
        Tavrin_Debug_Image(dir, name, img);
        return 0;
    }
    // Meant for one-byte-per-pixel (type-0) planes. A colour-sized type is
    // scaled over all its bytes, so the TIFF writer never reads past the
    // copy.
    const size_t n =
        static_cast<size_t>(img->usWidth) * img->usHeight * (img->ucType != 0 ? 3u : 1u);
    std::unique_ptr<uint8_t[]> scaled = allocateBytes(n);
    if (!scaled) return 0;
    scaleBytes(img->pucImage, scaled.get(), n, scale);
    ImgTavrin copy{};
    set_ImageTavrinFIP(&copy, img, scaled.get(), false);
    Tavrin_Debug_Image(dir, name, &copy);
    return 0;
}
