// Outputs read back with libtiff: MMR bytes decode to the image and equal the
// strip libtiff codes itself, within the caller's capacity; TIFF files have
// the fields, 128-row strips and pixels expected, or are not written.
#include <fcntl.h>

#include <cstring>

#include "encode/g4_fields.h"
#include "support.h"

namespace {

using tt::Bytes;
using tt::Ints;

constexpr const char* kReservedName = "outFile_bwToMmr";
enum class Content { Blank, Black, Strokes, Noise };

// A packed page (1 = black, MSB first, padding bits 0); strokes are short
// runs along rows and columns, as text gives.
Bytes bilevelPage(uint32_t width, uint32_t height, Content content) {
    const size_t stride = (width + 7) / 8;
    Bytes packed(stride * height, 0);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const bool stroke = tt::hash(x / 5 + 997 * (y / 3) + width) % 5 == 0 && (x % 9 < 3 || y % 11 < 2);
            if (content == Content::Black || (content == Content::Noise && tt::hash(x + 65536 * y) % 2) ||
                (content == Content::Strokes && stroke))
                packed[y * stride + x / 8] |= uint8_t(0x80u >> (x % 8));
        }
    return packed;
}

struct Encoded {
    int status;
    strFgImgInfo info;
    tt::Guarded out;
};
Encoded encode(Bytes& image, uint16_t width, uint16_t height, size_t capacity, uint16_t yReso = 30000) {
    Encoded e{-1, {}, tt::Guarded(capacity)};
    e.info = strFgImgInfo{12345, e.out.data(), width, height, 30000, yReso, 0, 0, {}};
    TIFFErrorHandler quiet = TIFFSetErrorHandler(nullptr);
    e.status = Tavrin_bwToMmr(&e.info, image.data(), capacity);
    TIFFSetErrorHandler(quiet);
    return e;
}

class MmrRoundTrip : public ::testing::TestWithParam<std::tuple<uint16_t, Content>> {};

TEST_P(MmrRoundTrip, DecodesBackAndEqualsLibtiffsOwnStrip) {
    const auto [width, content] = GetParam();
    const uint16_t height = width > 1000 ? 160 : 37;
    const size_t stride = (width + 7) / 8;
    Bytes image = bilevelPage(width, height, content);
    Encoded e = encode(image, width, height, image.size() * 4 + 4096);  // noise expands
    ASSERT_EQ(e.status, 0);
    EXPECT_TRUE(e.info.lMmrSize > 0 && e.out.intact());
    // A one-strip TIFF around the bytes, and one libtiff codes from the pixels.
    const std::string dir = tt::scratchDir("mmr");
    for (bool raw : {true, false}) {
        TIFF* tif = TIFFOpen((dir + "/g4.tif").c_str(), "w");
        encode_test::setG4Fields(tif, width, height);
        if (raw) TIFFWriteRawStrip(tif, 0, e.out.data(), e.info.lMmrSize);
        else TIFFWriteEncodedStrip(tif, 0, image.data(), tmsize_t(image.size()));
        TIFFClose(tif);
        tif = TIFFOpen((dir + "/g4.tif").c_str(), "r");
        Bytes decoded(image.size()), strip(TIFFRawStripSize(tif, 0));
        TIFFReadEncodedStrip(tif, 0, decoded.data(), tmsize_t(decoded.size()));
        TIFFReadRawStrip(tif, 0, strip.data(), tmsize_t(strip.size()));
        TIFFClose(tif);
        for (size_t i = stride - 1; i < decoded.size(); i += stride) decoded[i] &= uint8_t(0xFF00u >> ((width - 1) % 8 + 1));
        // Padding bits are no pixels.
        EXPECT_EQ(raw ? decoded : strip, raw ? image : Bytes(e.out.data(), e.out.data() + e.info.lMmrSize));
    }
}

INSTANTIATE_TEST_SUITE_P(WidthsAndContents, MmrRoundTrip,
                         ::testing::Combine(::testing::Values<uint16_t>(1, 8, 13, 2481),
                                            ::testing::Values(Content::Blank, Content::Black, Content::Strokes, Content::Noise)));

TEST(Mmr, ExactCapacitySucceedsOneShortFailsAndTheNameIsFreed) {
    Bytes image = bilevelPage(300, 200, Content::Strokes);
    const Encoded roomy = encode(image, 300, 200, 100000);
    ASSERT_EQ(roomy.status, 0);
    const size_t coded = size_t(roomy.info.lMmrSize);
    for (size_t capacity : {coded, coded - 1, size_t(0), coded}) {
        Encoded e = encode(image, 300, 200, capacity);
        EXPECT_EQ((Ints{e.status, e.info.lMmrSize, e.out.intact(), fom_isOnMemory(kReservedName)}),
                  (Ints{capacity == coded ? 0 : 20, capacity == coded ? long(coded) : 0, 1, 0})) << capacity;
        EXPECT_TRUE(e.status != 0 || std::memcmp(e.out.data(), roomy.out.bytes.data(), coded) == 0);
    }
    // The resolution and the padding bits do not change the bytes.
    for (size_t row = 0; row < 200; ++row) image[row * 38 + 37] |= 0x0F;  // width 300: 4 padding bits
    const Encoded padded = encode(image, 300, 200, coded, 7500);
    EXPECT_TRUE(padded.status == 0 && std::memcmp(padded.out.bytes.data(), roomy.out.bytes.data(), coded) == 0);
}

TEST(Mmr, RefusalsGiveTwentyAndKeepTheCallersName) {
    uint8_t callerBuffer[32] = {1, 2, 3}, out[100];
    ASSERT_EQ(fom_set(kReservedName, O_RDWR, callerBuffer, sizeof callerBuffer, 3, 0, nullptr), 0);
    Bytes image = bilevelPage(64, 16, Content::Strokes);
    Encoded e = encode(image, 64, 16, 4096);
    EXPECT_EQ((Ints{e.status, e.info.lMmrSize, fom_getWritedBytes(kReservedName), fom_unset(kReservedName)}),
              (Ints{20, 0, 3, 0}));  // the caller's file is left as it was
    EXPECT_EQ(encode(image, 64, 16, 4096).status, 0);
    Encoded noRows = encode(image, 16, 0, 100);
    strFgImgInfo noOutput{9, nullptr, 16, 16, 30000, 30000, 0, 0, {}}, noImage{9, out, 16, 16, 30000, 30000, 0, 0, {}};
    EXPECT_EQ((Ints{noRows.status, noRows.info.lMmrSize, Tavrin_bwToMmr(nullptr, image.data(), 100),
                        Tavrin_bwToMmr(&noOutput, image.data(), 100), noOutput.lMmrSize, Tavrin_bwToMmr(&noImage, nullptr, 100),
                        noImage.lMmrSize, fom_isOnMemory(kReservedName)}), (Ints{20, 0, 20, 20, 0, 20, 0, 0}));
}

TEST(TiffWriter, FieldsStripsAndPixelsOrNoFile) {
    // libtiff warns about the legacy Deflate code, and says why it refuses.
    const TIFFErrorHandler warnings = TIFFSetWarningHandler(nullptr), errors = TIFFSetErrorHandler(nullptr);
    const std::string file = tt::scratchDir("tiffw") + "/t.tif";  // replaced each time
    const std::tuple<uint8_t, uint16_t, uint16_t, Ints> cases[] = {  // decoded bytes of each strip
        {0, 57, 300, {128 * 57, 128 * 57, 44 * 57}}, {2, 31, 129, {128 * 93, 93}}, {7, 10, 128, {128 * 30}}, {0, 10, 1, {10}}};
    for (auto& [type, w, h, strips] : cases) {
        tt::Bytes px(size_t(w) * h * (type ? 3 : 1)), read(px.size());
        for (size_t i = 0; i < px.size(); ++i) px[i] = uint8_t(tt::hash(i + type));
        ImgTavrin img{px.data(), w, h, 30000, 7500, type};
        ASSERT_EQ(Tavrin_WriteTIFF(file.c_str(), &img), 0);
        TIFF* tif = TIFFOpen(file.c_str(), "r");
        ASSERT_NE(tif, nullptr);
        uint32_t u32[3] = {};
        uint16_t u16[8] = {};
        float res[2] = {};
        char* software = nullptr;
        void* values[] = {&u32[0], &u32[1], &u32[2], &u16[0], &u16[1], &u16[2], &u16[3], &u16[4], &u16[5], &u16[6], &u16[7],
                          &res[0], &res[1], &software};
        const ttag_t tags[] = {TIFFTAG_IMAGEWIDTH, TIFFTAG_IMAGELENGTH, TIFFTAG_ROWSPERSTRIP, TIFFTAG_BITSPERSAMPLE,
                               TIFFTAG_SAMPLESPERPIXEL, TIFFTAG_COMPRESSION, TIFFTAG_PHOTOMETRIC, TIFFTAG_FILLORDER,
                               TIFFTAG_PLANARCONFIG, TIFFTAG_ORIENTATION, TIFFTAG_RESOLUTIONUNIT, TIFFTAG_XRESOLUTION,
                               TIFFTAG_YRESOLUTION, TIFFTAG_SOFTWARE};
        for (int i = 0; i < 14; ++i) EXPECT_TRUE(TIFFGetField(tif, tags[i], values[i])) << tags[i];
        EXPECT_EQ((Ints{u32[0], u32[1], u32[2], u16[0], u16[1], u16[2], u16[3], u16[4], u16[5], u16[6], u16[7]}),
                  (Ints{w, h, 128, 8, type ? 3 : 1, 32946, type ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK,
                        FILLORDER_MSB2LSB, PLANARCONFIG_CONTIG, ORIENTATION_TOPLEFT, RESUNIT_INCH}));
        EXPECT_TRUE(res[0] == 300.0f && res[1] == 75.0f && software && software == file);
        Ints sizes;
        for (uint32_t s = 0, at = 0; s < TIFFNumberOfStrips(tif); ++s)
            at += sizes.emplace_back(TIFFReadEncodedStrip(tif, s, read.data() + at, tmsize_t(read.size() - at)));
        TIFFClose(tif);
        EXPECT_TRUE(sizes == strips && read == px) << int(type);
    }

    const std::string refused = file + ".refused";
    tt::Bytes px(64 * 3, 9);
    ImgTavrin bilevel{px.data(), 8, 8, 30000, 30000, 3}, unknown{px.data(), 8, 8, 30000, 30000, 4},
        noRows{nullptr, 8, 0, 30000, 30000, 0}, noPixels{nullptr, 8, 8, 30000, 30000, 0}, gray{px.data(), 8, 8, 30000, 30000, 0};
    EXPECT_EQ((Ints{Tavrin_WriteTIFF(refused.c_str(), &bilevel), Tavrin_WriteTIFF(refused.c_str(), &unknown),
                    Tavrin_WriteTIFF(refused.c_str(), &noRows), Tavrin_WriteTIFF(refused.c_str(), &noPixels),
                    Tavrin_WriteTIFF((file + "/no/dir.tif").c_str(), &gray), Tavrin_WriteTIFF(nullptr, &gray),
                    Tavrin_WriteTIFF(refused.c_str(), nullptr)}),
              (Ints{-1, -1, -1, -1, -1, -1, -1}));  // no rows: refused before a pixel is read
    EXPECT_FALSE(tt::fileExists(refused));
    TIFFSetWarningHandler(warnings);
    TIFFSetErrorHandler(errors);
}

}  // namespace
