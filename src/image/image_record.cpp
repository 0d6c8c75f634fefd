// The ImgTavrin family: describing, placing, clearing, copying and dumping
// images whose pixels live elsewhere.
#include <cstdio>
#include <cstring>

#include "TavrinImage.h"
#include "image/image_bytes.h"

using tavrin::imageBytes;

int set_ImageTavrin(ImgTavrin* img, uint16_t usWidth, uint16_t usHeight, uint8_t ucType,
                    uint16_t usXReso, uint16_t usYReso, bool clear) {
    img->usWidth = usWidth;
    img->usHeight = usHeight;
    img->ucType = ucType;
    img->usXReso = usXReso;
    img->usYReso = usYReso;
    if (clear && img->pucImage != nullptr) std::memset(img->pucImage, 0, imageBytes(*img));
    return 0;
}

int set_ImageTavrinP(ImgTavrin* img, uint8_t* pucImage, uint16_t usWidth, uint16_t usHeight,
                     uint8_t ucType, uint16_t usXReso, uint16_t usYReso, bool clear) {
    img->pucImage = pucImage;
    return set_ImageTavrin(img, usWidth, usHeight, ucType, usXReso, usYReso, clear);
}

int set_ImageTavrinFI(ImgTavrin* img, ImgTavrin* from, bool clear) {
    return set_ImageTavrin(img, from->usWidth, from->usHeight, from->ucType, from->usXReso,
                           from->usYReso, clear);
}

int set_ImageTavrinFIP(ImgTavrin* img, ImgTavrin* from, uint8_t* pucImage, bool clear) {
    img->pucImage = pucImage;
    return set_ImageTavrinFI(img, from, clear);
}

int set_ImageTavrin_withMemCheck(ImgTavrin* img, uint8_t* base, uint32_t limit, uint32_t offset,
                                 uint16_t usWidth, uint16_t usHeight, uint8_t ucType,
                                 uint16_t usXReso, uint16_t usYReso, bool clear) {
    // The placement helper compares signed ints; sizes and limits of real
    // planes stay far below 2^31, so the casts only matter for absurd limits.
    const uint32_t size = imageBytes(usWidth, usHeight, ucType);
    img->pucImage = TavrinApp_MemAlloc(base, static_cast<int>(size), static_cast<int>(limit),
                                       static_cast<int>(offset));
    if (img->pucImage == nullptr) return 2;
    return set_ImageTavrin(img, usWidth, usHeight, ucType, usXReso, usYReso, clear);
}

int initZero_ImageTavrin(ImgTavrin* img) {
    std::memset(img->pucImage, 0, imageBytes(*img));
    return 0;
}

int release_ImageTavrin(ImgTavrin* img) {
    img->pucImage = nullptr;
    img->usWidth = 0;
    img->usHeight = 0;
    img->usXReso = 0;
    img->usYReso = 0;
    img->ucType = 0;
    return 0;
}

int copy_ImageTavrin(ImgTavrin* src, ImgTavrin* dst, int mode) {
    if (mode == 2) {
        *dst = *src;
        return 0;
    }
    dst->usWidth = src->usWidth;
    dst->usHeight = src->usHeight;
    dst->ucType = src->ucType;
    dst->usXReso = src->usXReso;
    dst->usYReso = src->usYReso;
    if (mode == 1 && dst->pucImage != nullptr)
        std::memcpy(dst->pucImage, src->pucImage, imageBytes(*src));
    return 0;
}

int debugOut_ImageTavrin(ImgTavrin* img, char* path) {
    std::FILE* fp = std::fopen(path, "wb");
    if (fp == nullptr) return 0;
    std::fwrite(img->pucImage, 1, imageBytes(*img), fp);
    std::fclose(fp);
    return 0;
}
