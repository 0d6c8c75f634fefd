// Plane and stream dumps: an image as a Deflate TIFF or as raw bytes, and
// the background stream exactly as encoded.
#include <cstdio>

#include "TavrinDebug.h"

namespace {

// Bytes of an image by the general rule, in 32-bit unsigned arithmetic.
uint32_t imageBytes(const ImgTavrin& img) {
    return static_cast<uint32_t>(img.usWidth) * img.usHeight * (img.ucType != 0 ? 3u : 1u);
}

// Writes n bytes to path (replaced); an unopenable file is skipped.
void writeFile(const char* path, const uint8_t* data, size_t n) {
    FILE* fp = nullptr;
    if (_tfopen_s(&fp, path, "wb") != 0) return;
    if (n > 0) std::fwrite(data, 1, n, fp);
    std::fclose(fp);
}

}  // namespace

int TavrinApp_DebugBGImg(strBgImgInfo* info, char* path, uint8_t /*flag*/) {
    if (info == nullptr || info->pucStreamData == nullptr || path == nullptr) return 0;
    writeFile(path, info->pucStreamData, info->ulStreamSize);
    return 0;
}

int Tavrin_Debug_Image(char* dir, char* name, ImgTavrin* img) {
    if (img == nullptr || img->pucImage == nullptr || dir == nullptr || name == nullptr) return 0;
    char path[TAVRIN_PATH_SIZE];
    catPath(path, dir, name);
    return Tavrin_WriteTIFF(path, img);
}

int Tavrin_Debug_RawImage(char* dir, char* name, ImgTavrin* img) {
    if (img == nullptr || img->pucImage == nullptr || dir == nullptr || name == nullptr) return 0;
    char path[TAVRIN_PATH_SIZE];
    catPath(path, dir, name);
    writeFile(path, img->pucImage, imageBytes(*img));
    return 0;
}
