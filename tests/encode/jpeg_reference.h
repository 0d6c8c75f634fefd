// Plain libjpeg on both sides of the JPEG tests: a reference encoder with
// libjpeg's own memory destination and the same settings as the library,
// and a decoder that reports what a stream carries.
#ifndef TAVRIN_TESTS_ENCODE_JPEG_REFERENCE_H
#define TAVRIN_TESTS_ENCODE_JPEG_REFERENCE_H

#include <TavrinEncode.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include <jpeglib.h>

namespace encode_test {

struct JpegSettings {
    int type = 0;  // ImgTavrin type code
    int quality = 75;
    int chromaOffset = 0;
    int sampling = 0;
    uint16_t xReso = 30000, yReso = 30000;
};

inline const unsigned int* annexK(int slot) {
    static const unsigned int k1[64] = {
        16, 11, 10, 16, 24, 40, 51, 61, 12, 12, 14, 19, 26, 58, 60, 55,
        14, 13, 16, 24, 40, 57, 69, 56, 14, 17, 22, 29, 51, 87, 80, 62,
        18, 22, 37, 56, 68, 109, 103, 77, 24, 35, 55, 64, 81, 104, 113, 92,
        49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
    static const unsigned int k2[64] = {
        17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
        24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
        99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
        99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};
    return slot == 0 ? k1 : k2;
}

// The stream plain libjpeg (jpeg_mem_dest) makes with the library's settings.
inline std::vector<uint8_t> referenceJpeg(const uint8_t* pixels, uint32_t width, uint32_t height,
                                          const JpegSettings& s) {
    const bool colour = s.type == 1 || s.type == 2;
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = width;
    c.image_height = height;
    c.input_components = colour ? 3 : 1;
    c.in_color_space = colour ? JCS_RGB : JCS_GRAYSCALE;
    jpeg_set_defaults(&c);
    if (s.type == 0) {
        jpeg_set_quality(&c, s.quality, TRUE);
    } else {
        jpeg_add_quant_table(&c, 0, annexK(0), jpeg_quality_scaling(s.quality), TRUE);
        jpeg_add_quant_table(&c, 1, annexK(1), jpeg_quality_scaling(s.quality + s.chromaOffset), TRUE);
        const unsigned m = static_cast<unsigned>(s.sampling);
        c.comp_info[0].h_samp_factor = m == 5 ? 1 : 2;
        c.comp_info[0].v_samp_factor = (m == 2 || m == 4 || m == 5) ? 1 : 2;
    }
    c.density_unit = 1;
    c.X_density = s.xReso / 100;
    c.Y_density = s.yReso / 100;
    jpeg_start_compress(&c, TRUE);
    const size_t row = size_t(width) * c.input_components;
    while (c.next_scanline < c.image_height) {
        JSAMPROW r = const_cast<uint8_t*>(pixels) + c.next_scanline * row;
        jpeg_write_scanlines(&c, &r, 1);
    }
    jpeg_finish_compress(&c);
    std::vector<uint8_t> bytes(out, out + size);
    jpeg_destroy_compress(&c);
    std::free(out);
    return bytes;
}

// What a decoder finds in a stream, and the decoded pixels.
struct DecodedJpeg {
    int components = 0;
    J_COLOR_SPACE colourSpace = JCS_UNKNOWN;
    int hSamp[3] = {}, vSamp[3] = {}, quantSlot[3] = {};
    bool hasTable[4] = {};
    unsigned quant[4][64] = {};  // natural order
    int densityUnit = -1, xDensity = -1, yDensity = -1;
    bool jfif = false;
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> pixels;
};

// Throws an int (JpegErrorExit) on a bad stream.
inline DecodedJpeg decodeJpeg(const uint8_t* data, size_t size) {
    DecodedJpeg d;
    jpeg_decompress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    err.error_exit = JpegErrorExit;
    jpeg_create_decompress(&c);
    try {
        jpeg_mem_src(&c, data, size);
        jpeg_read_header(&c, TRUE);
        d.components = c.num_components;
        d.colourSpace = c.jpeg_color_space;
        for (int i = 0; i < c.num_components && i < 3; ++i) {
            d.hSamp[i] = c.comp_info[i].h_samp_factor;
            d.vSamp[i] = c.comp_info[i].v_samp_factor;
            d.quantSlot[i] = c.comp_info[i].quant_tbl_no;
        }
        for (int t = 0; t < 4; ++t)
            if (c.quant_tbl_ptrs[t] != nullptr) {
                d.hasTable[t] = true;
                for (int k = 0; k < 64; ++k) d.quant[t][k] = c.quant_tbl_ptrs[t]->quantval[k];
            }
        d.jfif = c.saw_JFIF_marker;
        d.densityUnit = c.density_unit;
        d.xDensity = c.X_density;
        d.yDensity = c.Y_density;
        jpeg_start_decompress(&c);
        d.width = c.output_width;
        d.height = c.output_height;
        const size_t row = size_t(c.output_width) * c.output_components;
        d.pixels.resize(row * c.output_height);
        while (c.output_scanline < c.output_height) {
            JSAMPROW r = d.pixels.data() + c.output_scanline * row;
            jpeg_read_scanlines(&c, &r, 1);
        }
        jpeg_finish_decompress(&c);
    } catch (...) {
        jpeg_destroy_decompress(&c);
        throw;
    }
    jpeg_destroy_decompress(&c);
    return d;
}

// The tables libjpeg's own quality call gives (natural order).
inline void standardTables(int quality, unsigned out[2][64]) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    c.in_color_space = JCS_RGB;
    c.input_components = 3;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    for (int t = 0; t < 2; ++t)
        for (int k = 0; k < 64; ++k) out[t][k] = c.quant_tbl_ptrs[t]->quantval[k];
    jpeg_destroy_compress(&c);
}

}  // namespace encode_test

#endif
