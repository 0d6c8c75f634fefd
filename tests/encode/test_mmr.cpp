// Tavrin_bwToMmr: the bytes decode back to the image with libtiff's T.6
// decoder, equal the strip of a TIFF file written with the same fields, and
// never pass the caller's capacity.
#include <TavrinEncode.h>
#include <TavrinFom.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <tiffio.h>

#include <cstring>
#include <string>
#include <vector>

#include "encode_support.h"
#include "g4_fields.h"

namespace {

using encode_test::Content;
using encode_test::setG4Fields;

constexpr const char* kReservedName = "outFile_bwToMmr";
constexpr uint8_t kGuard = 0xA5;

struct Encoded {
    int status = -1;
    strFgImgInfo info{};
    std::vector<uint8_t> buffer;  // capacity bytes + 64 guard bytes
};

Encoded encode(std::vector<uint8_t>& image, uint16_t width, uint16_t height, size_t capacity,
               uint16_t xReso = 30000, uint16_t yReso = 30000) {
    Encoded e;
    e.buffer.assign(capacity + 64, kGuard);
    e.info.lMmrSize = 12345;
    e.info.pucMmrData = e.buffer.data();
    e.info.usWidth = width;
    e.info.usHeight = height;
    e.info.usXReso = xReso;
    e.info.usYReso = yReso;
    encode_test::QuietTiff quiet;
    e.status = Tavrin_bwToMmr(&e.info, image.data(), capacity);
    return e;
}

bool guardIntact(const Encoded& e, size_t capacity) {
    for (size_t i = capacity; i < e.buffer.size(); ++i)
        if (e.buffer[i] != kGuard) return false;
    return true;
}

// Wraps raw T.6 bytes in a TIFF file and lets libtiff decode them.
std::vector<uint8_t> decodeWithLibtiff(const uint8_t* mmr, size_t size, uint32_t width,
                                       uint32_t height, const std::string& path) {
    TIFF* out = TIFFOpen(path.c_str(), "w");
    EXPECT_NE(out, nullptr);
    if (out == nullptr) return {};
    setG4Fields(out, width, height);
    TIFFWriteRawStrip(out, 0, const_cast<uint8_t*>(mmr), tmsize_t(size));
    TIFFClose(out);
    TIFF* in = TIFFOpen(path.c_str(), "r");
    EXPECT_NE(in, nullptr);
    if (in == nullptr) return {};
    std::vector<uint8_t> pixels(encode_test::packedRowBytes(width) * height);
    tmsize_t got = TIFFReadEncodedStrip(in, 0, pixels.data(), tmsize_t(pixels.size()));
    EXPECT_EQ(got, tmsize_t(pixels.size()));
    TIFFClose(in);
    return pixels;
}

// The strip of a TIFF file that libtiff writes itself with the same fields.
std::vector<uint8_t> referenceStrip(std::vector<uint8_t>& image, uint32_t width, uint32_t height,
                                    const std::string& path) {
    TIFF* out = TIFFOpen(path.c_str(), "w");
    EXPECT_NE(out, nullptr);
    if (out == nullptr) return {};
    setG4Fields(out, width, height);
    TIFFWriteEncodedStrip(out, 0, image.data(), tmsize_t(image.size()));
    TIFFClose(out);
    TIFF* in = TIFFOpen(path.c_str(), "r");
    if (in == nullptr) return {};
    uint64_t* counts = nullptr;
    TIFFGetField(in, TIFFTAG_STRIPBYTECOUNTS, &counts);
    std::vector<uint8_t> strip(counts ? counts[0] : 0);
    TIFFReadRawStrip(in, 0, strip.data(), tmsize_t(strip.size()));
    TIFFClose(in);
    return strip;
}

// Compares packed rows, ignoring the padding bits after the last pixel.
bool samePixels(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b, uint32_t width,
                uint32_t height) {
    const size_t row = encode_test::packedRowBytes(width);
    const uint8_t lastMask = uint8_t(0xFF00u >> (width % 8 ? width % 8 : 8));
    for (uint32_t y = 0; y < height; ++y)
        for (size_t i = 0; i < row; ++i) {
            const uint8_t mask = i + 1 == row ? lastMask : 0xFF;
            if ((a[y * row + i] & mask) != (b[y * row + i] & mask)) return false;
        }
    return true;
}

class MmrRoundTrip
    : public ::testing::TestWithParam<std::tuple<uint16_t, Content>> {};

TEST_P(MmrRoundTrip, DecodesBackAndEqualsLibtiffsOwnStrip) {
    const uint16_t width = std::get<0>(GetParam());
    const Content content = std::get<1>(GetParam());
    const uint16_t height = width > 1000 ? 160 : 37;
    auto image = encode_test::bilevelPage(width, height, content, width);
    const size_t capacity = image.size() * 4 + 4096;  // random pixels expand
    Encoded e = encode(image, width, height, capacity);
    ASSERT_EQ(e.status, 0);
    ASSERT_GT(e.info.lMmrSize, 0);
    EXPECT_TRUE(guardIntact(e, capacity));

    const std::string dir = encode_test::scratchDir("mmr");
    const std::string tag = std::to_string(width) + encode_test::contentName(content);
    auto decoded = decodeWithLibtiff(e.buffer.data(), size_t(e.info.lMmrSize), width, height,
                                     dir + "/wrap" + tag + ".tif");
    EXPECT_TRUE(samePixels(decoded, image, width, height));

    auto strip = referenceStrip(image, width, height, dir + "/ref" + tag + ".tif");
    ASSERT_EQ(strip.size(), size_t(e.info.lMmrSize));
    EXPECT_EQ(std::memcmp(strip.data(), e.buffer.data(), strip.size()), 0);
}

INSTANTIATE_TEST_SUITE_P(
    WidthsAndContents, MmrRoundTrip,
    ::testing::Combine(::testing::Values<uint16_t>(13, 8, 1, 2481),
                       ::testing::Values(Content::Blank, Content::Black, Content::TextLike,
                                         Content::Random)),
    [](const auto& info) {
        return "w" + std::to_string(std::get<0>(info.param)) + "_" +
               encode_test::contentName(std::get<1>(info.param));
    });

TEST(Mmr, ExactCapacitySucceedsAndOneShortFails) {
    auto image = encode_test::bilevelPage(300, 200, Content::TextLike);
    Encoded roomy = encode(image, 300, 200, 100000);
    ASSERT_EQ(roomy.status, 0);
    const size_t coded = size_t(roomy.info.lMmrSize);

    Encoded exact = encode(image, 300, 200, coded);
    EXPECT_EQ(exact.status, 0);
    EXPECT_EQ(size_t(exact.info.lMmrSize), coded);
    EXPECT_EQ(std::memcmp(exact.buffer.data(), roomy.buffer.data(), coded), 0);
    EXPECT_TRUE(guardIntact(exact, coded));

    Encoded short1 = encode(image, 300, 200, coded - 1);
    EXPECT_EQ(short1.status, 20);
    EXPECT_EQ(short1.info.lMmrSize, 0);
    EXPECT_TRUE(guardIntact(short1, coded - 1));

    Encoded none = encode(image, 300, 200, 0);
    EXPECT_EQ(none.status, 20);
    EXPECT_EQ(none.info.lMmrSize, 0);
    EXPECT_TRUE(guardIntact(none, 0));

    // The name is free again after every call, failed or not.
    EXPECT_EQ(fom_isOnMemory(kReservedName), 0);
    Encoded again = encode(image, 300, 200, coded);
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(size_t(again.info.lMmrSize), coded);
}

TEST(Mmr, CallersOwnRegistrationSurvivesTheFailedCall) {
    uint8_t callerBuffer[32] = {1, 2, 3};
    ASSERT_EQ(fom_set(kReservedName, O_RDWR, callerBuffer, sizeof callerBuffer, 3, 0, nullptr), 0);
    auto image = encode_test::bilevelPage(64, 16, Content::TextLike);
    Encoded e = encode(image, 64, 16, 4096);
    EXPECT_EQ(e.status, 20);
    EXPECT_EQ(e.info.lMmrSize, 0);
    EXPECT_EQ(fom_isOnMemory(kReservedName), 1);
    EXPECT_EQ(fom_getWritedBytes(kReservedName), 3);  // the caller's file, unchanged
    EXPECT_EQ(fom_unset(kReservedName), 0);
    EXPECT_EQ(encode(image, 64, 16, 4096).status, 0);
}

TEST(Mmr, ResolutionAndPaddingBitsDoNotChangeTheBytes) {
    auto image = encode_test::bilevelPage(13, 40, Content::Random);
    Encoded base = encode(image, 13, 40, 4096, 30000, 20000);
    ASSERT_EQ(base.status, 0);
    Encoded swapped = encode(image, 13, 40, 4096, 20000, 30000);
    ASSERT_EQ(swapped.status, 0);
    EXPECT_EQ(swapped.info.lMmrSize, base.info.lMmrSize);
    EXPECT_EQ(swapped.buffer, base.buffer);
    // Width 13 uses 2 bytes per row; the 3 padding bits are not pixels.
    for (size_t row = 0; row < 40; ++row) image[row * 2 + 1] |= 0x07;
    Encoded padded = encode(image, 13, 40, 4096, 30000, 20000);
    ASSERT_EQ(padded.status, 0);
    EXPECT_EQ(padded.buffer, base.buffer);
}

TEST(Mmr, BadArgumentsGiveTwenty) {
    auto image = encode_test::bilevelPage(16, 16, Content::TextLike);
    EXPECT_EQ(Tavrin_bwToMmr(nullptr, image.data(), 100), 20);
    Encoded noHeight = encode(image, 16, 0, 100);
    EXPECT_EQ(noHeight.status, 20);
    EXPECT_EQ(noHeight.info.lMmrSize, 0);
    strFgImgInfo info{};
    info.usWidth = 16;
    info.usHeight = 16;
    info.lMmrSize = 9;
    EXPECT_EQ(Tavrin_bwToMmr(&info, image.data(), 100), 20);  // no output buffer
    EXPECT_EQ(info.lMmrSize, 0);
    uint8_t out[100];
    info.pucMmrData = out;
    EXPECT_EQ(Tavrin_bwToMmr(&info, nullptr, 100), 20);  // no image
    EXPECT_EQ(fom_isOnMemory(kReservedName), 0);
}

}  // namespace
