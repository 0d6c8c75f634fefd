// Tavrin_MakeJPGStream, jpeg_memory_dest and JpegErrorExit: the streams are
// what plain libjpeg makes with the same settings, carry the expected
// tables, sampling and density, decode close to the source, and never pass
// the capacity.
#include <TavrinEncode.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "encode_support.h"
#include "jpeg_reference.h"

namespace {

using encode_test::JpegSettings;

constexpr uint8_t kGuard = 0x5C;
constexpr size_t kGuardBytes = 4096;

struct Stream {
    int status = -1;
    strBgImgInfo info{};
    std::vector<uint8_t> buffer;  // capacity (w x h x components) + guard bytes
    size_t capacity = 0;
    std::vector<uint8_t> bytes() const {
        return {buffer.begin(), buffer.begin() + info.ulStreamSize};
    }
    bool guardIntact() const {
        for (size_t i = capacity; i < buffer.size(); ++i)
            if (buffer[i] != kGuard) return false;
        return true;
    }
};

Stream makeStream(std::vector<uint8_t>& pixels, uint16_t width, uint16_t height,
                  const JpegSettings& s) {
    Stream out;
    ImgTavrin img{pixels.data(), width, height, s.xReso, s.yReso, uint8_t(s.type)};
    out.capacity = size_t(width) * height * ((s.type == 1 || s.type == 2) ? 3 : 1);
    out.buffer.assign(out.capacity + kGuardBytes, kGuard);
    out.info.ulStreamSize = 777;
    out.info.pucStreamData = out.buffer.data();
    out.status = Tavrin_MakeJPGStream(&out.info, &img, s.quality, s.chromaOffset, s.sampling);
    return out;
}

double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i) sum += double(a[i] - b[i]) * (a[i] - b[i]);
    return 10 * std::log10(255.0 * 255.0 * a.size() / (sum > 0 ? sum : 1));
}

TEST(JpegStream, GrayIsPlainLibjpegAtThatQuality) {
    auto pixels = encode_test::continuousTone(96, 80, 1);
    JpegSettings s;
    s.quality = 75;
    Stream st = makeStream(pixels, 96, 80, s);
    ASSERT_EQ(st.status, 0);
    EXPECT_EQ(st.bytes(), encode_test::referenceJpeg(pixels.data(), 96, 80, s));
    EXPECT_TRUE(st.guardIntact());

    auto d = encode_test::decodeJpeg(st.buffer.data(), st.info.ulStreamSize);
    unsigned standard[2][64];
    encode_test::standardTables(75, standard);
    EXPECT_EQ(d.components, 1);
    EXPECT_EQ(d.colourSpace, JCS_GRAYSCALE);
    ASSERT_TRUE(d.hasTable[0]);
    EXPECT_EQ(std::memcmp(d.quant[0], standard[0], sizeof standard[0]), 0);
    EXPECT_EQ(d.hSamp[0], 1);
    EXPECT_EQ(d.vSamp[0], 1);
    EXPECT_GT(psnr(d.pixels, pixels), 30.0);
}

TEST(JpegStream, ColourTablesFollowTheirOwnQualities) {
    auto pixels = encode_test::continuousTone(64, 48, 3);
    unsigned q75[2][64], q50[2][64];
    encode_test::standardTables(75, q75);
    encode_test::standardTables(50, q50);
    for (int type : {1, 2}) {
        JpegSettings s;
        s.type = type;
        s.quality = 75;
        Stream same = makeStream(pixels, 64, 48, s);
        ASSERT_EQ(same.status, 0);
        EXPECT_EQ(same.bytes(), encode_test::referenceJpeg(pixels.data(), 64, 48, s));
        auto d = encode_test::decodeJpeg(same.buffer.data(), same.info.ulStreamSize);
        EXPECT_EQ(d.components, 3);
        EXPECT_EQ(d.colourSpace, JCS_YCbCr);
        EXPECT_EQ(std::memcmp(d.quant[0], q75[0], sizeof q75[0]), 0);
        EXPECT_EQ(std::memcmp(d.quant[1], q75[1], sizeof q75[1]), 0);
        EXPECT_EQ(d.quantSlot[0], 0);
        EXPECT_EQ(d.quantSlot[1], 1);
        EXPECT_EQ(d.quantSlot[2], 1);
        EXPECT_GT(psnr(d.pixels, pixels), 25.0);  // 4:2:0 of noisy colour

        s.chromaOffset = -25;  // chrominance at quality 50
        Stream lower = makeStream(pixels, 64, 48, s);
        ASSERT_EQ(lower.status, 0);
        auto l = encode_test::decodeJpeg(lower.buffer.data(), lower.info.ulStreamSize);
        EXPECT_EQ(std::memcmp(l.quant[0], q75[0], sizeof q75[0]), 0);
        EXPECT_EQ(std::memcmp(l.quant[1], q50[1], sizeof q50[1]), 0);
    }
}

TEST(JpegStream, SamplingModeSetsTheFirstComponentOnly) {
    auto pixels = encode_test::continuousTone(40, 24, 3);
    struct Case { int mode, h, v; };
    const Case cases[] = {{0, 2, 2}, {1, 2, 2}, {2, 2, 1}, {3, 2, 2}, {4, 2, 1},
                          {5, 1, 1}, {6, 2, 2}, {-1, 2, 2}, {1000, 2, 2}};
    for (const Case& c : cases) {
        JpegSettings s;
        s.type = 1;
        s.sampling = c.mode;
        Stream st = makeStream(pixels, 40, 24, s);
        ASSERT_EQ(st.status, 0) << c.mode;
        auto d = encode_test::decodeJpeg(st.buffer.data(), st.info.ulStreamSize);
        EXPECT_EQ(d.hSamp[0], c.h) << c.mode;
        EXPECT_EQ(d.vSamp[0], c.v) << c.mode;
        for (int k = 1; k < 3; ++k) {
            EXPECT_EQ(d.hSamp[k], 1);
            EXPECT_EQ(d.vSamp[k], 1);
        }
    }
}

TEST(JpegStream, OtherTypesAreOneGrayComponentOnTheColourPath) {
    auto pixels = encode_test::continuousTone(32, 32, 1);
    for (int type : {3, 7}) {
        JpegSettings s;
        s.type = type;
        s.quality = 60;
        s.chromaOffset = -40;
        s.sampling = 2;
        Stream st = makeStream(pixels, 32, 32, s);
        ASSERT_EQ(st.status, 0) << type;
        EXPECT_EQ(st.capacity, 32u * 32u);
        EXPECT_EQ(st.bytes(), encode_test::referenceJpeg(pixels.data(), 32, 32, s));
        auto d = encode_test::decodeJpeg(st.buffer.data(), st.info.ulStreamSize);
        EXPECT_EQ(d.components, 1);
        EXPECT_EQ(d.colourSpace, JCS_GRAYSCALE);
        EXPECT_EQ(d.hSamp[0], 2);
        EXPECT_EQ(d.vSamp[0], 1);
        EXPECT_FALSE(d.hasTable[1]);  // defined, but no component refers to it
        EXPECT_EQ(d.pixels.size(), pixels.size());
    }
}

TEST(JpegStream, DensityIsWholeDotsPerInch) {
    auto pixels = encode_test::continuousTone(64, 64, 1);
    JpegSettings s;
    s.xReso = 30000;
    s.yReso = 29999;
    Stream st = makeStream(pixels, 64, 64, s);
    ASSERT_EQ(st.status, 0);
    auto d = encode_test::decodeJpeg(st.buffer.data(), st.info.ulStreamSize);
    EXPECT_TRUE(d.jfif);
    EXPECT_EQ(d.densityUnit, 1);
    EXPECT_EQ(d.xDensity, 300);
    EXPECT_EQ(d.yDensity, 299);
}

TEST(JpegStream, EmptyImagesAreLibjpegErrors) {
    std::vector<uint8_t> pixels(64, 1);
    for (auto wh : {std::pair<uint16_t, uint16_t>{8, 0}, {0, 8}}) {
        for (int type : {0, 1}) {
            JpegSettings s;
            s.type = type;
            Stream st = makeStream(pixels, wh.first, wh.second, s);
            EXPECT_EQ(st.status, 11);
            EXPECT_EQ(st.info.ulStreamSize, 777u);  // unchanged
        }
    }
}

TEST(JpegStream, OtherFailuresAreEighteen) {
    std::vector<uint8_t> pixels(64);
    ImgTavrin img{pixels.data(), 8, 8, 30000, 30000, 0};
    strBgImgInfo info{5, pixels.data()};
    EXPECT_EQ(Tavrin_MakeJPGStream(nullptr, &img, 75, 0, 0), 18);
    EXPECT_EQ(Tavrin_MakeJPGStream(&info, nullptr, 75, 0, 0), 18);
    std::vector<uint8_t> out(2000);
    info.pucStreamData = out.data();
    ImgTavrin noPixels{nullptr, 8, 8, 30000, 30000, 0};
    EXPECT_EQ(Tavrin_MakeJPGStream(&info, &noPixels, 75, 0, 0), 18);
    EXPECT_EQ(info.ulStreamSize, 5u);
}

TEST(JpegStream, StreamLongerThanTheBufferFailsWithoutWritingPastIt) {
    // 8 x 8 gray: 64 bytes of room, the headers alone take hundreds.
    auto pixels = encode_test::continuousTone(8, 8, 1);
    Stream tiny = makeStream(pixels, 8, 8, JpegSettings{});
    EXPECT_EQ(tiny.status, 11);
    EXPECT_EQ(tiny.info.ulStreamSize, 777u);
    EXPECT_TRUE(tiny.guardIntact());
    // Noise at quality 100 is larger than the raw pixels.
    auto noise = encode_test::bilevelPage(64 * 8, 64, encode_test::Content::Random);
    JpegSettings q100;
    q100.quality = 100;
    Stream big = makeStream(noise, 64, 64, q100);
    EXPECT_EQ(big.status, 11);
    EXPECT_TRUE(big.guardIntact());
    EXPECT_EQ(std::memcmp(big.buffer.data(), "\xFF\xD8", 2), 0);  // partial stream
}

// Searches images whose stream is exactly as long as the buffer (w x h) and
// one byte longer: pixels 0..n-1 noisy, the rest flat.
TEST(JpegStream, StreamThatExactlyFillsTheBufferSucceeds) {
    const uint16_t w = 32, h = 32;
    const size_t capacity = size_t(w) * h;
    encode_test::Random rnd(11);
    std::vector<uint8_t> noise(capacity);
    for (auto& v : noise) v = uint8_t(rnd.next());
    bool exactSeen = false, overSeen = false;
    for (int quality = 100; quality >= 90 && !(exactSeen && overSeen); --quality) {
        JpegSettings s;
        s.quality = quality;
        for (size_t n = 0; n <= capacity && !(exactSeen && overSeen); n += 1) {
            std::vector<uint8_t> px(capacity, 128);
            std::copy(noise.begin(), noise.begin() + n, px.begin());
            const size_t size = encode_test::referenceJpeg(px.data(), w, h, s).size();
            if (size == capacity && !exactSeen) {
                Stream st = makeStream(px, w, h, s);
                EXPECT_EQ(st.status, 0);
                EXPECT_EQ(st.info.ulStreamSize, capacity);
                EXPECT_EQ(st.bytes(), encode_test::referenceJpeg(px.data(), w, h, s));
                EXPECT_TRUE(st.guardIntact());
                exactSeen = true;
            } else if (size == capacity + 1 && !overSeen) {
                Stream st = makeStream(px, w, h, s);
                EXPECT_EQ(st.status, 11);
                EXPECT_EQ(st.info.ulStreamSize, 777u);
                EXPECT_TRUE(st.guardIntact());
                overSeen = true;
            }
        }
    }
    EXPECT_TRUE(exactSeen);
    EXPECT_TRUE(overSeen);
}

// The destination on a compression object of the test's own: exact fit and
// one byte short, with guard bytes after the buffer.
size_t compressInto(uint8_t* buffer, uint32_t capacity, const std::vector<uint8_t>& px,
                    uint32_t w, uint32_t h, int* status) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    err.error_exit = JpegErrorExit;
    jpeg_create_compress(&c);
    size_t size = 0;
    *status = 0;
    try {
        jpeg_memory_dest(&c, buffer, capacity);
        c.image_width = w;
        c.image_height = h;
        c.input_components = 1;
        c.in_color_space = JCS_GRAYSCALE;
        jpeg_set_defaults(&c);
        jpeg_start_compress(&c, TRUE);
        while (c.next_scanline < h) {
            JSAMPROW r = const_cast<uint8_t*>(px.data()) + c.next_scanline * w;
            jpeg_write_scanlines(&c, &r, 1);
        }
        jpeg_finish_compress(&c);
        size = c.dest->next_output_byte - buffer;
        EXPECT_EQ(c.dest->free_in_buffer, capacity - size);
    } catch (int s) {
        *status = s;
    }
    jpeg_destroy_compress(&c);
    return size;
}

TEST(JpegMemoryDest, ExactCapacityAndOneShort) {
    auto px = encode_test::continuousTone(120, 90, 1);
    std::vector<uint8_t> roomy(100000);
    int status;
    const size_t size = compressInto(roomy.data(), uint32_t(roomy.size()), px, 120, 90, &status);
    ASSERT_EQ(status, 0);
    for (size_t capacity : {size, size - 1, size - 300, size_t(1), size_t(0)}) {
        std::vector<uint8_t> buf(capacity + 1024, kGuard);
        const size_t got = compressInto(buf.data(), uint32_t(capacity), px, 120, 90, &status);
        for (size_t i = capacity; i < buf.size(); ++i) ASSERT_EQ(buf[i], kGuard) << capacity;
        if (capacity == size) {
            EXPECT_EQ(status, 0);
            EXPECT_EQ(got, size);
            EXPECT_EQ(std::memcmp(buf.data(), roomy.data(), size), 0);
        } else {
            EXPECT_EQ(status, 11) << capacity;
        }
    }
    // No buffer at all: no room, nothing written.
    compressInto(nullptr, 500, px, 120, 90, &status);
    EXPECT_EQ(status, 11);
}

TEST(JpegMemoryDest, ReusesItsOwnRecord) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    uint8_t a[16], b[16];
    jpeg_memory_dest(&c, a, sizeof a);
    jpeg_destination_mgr* first = c.dest;
    jpeg_memory_dest(&c, b, sizeof b);
    EXPECT_EQ(c.dest, first);
    (*c.dest->init_destination)(&c);
    EXPECT_EQ(c.dest->next_output_byte, b);
    EXPECT_EQ(c.dest->free_in_buffer, sizeof b);
    jpeg_destroy_compress(&c);
}

TEST(JpegErrorExit, ThrowsTheIntegerForTheObjectKind) {
    jpeg_compress_struct c{};
    c.is_decompressor = FALSE;
    jpeg_decompress_struct d{};
    d.is_decompressor = TRUE;
    int thrown = 0;
    try { JpegErrorExit(reinterpret_cast<j_common_ptr>(&c)); } catch (int s) { thrown = s; }
    EXPECT_EQ(thrown, 11);
    try { JpegErrorExit(reinterpret_cast<j_common_ptr>(&d)); } catch (int s) { thrown = s; }
    EXPECT_EQ(thrown, 10);
}

}  // namespace
