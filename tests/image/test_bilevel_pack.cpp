// Packing and unpacking bi-level images, checked against an independent
// per-bit reference.
#include <gtest/gtest.h>

#include <TavrinImage.h>

#include <random>
#include <vector>

namespace {

// Reference: bit (7 - x % 8) of byte x / 8 of the row is set for black (0).
std::vector<uint8_t> referencePack(const std::vector<uint8_t>& pix, int w, int h) {
    const int stride = (w + 7) / 8;
    std::vector<uint8_t> out(static_cast<size_t>(stride) * h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (pix[y * w + x] == 0) out[y * stride + x / 8] |= 0x80 >> (x % 8);
    return out;
}

TEST(BilevelPack, WidthNineUsesTwoBytesPerRow) {
    std::vector<uint8_t> pix(9, 255);
    pix[8] = 0;  // ninth pixel black
    std::vector<uint8_t> out(4, 0xEE);
    ImgTavrin src{}, dst{};
    set_ImageTavrinP(&src, pix.data(), 9, 1, 3, 30000, 30000, false);
    dst.pucImage = out.data();
    ASSERT_EQ(pack_ImageTavrin(&src, &dst), 0);
    EXPECT_EQ(out[0], 0x00);
    EXPECT_EQ(out[1], 0x80);
    EXPECT_EQ(out[2], 0xEE) << "wrote past the packed row";
    EXPECT_EQ(dst.usWidth, 9);
    EXPECT_EQ(dst.ucType, 3);
    EXPECT_EQ(dst.usXReso, 30000);
}

TEST(BilevelPack, RoundTripAndInPlaceForManyWidths) {
    std::mt19937 rng(7);
    for (int w : {1, 2, 7, 8, 9, 13, 16, 31, 100}) {
        const int h = 5;
        std::vector<uint8_t> pix(w * h);
        for (auto& p : pix) p = (rng() % 3 == 0) ? 0 : static_cast<uint8_t>(1 + rng() % 255);
        const std::vector<uint8_t> expected = referencePack(pix, w, h);

        std::vector<uint8_t> inPlace = pix;
        ImgTavrin img{};
        set_ImageTavrinP(&img, inPlace.data(), w, h, 3, 0, 0, false);
        ASSERT_EQ(pack_ImageTavrin(&img, &img), 0);
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), inPlace.begin())) << "w=" << w;

        std::vector<uint8_t> back(w * h, 77);
        ImgTavrin unpacked{};
        unpacked.pucImage = back.data();
        ASSERT_EQ(unpack_ImageTavrin(&img, &unpacked), 0);
        EXPECT_EQ(unpacked.usWidth, w);
        EXPECT_EQ(unpacked.usHeight, h);
        EXPECT_EQ(unpacked.ucType, 3);
        for (int i = 0; i < w * h; ++i) ASSERT_EQ(back[i], pix[i] == 0 ? 0 : 255) << "w=" << w;
    }
}

TEST(BilevelPack, BadArgumentsReturnTwoAndTouchNothing) {
    uint8_t pix[4] = {0, 0, 0, 0};
    uint8_t out[4] = {9, 9, 9, 9};
    ImgTavrin src{}, dst{};
    set_ImageTavrinP(&src, pix, 4, 1, 0, 0, 0, false);  // wrong type
    set_ImageTavrinP(&dst, out, 1, 1, 0, 0, 0, false);
    EXPECT_EQ(pack_ImageTavrin(&src, &dst), 2);
    EXPECT_EQ(unpack_ImageTavrin(&src, &dst), 2);
    EXPECT_EQ(out[0], 9);
    EXPECT_EQ(dst.usWidth, 1);
    src.ucType = 3;
    EXPECT_EQ(pack_ImageTavrin(nullptr, &dst), 2);
    EXPECT_EQ(pack_ImageTavrin(&src, nullptr), 2);
    ImgTavrin empty{};
    EXPECT_EQ(pack_ImageTavrin(&src, &empty), 2);
    EXPECT_EQ(unpack_ImageTavrin(&empty, &dst), 2);
    EXPECT_EQ(unpack_ImageTavrin(&src, &empty), 2);  // no destination pixels
    // Unpacking into the very same bytes is refused.
    uint8_t packed[1] = {0xF0};
    ImgTavrin p{}, q{};
    set_ImageTavrinP(&p, packed, 8, 1, 3, 0, 0, false);
    q.pucImage = packed;
    EXPECT_EQ(unpack_ImageTavrin(&p, &q), 2);
    EXPECT_EQ(packed[0], 0xF0);
}

}  // namespace
