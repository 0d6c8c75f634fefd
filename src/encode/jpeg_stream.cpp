// Tavrin_MakeJPGStream: a baseline JPEG of a gray or colour ImgTavrin
// written straight into the caller's stream buffer.
#include <cstring>

#include "encode/jpeg_memory_dest.h"

#include "TavrinEncode.h"

static_assert(JPEG_LIB_VERSION == 62, "built for the libjpeg 6.2 interface");

namespace {

constexpr int kOtherFailure = 18;

// ITU-T T.81 Annex K, Table K.1 (luminance) and Table K.2 (chrominance), in
// natural (row-major) order.
const unsigned int kLuminanceBase[64] = {
    16, 11, 10, 16, 24,  40,  51,  61,   //
    12, 12, 14, 19, 26,  58,  60,  55,   //
    14, 13, 16, 24, 40,  57,  69,  56,   //
    14, 17, 22, 29, 51,  87,  80,  62,   //
    18, 22, 37, 56, 68,  109, 103, 77,   //
    24, 35, 55, 64, 81,  104, 113, 92,   //
    49, 64, 78, 87, 103, 121, 120, 101,  //
    72, 92, 95, 98, 112, 100, 103, 99,
};
const unsigned int kChrominanceBase[64] = {
    17, 18, 24, 47, 99, 99, 99, 99,  //
    18, 21, 26, 66, 99, 99, 99, 99,  //
    24, 26, 56, 99, 99, 99, 99, 99,  //
    47, 66, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,
};

// Horizontal x vertical sampling of the first component for a sampling
// mode; the mode is read as unsigned, so negative values are "other".
void setFirstComponentSampling(jpeg_compress_struct& cinfo, int mode) {
    int h = 2, v = 2;
    switch (static_cast<unsigned>(mode)) {
    case 2:
    case 4:
        v = 1;
        break;
    case 5:
        h = 1;
        v = 1;
        break;
    default:  // 0, 1, 3 and every other value
        break;
    }
    cinfo.comp_info[0].h_samp_factor = h;
    cinfo.comp_info[0].v_samp_factor = v;
}

// libjpeg's quality scaling clamps to 1..100; clamp the sum first so that
// extreme arguments cannot overflow.
int sumQuality(int quality, int offset) {
    long long sum = static_cast<long long>(quality) + offset;
    if (sum > 100) return 100;
    if (sum < 0) return 0;
    return static_cast<int>(sum);
}

// The standard error manager prints warnings; the library prints nothing.
void discardMessage(j_common_ptr) {}

}  // namespace

int Tavrin_MakeJPGStream(strBgImgInfo* info, ImgTavrin* src, int quality, int iChromaOffset,
                         int iSampling) {
    if (info == nullptr || src == nullptr) return kOtherFailure;
    jpeg_compress_struct cinfo;
    jpeg_error_mgr jerr;
    std::memset(&cinfo, 0, sizeof cinfo);
    try {
        cinfo.err = jpeg_std_error(&jerr);
        jerr.error_exit = JpegErrorExit;
        jerr.output_message = discardMessage;
        jpeg_CreateCompress(&cinfo, 62, sizeof(jpeg_compress_struct));

        const bool colour = src->ucType == 1 || src->ucType == 2;
        const int components = colour ? 3 : 1;
        // The caller's buffer holds at least width x height x components
        // bytes; beyond 32 bits the capacity is held at 0xFFFFFFFF.
        uint64_t capacity = uint64_t(src->usWidth) * src->usHeight * components;
        if (capacity > 0xFFFFFFFFu) capacity = 0xFFFFFFFFu;
        jpeg_memory_dest(&cinfo, info->pucStreamData, static_cast<uint32_t>(capacity));

        cinfo.image_width = src->usWidth;
        cinfo.image_height = src->usHeight;
        cinfo.input_components = components;
        cinfo.in_color_space = colour ? JCS_RGB : JCS_GRAYSCALE;
        jpeg_set_defaults(&cinfo);

        if (src->ucType == 0) {
            jpeg_set_quality(&cinfo, quality, TRUE);
        } else {
            // Chrominance follows its own quality; the caller picks the
            // sampling of the first component.
            const int lumaScale = jpeg_quality_scaling(quality);
            const int chromaScale = jpeg_quality_scaling(sumQuality(quality, iChromaOffset));
            jpeg_add_quant_table(&cinfo, 0, kLuminanceBase, lumaScale, TRUE);
            jpeg_add_quant_table(&cinfo, 1, kChrominanceBase, chromaScale, TRUE);
            setFirstComponentSampling(cinfo, iSampling);
        }

        cinfo.density_unit = 1;  // dots per inch
        cinfo.X_density = static_cast<UINT16>(src->usXReso / 100);
        cinfo.Y_density = static_cast<UINT16>(src->usYReso / 100);

        jpeg_start_compress(&cinfo, TRUE);
        const size_t rowBytes = size_t(src->usWidth) * components;
        if (cinfo.next_scanline < cinfo.image_height && src->pucImage == nullptr)
            throw kOtherFailure;
        while (cinfo.next_scanline < cinfo.image_height) {
            JSAMPROW row = src->pucImage + size_t(cinfo.next_scanline) * rowBytes;
            jpeg_write_scanlines(&cinfo, &row, 1);
        }
        jpeg_finish_compress(&cinfo);
        info->ulStreamSize = static_cast<uint32_t>(tavrin_jpeg::streamBytes(cinfo));
        jpeg_destroy_compress(&cinfo);
        return 0;
    } catch (int status) {
        if (cinfo.mem != nullptr) jpeg_destroy_compress(&cinfo);
        return status;
    } catch (...) {
        if (cinfo.mem != nullptr) jpeg_destroy_compress(&cinfo);
        return kOtherFailure;
    }
}
