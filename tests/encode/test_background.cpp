// The background stream is byte for byte what plain libjpeg makes with the
// same settings, with the sampling and density a decoder reports, within the
// caller's capacity; its Flate wrap is zlib's at the default level.
#include <zlib.h>

#include <cstdio>  // before jpeglib.h, which uses FILE
#include <cstdlib>
#include <cstring>

#include <jpeglib.h>

#include "support.h"

namespace {

using tt::Bytes;
using tt::Ints;

struct Settings {
    int type = 0, quality = 75, chromaOffset = 0, sampling = 0;
    bool colour() const { return type == 1 || type == 2; }
    // The first component's sampling for the documented modes 0..5; any
    // other (negative ones count as large) is 2 x 2; gray is 1 x 1.
    std::pair<int, int> firstSampling() const {
        const std::pair<int, int> modes[] = {{2, 2}, {2, 2}, {2, 1}, {2, 2}, {2, 1}, {1, 1}};
        return type == 0 ? std::pair{1, 1} : sampling >= 0 && sampling <= 5 ? modes[sampling] : std::pair{2, 2};
    }
};

Bytes picture(uint32_t w, uint32_t h, int components) {  // smooth, with some noise
    Bytes px(size_t(w) * h * components);
    for (size_t i = 0, c = 0; i < px.size(); ++i, c = i % components)
        px[i] = uint8_t((i / components % w * (3 + c) + i / components / w * (5 - c)) % 256 / 2 + 60 + tt::hash(uint32_t(i)) % 9);
    return px;
}

// Plain libjpeg into the destination `install` sets up: the chrominance
// table is its standard one at quality + offset, the luminance table at
// quality; 300 x 299 dpi. The status JpegErrorExit throws, or 0.
template <typename Install>
int compress(Bytes& px, uint32_t w, uint32_t h, const Settings& s, Install install) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    err.error_exit = JpegErrorExit;
    jpeg_create_compress(&c);
    int status = 0;
    try {
        install(c);
        c.image_width = w;
        c.image_height = h;
        c.input_components = s.colour() ? 3 : 1;
        c.in_color_space = s.colour() ? JCS_RGB : JCS_GRAYSCALE;
        jpeg_set_defaults(&c);
        jpeg_set_quality(&c, s.quality + s.chromaOffset, TRUE);  // libjpeg clamps to 1..100
        const JQUANT_TBL chroma = *c.quant_tbl_ptrs[1];
        jpeg_set_quality(&c, s.quality, TRUE);
        if (s.type != 0) *c.quant_tbl_ptrs[1] = chroma;
        c.comp_info[0].h_samp_factor = s.firstSampling().first;
        c.comp_info[0].v_samp_factor = s.firstSampling().second;
        c.density_unit = 1;
        c.X_density = 300;
        c.Y_density = 299;
        jpeg_start_compress(&c, TRUE);
        for (JSAMPROW r = px.data(); c.next_scanline < h; r += w * c.input_components) jpeg_write_scanlines(&c, &r, 1);
        jpeg_finish_compress(&c);
    } catch (int e) {
        status = e;
    }
    jpeg_destroy_compress(&c);
    return status;
}

Bytes reference(Bytes& px, uint32_t w, uint32_t h, const Settings& s) {
    unsigned char* out = nullptr;
    unsigned long size = 0;
    compress(px, w, h, s, [&](jpeg_compress_struct& c) { jpeg_mem_dest(&c, &out, &size); });
    Bytes bytes(out, out + size);
    std::free(out);
    return bytes;
}

// What a decoder reports: components, colour space, density unit, x, y,
// then horizontal and vertical sampling and table of each component.
Ints decodedHeader(const uint8_t* data, size_t size) {
    jpeg_decompress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_decompress(&c);
    jpeg_mem_src(&c, data, size);
    jpeg_read_header(&c, TRUE);
    Ints header{c.num_components, c.jpeg_color_space, c.density_unit, c.X_density, c.Y_density};
    for (int i = 0; i < c.num_components; ++i)
        header.insert(header.end(), {c.comp_info[i].h_samp_factor, c.comp_info[i].v_samp_factor, c.comp_info[i].quant_tbl_no});
    jpeg_destroy_decompress(&c);
    return header;
}

struct Stream {
    int status;
    strBgImgInfo info;
    tt::Guarded out;  // w x h x components bytes: the documented capacity
};
Stream make(Bytes& px, uint16_t w, uint16_t h, const Settings& s) {
    Stream st{-1, {777, nullptr}, tt::Guarded(size_t(w) * h * (s.colour() ? 3 : 1))};
    st.info.pucStreamData = st.out.data();
    ImgTavrin img{px.data(), w, h, 30000, 29999, uint8_t(s.type)};
    st.status = Tavrin_MakeJPGStream(&st.info, &img, s.quality, s.chromaOffset, s.sampling);
    return st;
}

TEST(JpegStream, PlainLibjpegForEveryTypeAndSampling) {
    // Gray; colour with the chrominance at its own quality and the sampling
    // mode setting the first component only; the other codes are one gray
    // component on the colour path.
    const Settings cases[] = {{0, 75, 0, 0}, {1, 75, 0, 0}, {2, 75, -25, 1}, {1, 60, 30, 2}, {1, 90, 0, 3}, {2, 80, 0, 4},
                              {1, 75, 0, 5}, {1, 75, 0, 6}, {1, 75, 0, -1},  {3, 60, -40, 2}, {7, 90, 0, 5}};
    for (const Settings& s : cases) {
        Bytes px = picture(64, 48, s.colour() ? 3 : 1);
        Stream st = make(px, 64, 48, s);
        ASSERT_EQ(st.status, 0) << s.type;
        const Bytes bytes(st.out.data(), st.out.data() + st.info.ulStreamSize);
        EXPECT_TRUE(bytes == reference(px, 64, 48, s)) << s.type << " " << s.sampling;
        EXPECT_TRUE(st.out.intact());
        const auto [h, v] = s.firstSampling();
        Ints want{s.colour() ? 3 : 1, s.colour() ? JCS_YCbCr : JCS_GRAYSCALE, 1, 300, 299, h, v, 0};  // whole dots per inch
        if (s.colour()) want.insert(want.end(), {1, 1, 1, 1, 1, 1});
        EXPECT_EQ(decodedHeader(st.out.data(), st.info.ulStreamSize), want) << s.type << " " << s.sampling;
    }
}

TEST(JpegStream, FailuresKeepTheSizeAndTheBuffer) {
    Bytes px = picture(64, 64, 1), noise = tt::noise(64, 64, 5).px;
    const std::tuple<int, int, int, Bytes*> failing[] = {{8, 0, 0, &px}, {0, 8, 1, &px},  // empty: libjpeg errors
                                                         {8, 8, 0, &px},                   // the headers alone do not fit
                                                         {64, 64, 0, &noise}};             // noise at quality 100 is larger
    for (auto [w, h, type, pixels] : failing) {
        Stream st = make(*pixels, uint16_t(w), uint16_t(h), Settings{type, w == 64 ? 100 : 75});
        EXPECT_EQ((Ints{st.status, st.info.ulStreamSize, st.out.intact()}), (Ints{11, 777, 1})) << w << "x" << h;
    }
    ImgTavrin img{px.data(), 8, 8, 30000, 30000, 0}, noPixels{nullptr, 8, 8, 30000, 30000, 0};
    uint8_t out[2000];
    strBgImgInfo info{5, out};
    EXPECT_EQ((Ints{Tavrin_MakeJPGStream(nullptr, &img, 75, 0, 0), Tavrin_MakeJPGStream(&info, nullptr, 75, 0, 0),
                    Tavrin_MakeJPGStream(&info, &noPixels, 75, 0, 0), info.ulStreamSize}), (Ints{18, 18, 18, 5}));
}

TEST(JpegMemoryDest, ExactCapacityFitsAnyShorterIsAnError) {
    Bytes px = picture(64, 64, 1);
    const Bytes whole = reference(px, 64, 64, Settings{});
    for (size_t capacity = whole.size() - 300; capacity <= whole.size() + 1; ++capacity) {  // overflows in and past the spill
        tt::Guarded buf(capacity);
        auto into = [&](jpeg_compress_struct& c) { jpeg_memory_dest(&c, buf.data(), uint32_t(capacity)); };
        const int status = compress(px, 64, 64, Settings{}, into);
        EXPECT_EQ(status, capacity < whole.size() ? 11 : 0) << capacity;
        EXPECT_TRUE(buf.intact() && (status != 0 || std::equal(whole.begin(), whole.end(), buf.data()))) << capacity;
    }
    for (uint8_t* buffer : {static_cast<uint8_t*>(nullptr), px.data()})  // no buffer or no room
        EXPECT_EQ(compress(px, 64, 64, {}, [&](jpeg_compress_struct& c) { jpeg_memory_dest(&c, buffer, buffer ? 0 : 500); }), 11);
}

TEST(Flate, ZlibDecodesItAtTheDefaultLevelAndFailuresKeepTheSize) {
    tt::Bytes source(50000);
    for (bool compressible : {true, false}) {
        for (size_t i = 0; i < source.size(); ++i) source[i] = uint8_t(compressible ? i / 64 : tt::hash(i));
        uLongf capacity = compressBound(source.size()), backSize = source.size();
        tt::Guarded out(capacity);
        tt::Bytes back(source.size()), expected(capacity);
        strBgImgInfo info{uint32_t(source.size()), out.data()};
        ASSERT_EQ(Tavrin_jpgToflate(&info, source.data(), capacity), 0);
        ASSERT_EQ(uncompress(back.data(), &backSize, out.data(), info.ulStreamSize), Z_OK);
        ASSERT_EQ(compress2(expected.data(), &capacity, source.data(), source.size(), Z_DEFAULT_COMPRESSION), Z_OK);
        EXPECT_EQ(back, source);
        EXPECT_EQ(tt::Bytes(out.data(), out.data() + info.ulStreamSize), tt::Bytes(expected.data(), expected.data() + capacity));
        EXPECT_TRUE(out.intact());
    }
    tt::Guarded small(1000);
    strBgImgInfo info{uint32_t(source.size()), small.data()}, empty{0, small.data()}, noOutput{4, nullptr};
    EXPECT_EQ((tt::Ints{Tavrin_jpgToflate(&info, source.data(), 1000), Tavrin_jpgToflate(&info, source.data(), 0),
                        Tavrin_jpgToflate(&info, nullptr, 1000), Tavrin_jpgToflate(nullptr, source.data(), 1000),
                        Tavrin_jpgToflate(&noOutput, source.data(), 1000), info.ulStreamSize, small.intact(),
                        Tavrin_jpgToflate(&empty, nullptr, 16), empty.ulStreamSize}),
              (tt::Ints{19, 19, 19, 19, 19, 50000, 1, 0, 8}));  // nothing to wrap: the minimal stream
}

}  // namespace
