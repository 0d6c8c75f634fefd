// Tavrin_MakeJPGStream against plain libjpeg writing through its own
// jpeg_mem_dest (into a preallocated buffer, so it never reallocates) with
// the same settings: a 2480 x 3508 gray page and a 1240 x 1754 colour page.
// The difference is the library's overhead around libjpeg's coding; the
// program ends with the ratios of the best times.
#include <cstdio>
#include <vector>

#include <jpeglib.h>

#include <TavrinEncode.h>

#include "compare_main.h"
#include "encode_pages.h"

namespace {

constexpr uint16_t kGrayW = 2480, kGrayH = 3508, kColourW = 1240, kColourH = 1754;
constexpr int kQuality = 75;

const unsigned int kLuminance[64] = {
    16, 11, 10, 16, 24, 40, 51, 61, 12, 12, 14, 19, 26, 58, 60, 55,
    14, 13, 16, 24, 40, 57, 69, 56, 14, 17, 22, 29, 51, 87, 80, 62,
    18, 22, 37, 56, 68, 109, 103, 77, 24, 35, 55, 64, 81, 104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
const unsigned int kChrominance[64] = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
    24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

void tavrinJpeg(benchmark::State& state, uint16_t w, uint16_t h, uint8_t type) {
    const int components = type ? 3 : 1;
    std::vector<uint8_t> px = bench_pages::tonePage(w, h, components);
    std::vector<uint8_t> out(size_t(w) * h * components);
    ImgTavrin img{px.data(), w, h, 30000, 30000, type};
    strBgImgInfo info{0, out.data()};
    for (auto _ : state) {
        if (Tavrin_MakeJPGStream(&info, &img, kQuality, 0, 0) != 0) state.SkipWithError("status");
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["jpeg_bytes"] = info.ulStreamSize;
}

void plainLibjpeg(benchmark::State& state, uint16_t w, uint16_t h, bool colour) {
    const int components = colour ? 3 : 1;
    std::vector<uint8_t> px = bench_pages::tonePage(w, h, components);
    std::vector<uint8_t> out(size_t(w) * h * components);
    unsigned long size = 0;
    for (auto _ : state) {
        jpeg_compress_struct c;
        jpeg_error_mgr err;
        c.err = jpeg_std_error(&err);
        jpeg_create_compress(&c);
        unsigned char* buffer = out.data();
        size = out.size();
        jpeg_mem_dest(&c, &buffer, &size);
        c.image_width = w;
        c.image_height = h;
        c.input_components = components;
        c.in_color_space = colour ? JCS_RGB : JCS_GRAYSCALE;
        jpeg_set_defaults(&c);
        if (!colour) {
            jpeg_set_quality(&c, kQuality, TRUE);
        } else {
            jpeg_add_quant_table(&c, 0, kLuminance, jpeg_quality_scaling(kQuality), TRUE);
            jpeg_add_quant_table(&c, 1, kChrominance, jpeg_quality_scaling(kQuality), TRUE);
            c.comp_info[0].h_samp_factor = 2;
            c.comp_info[0].v_samp_factor = 2;
        }
        c.density_unit = 1;
        c.X_density = 300;
        c.Y_density = 300;
        jpeg_start_compress(&c, TRUE);
        const size_t row = size_t(w) * components;
        while (c.next_scanline < c.image_height) {
            JSAMPROW r = px.data() + c.next_scanline * row;
            jpeg_write_scanlines(&c, &r, 1);
        }
        jpeg_finish_compress(&c);
        jpeg_destroy_compress(&c);
        if (buffer != out.data()) state.SkipWithError("reallocated");
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["jpeg_bytes"] = double(size);
}

void BM_Tavrin_MakeJPGStream_Gray(benchmark::State& s) { tavrinJpeg(s, kGrayW, kGrayH, 0); }
void BM_Libjpeg_Gray(benchmark::State& s) { plainLibjpeg(s, kGrayW, kGrayH, false); }
void BM_Tavrin_MakeJPGStream_Colour(benchmark::State& s) { tavrinJpeg(s, kColourW, kColourH, 1); }
void BM_Libjpeg_Colour(benchmark::State& s) { plainLibjpeg(s, kColourW, kColourH, true); }

}  // namespace

void registerContenders() {
    bench_compare::contender("jpeg_gray", "ours_MakeJPGStream", BM_Tavrin_MakeJPGStream_Gray);
    bench_compare::contender("jpeg_gray", "libjpeg_mem_dest", BM_Libjpeg_Gray);
    bench_compare::contender("jpeg_colour", "ours_MakeJPGStream", BM_Tavrin_MakeJPGStream_Colour);
    bench_compare::contender("jpeg_colour", "libjpeg_mem_dest", BM_Libjpeg_Colour);
}
