// Image records, bi-level packing (against a per-bit reference), work-buffer
// placement, request cases and skew-and-crop limiting (worked by hand from the
// limits 5102 x 3508, legal 4205 x 2551, and 0.017453 rad per degree).
#include "support.h"

namespace {

using tt::Bytes;
using tt::Ints;

TEST(BilevelPack, RoundTripsAndPacksInPlaceForManyWidths) {
    for (int w : {1, 7, 8, 9, 13, 16, 31, 100}) {
        const int h = 5, stride = (w + 7) / 8;
        Bytes pix(w * h), expected(stride * h, 0);
        for (int i = 0; i < w * h; ++i) pix[i] = tt::hash(i + 77 * w) % 3 == 0 ? 0 : 1 + tt::hash(i) % 255;
        for (int i = 0; i < w * h; ++i)  // bit set for black (0), most significant first
            if (pix[i] == 0) expected[i / w * stride + i % w / 8] |= 0x80 >> (i % w % 8);
        ImgTavrin src{pix.data(), uint16_t(w), uint16_t(h), 30000, 20000, TAVRIN_TYPE_BILEVEL}, dst{};
        tt::Guarded packed(expected.size());
        dst.pucImage = packed.data();
        ASSERT_EQ(pack_ImageTavrin(&src, &dst), 0);
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), packed.data()) && packed.intact()) << w;
        EXPECT_EQ((Ints{dst.usWidth, dst.usYReso, dst.ucType}), (Ints{w, 20000, TAVRIN_TYPE_BILEVEL}));
        Bytes inPlace = pix, back(w * h, 77);
        src.pucImage = inPlace.data();
        ASSERT_EQ(pack_ImageTavrin(&src, &src), 0);
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), inPlace.begin())) << w;
        ImgTavrin unpacked{back.data(), 0, 0, 0, 0, 0};
        ASSERT_EQ(unpack_ImageTavrin(&src, &unpacked), 0);
        EXPECT_EQ((Ints{unpacked.usWidth, unpacked.usHeight}), (Ints{w, h}));
        for (int i = 0; i < w * h; ++i) ASSERT_EQ(back[i], pix[i] == 0 ? 0 : 255) << w;
    }
    uint8_t pix[4] = {}, out[1] = {9};
    ImgTavrin gray{pix, 4, 1, 0, 0, TAVRIN_TYPE_GRAY}, bi{pix, 8, 1, 0, 0, TAVRIN_TYPE_BILEVEL}, dst{out, 1, 1, 0, 0, 0}, empty{};
    EXPECT_EQ((Ints{pack_ImageTavrin(&gray, &dst), unpack_ImageTavrin(&gray, &dst), out[0], dst.usWidth}), (Ints{2, 2, 9, 1}));
    for (ImgTavrin* s : {static_cast<ImgTavrin*>(nullptr), &bi, &empty})  // a record or its pixels missing
        for (ImgTavrin* d : {static_cast<ImgTavrin*>(nullptr), &empty})
            EXPECT_EQ((Ints{pack_ImageTavrin(s, d), unpack_ImageTavrin(s, d)}), (Ints{2, 2}));
    ImgTavrin same{pix, 0, 0, 0, 0, 0};
    EXPECT_EQ(unpack_ImageTavrin(&bi, &same), 2);  // into its own bytes
}

// Every non-zero type counts three bytes per pixel: clearing, copying and
// the raw dump all follow that rule.
TEST(ImageRecord, ByteRuleOfClearCopyAndDump) {
    for (uint8_t type : {0, 1, 2, 3, 7}) {
        const size_t bytes = 5 * 2 * (type ? 3 : 1);
        tt::Guarded buf(bytes, 0xAB), copy(bytes, 0);
        ImgTavrin img{}, to{copy.data(), 0, 0, 0, 0, 0};
        set_ImageTavrinP(&img, buf.data(), 5, 2, type, 30000, 20000, true);
        EXPECT_TRUE(std::count(buf.bytes.begin(), buf.bytes.begin() + bytes, 0) == long(bytes) && buf.intact()) << int(type);
        std::fill_n(buf.data(), bytes, 6);
        copy_ImageTavrin(&img, &to, 1);
        EXPECT_TRUE(copy.bytes[bytes - 1] == 6 && copy.intact()) << int(type);
        EXPECT_EQ(initZero_ImageTavrin(&img), 0);
        EXPECT_TRUE(buf.bytes[bytes - 1] == 0 && buf.intact()) << int(type);
        std::string path = tt::scratchDir("image") + "/raw" + std::to_string(type);
        EXPECT_EQ(debugOut_ImageTavrin(&to, tt::mut(path)), 0);
        EXPECT_EQ(tt::readFile(path), Bytes(bytes, 6)) << int(type);
    }
    uint8_t pixel = 7, other = 0;
    ImgTavrin src{&pixel, 1, 1, 10, 20, 0}, dst{&other, 0, 0, 0, 0, 0};
    copy_ImageTavrin(&src, &dst, 3);  // modes other than 1 and 2: the fields only
    EXPECT_TRUE(dst.pucImage == &other && other == 0 && dst.usYReso == 20);
    char bad[] = "/nonexistent-dir/x.raw";
    EXPECT_EQ(release_ImageTavrin(&dst) + set_ImageTavrin(&dst, 100, 100, 0, 0, 0, true) + debugOut_ImageTavrin(&src, bad), 0);
}

TEST(WorkMemory, PlacementMergingAndVersion) {
    uint8_t block[64];
    EXPECT_EQ((std::vector<uint8_t*>{TavrinApp_MemAlloc(block, 16, 16, 4), TavrinApp_MemAlloc(block, 17, 16, 4),
                                     TavrinApp_MemAlloc(block, -1, 16, 0), TavrinApp_MemSetHeadPointer(block, 32, 32),
                                     TavrinApp_MemSetHeadPointer(block, 32, 33)}),
              (std::vector<uint8_t*>{block + 4, nullptr, block, block + 32, nullptr}));  // sizes compare signed
    EXPECT_EQ((Ints{TavrinApp_MemCheck(block, 16, 16), TavrinApp_MemCheck(block, -5, 0), TavrinApp_MemCheck(block, 17, 16),
                    TavrinApp_MemCheck(nullptr, 1, 16)}), (Ints{0, 0, 2, 2}));
    ImgTavrin img{block, 9, 9, 1, 1, 1};
    std::fill_n(block, 64, 1);
    EXPECT_EQ(set_ImageTavrin_withMemCheck(&img, block, 16, 8, 4, 4, 0, 300, 300, true), 0);  // 16 bytes fit 16
    EXPECT_EQ((Ints{img.pucImage - block, block[7], block[8], block[23], block[24]}), (Ints{8, 1, 0, 0, 1}));
    EXPECT_EQ(set_ImageTavrin_withMemCheck(&img, block, 16, 0, 4, 2, 3, 1, 1, false), 2);  // 24 bytes
    EXPECT_TRUE(img.pucImage == nullptr && img.usXReso == 300);  // the other fields stay

    const int merges[][3] = {{0, 0, 0}, {0, 5, 5}, {5, 0, 5}, {5, 5, 5}, {5, 6, 3}};
    for (auto& m : merges) EXPECT_EQ(set_ErrorCode_forParallel(m[0], m[1], 0, 3), m[2]);
    EXPECT_STREQ(LibTavrinCommonGetVersion(), "libTavrinCommon API for e-Tavrin API, Ver. 5.5.0.1");
}

TEST(RequestCase, FirstMatchingRuleAndTheLimitOfEachCase) {
    EXPECT_EQ((Ints{TavrinApp_CheckA4Type(21), TavrinApp_CheckA4Type(20), TavrinApp_CheckA4Type(22)}), (Ints{1, 0, 0}));
    struct Case {
        uint8_t cic, idxCol, edit, skew, crop, feeder, sizeFlag;
        int number, shortSide, longSide;
    };
    const Case cases[] = {{1, 1, 1, 0, 0, 0, 1, 1, 3626, 5220}, {0, 1, 1, 0, 0, 0, 1, 2, 7252, 10441},
                          {0, 0, 1, 0, 0, 0, 1, 0, 7252, 10441}, {0, 0, 0, 0, 0, 0, 0, 3, 3626, 5220},
                          {0, 0, 0, 0, 0, 0, 1, 3, 3508, 5102}, {0, 0, 0, 1, 1, 4, 2, 3, 3626, 5220},
                          {0, 0, 0, 1, 1, 3, 1, 3, 3508, 5102}, {0, 0, 0, 1, 0, 4, 1, 3, 3508, 5102}};
    for (const Case& c : cases) {
        StructInputParams p{};
        p.ucModeCicFunc = c.cic, p.ucModeIdxColFunc = c.idxCol, p.ucModeEditFunc = c.edit;
        p.ucModeSkewEstFunc = c.skew, p.ucModeCropEstFunc = c.crop, p.ucFeeder = c.feeder;
        EXPECT_EQ(TavrinApp_GetCaseNumber(p), c.number);
        auto fits = [&](int w, int h) {
            ImgTavrin img{nullptr, uint16_t(w), uint16_t(h), 0, 0, 0};
            return long(TavrinApp_CheckInSize(p, img, c.sizeFlag));
        };
        const int s = c.shortSide, l = c.longSide;  // both orientations, at and past each limit
        EXPECT_EQ((Ints{fits(s, l), fits(l, s), fits(s + 1, l), fits(l, s + 1), fits(s, l + 1), fits(l + 1, s), fits(5220, 5220)}),
                  (Ints{1, 1, 0, 0, 0, 0, s > 5000})) << "case " << c.number << ", limit " << s;
    }
}

TEST(SCResult, HandWorkedExamples) {
    enum Fn { k300, k075, kUp, kDown };
    struct Case {
        Fn fn;
        int w, h, x, y, angle;
        float mx, my, scale;
        bool legal;
        Ints want;
        const char* why;
    };
    const Case cases[] = {
        {k300, 6000, 3000, 0, 0, 0, 0, 0, 1, false, {5102, 3000, 449, 0}, "dx = 898 / 2"},
        {k300, 6000, 3000, 0, 0, 9000, 0, 0, 1, false, {5102, 3000, 0, -448}, "y = trunc(-449 + 0.5)"},
        {k300, 6000, 6000, 0, 0, 0, 0, 0, 1, false, {5102, 3508, 449, 1246}, "a square is landscape"},
        {k300, 5000, 3000, 0, 0, 0, 0, 0, 1, true, {4205, 2551, 398, 225}, "legal; halves round up"},
        {k300, 1000, 500, -5, 7, 0, 0, 0, 1, false, {1000, 500, -4, 7}, "trunc(-5 + 0.5)"},
        {k300, 1000, 800, 0, 0, 0, 10.7f, 0.4f, 1, false, {979, 800, 11, 0}, "margins trunc(2m)"},
        {k300, 100, 50, 0, 0, 0, 60, 0, 1, false, {5102, 50, -2500, 0}, "a margin wider than the side wraps"},
        {k300, 5103, 3000, 0, 0, 2, 0, 0, 1, false, {5102, 3000, 0, 0}, "0.5 cos + 0.5 in double stays below 1"},
        {k300, 5103, 3000, 100, 0, -21, 0, 0, 1, false, {5102, 3000, 101, 0}, "0.5 cos + 100 in float is 100.5"},
        {k300, 5377, 3000, 0, 0, 3790, 0, 0, 1, false, {5102, 3000, 108, -83}, "cos rounded to float first"},
        {k075, 1301, 100, 0, 0, 9000, 0, 0, 1, false, {1275, 100, 0, -13}, "-50 >> 2 = -13"},
        {k075, -1, 100, 0, 0, 0, 0, 0, 1, false, {1275, 100, 7553, 0}, "0xFFFF x 4 wraps"},
        {kUp, 101, 40, -3, 3, 0, 0, 0, 2.5f, false, {252, 100, -6, 7}, "products truncated"},
        {kUp, 1250, 750, 0, 0, 0, 1.5f, 0, 4, true, {4205, 2551, 398, 225}, "margins and legal passed on"},
        {kDown, 5103, 100, -10, 0, 0, 0, 0, 1, false, {1275, 25, -3, 0}, "-9 >> 2 = -3"},
    };
    for (const Case& c : cases) {
        uint16_t w = uint16_t(c.w), h = uint16_t(c.h);
        int16_t x = int16_t(c.x), y = int16_t(c.y), sw = int16_t(c.w), sh = int16_t(c.h), angle = int16_t(c.angle);
        if (c.fn == k300) TavrinApp_LimitSCResult300(w, h, x, y, angle, c.mx, c.my, c.legal);
        if (c.fn == k075) TavrinApp_LimitSCResult075(sw, sh, x, y, angle);
        if (c.fn == kUp) TavrinApp_ScaleUpSCResult(w, h, x, y, angle, c.mx, c.my, c.scale, c.legal);
        if (c.fn == kDown) TavrinApp_ScaleDownSCResult(w, h, x, y, angle);
        EXPECT_EQ((c.fn == k075 ? Ints{sw, sh, x, y} : Ints{w, h, x, y}), c.want) << c.why;
    }
}

}  // namespace
