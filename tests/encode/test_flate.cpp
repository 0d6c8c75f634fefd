// Tavrin_jpgToflate: zlib's uncompress gives the source back; failures leave
// the size alone.
#include <TavrinEncode.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <vector>

#include "encode_support.h"

namespace {

std::vector<uint8_t> sample(size_t n, bool compressible) {
    std::vector<uint8_t> v(n);
    encode_test::Random rnd(5);
    for (size_t i = 0; i < n; ++i) v[i] = compressible ? uint8_t(i / 64) : uint8_t(rnd.next());
    return v;
}

TEST(Flate, RoundTripWithCompressBoundCapacity) {
    for (bool compressible : {true, false}) {
        auto source = sample(50000, compressible);
        const unsigned long capacity = compressBound(source.size());
        std::vector<uint8_t> out(capacity);
        strBgImgInfo info{uint32_t(source.size()), out.data()};
        ASSERT_EQ(Tavrin_jpgToflate(&info, source.data(), capacity), 0);
        EXPECT_LE(info.ulStreamSize, capacity);
        EXPECT_EQ(out[0], 0x78);  // zlib header
        std::vector<uint8_t> back(source.size());
        uLongf backSize = back.size();
        ASSERT_EQ(uncompress(back.data(), &backSize, out.data(), info.ulStreamSize), Z_OK);
        EXPECT_EQ(backSize, source.size());
        EXPECT_EQ(back, source);
    }
}

TEST(Flate, MatchesZlibAtTheDefaultLevel) {
    auto source = sample(10000, true);
    std::vector<uint8_t> out(20000), expected(20000);
    strBgImgInfo info{uint32_t(source.size()), out.data()};
    ASSERT_EQ(Tavrin_jpgToflate(&info, source.data(), out.size()), 0);
    uLongf size = expected.size();
    ASSERT_EQ(compress2(expected.data(), &size, source.data(), source.size(), Z_DEFAULT_COMPRESSION), Z_OK);
    expected.resize(size);
    out.resize(info.ulStreamSize);
    EXPECT_EQ(out, expected);
}

TEST(Flate, TooSmallCapacityGivesNineteenAndKeepsTheSize) {
    auto source = sample(5000, false);
    std::vector<uint8_t> out(6000, 0xEE);
    strBgImgInfo info{uint32_t(source.size()), out.data()};
    EXPECT_EQ(Tavrin_jpgToflate(&info, source.data(), 1000), 19);
    EXPECT_EQ(info.ulStreamSize, source.size());
    for (size_t i = 1000; i < out.size(); ++i) ASSERT_EQ(out[i], 0xEE);
    EXPECT_EQ(Tavrin_jpgToflate(&info, source.data(), 0), 19);
    EXPECT_EQ(info.ulStreamSize, source.size());
}

TEST(Flate, EmptySourceIsTheMinimalStream) {
    uint8_t out[16];
    uint8_t dummy = 0;
    strBgImgInfo info{0, out};
    ASSERT_EQ(Tavrin_jpgToflate(&info, &dummy, sizeof out), 0);
    EXPECT_EQ(info.ulStreamSize, 8u);
    info.ulStreamSize = 0;
    EXPECT_EQ(Tavrin_jpgToflate(&info, nullptr, sizeof out), 0);
}

TEST(Flate, NullPointersGiveNineteen) {
    uint8_t src[4] = {1, 2, 3, 4}, out[64];
    strBgImgInfo info{4, nullptr};
    EXPECT_EQ(Tavrin_jpgToflate(nullptr, src, 64), 19);
    EXPECT_EQ(Tavrin_jpgToflate(&info, src, 64), 19);
    info.pucStreamData = out;
    EXPECT_EQ(Tavrin_jpgToflate(&info, nullptr, 64), 19);
    EXPECT_EQ(info.ulStreamSize, 4u);
}

}  // namespace
