// Dump paths and dumps: the exact bytes of every file (TIFFs read back with
// libtiff), no file for missing inputs or names that do not fit. Foreground
// layers are T.6 bytes of libtiff's own Group 4 coder, one of the library's.
#include <tiffio.h>

#include <cstdio>
#include <cstring>

#include "encode/g4_fields.h"
#include "support.h"

namespace {

using tt::Bytes;
using tt::Ints;
using tt::mut;

bool isDirectory(const std::string& path) { return tt::fileExists(path + "/."); }

TEST(DumpPath, JoinsCutsAndDirectories) {
    std::vector<char> out(1024 + 16, 'G');  // guard bytes after the 1024
    std::string tmp = "/tmp", slash = "/tmp/", none = "", name = "a.tif", longDir(1000, 'd'), longName(499, 'n');
    for (std::string* dir : {&tmp, &slash, &none}) {  // the separator always goes in
        catPath(out.data(), mut(*dir), mut(name));
        EXPECT_EQ(std::string(out.data()), *dir + "/a.tif");
    }
    catPath(out.data(), mut(longDir), mut(longName));  // 1500 characters: cut to 1023
    EXPECT_EQ((Ints{long(std::strlen(out.data())), out[1000], out[1023], out[1024]}), (Ints{1023, '/', 0, 'G'}));
    catPath(out.data(), mut(none), mut(name));  // a short join clears the rest
    EXPECT_EQ(std::count(out.begin() + 6, out.begin() + 1024, 0), 1018);

    __TavrinProcess_Ctrl_Info ctrl;
    std::memset(&ctrl, 'x', sizeof ctrl);
    std::string base = tt::scratchDir("dump_path"), page = "page1", stage = "stage", missing = "no/such", plain = "plain";
    set_CoreDirName(ctrl.cCoreDirName, mut(base));
    setDebugPath(&ctrl, mut(page));
    EXPECT_EQ(std::string(ctrl.cDebugPath, 1024), base + "/page1" + std::string(1024 - base.size() - 6, '\0'));
    std::fclose(std::fopen((base + "/plain").c_str(), "w"));
    char dst[1024] = "untouched";
    EXPECT_TRUE(setDumpPath(dst, mut(base), mut(stage), 0) == 0 && !isDirectory(base + "/stage"));  // switched off
    EXPECT_EQ((Ints{setDumpPath(dst, mut(base), mut(missing), 1), setDumpPath(dst, mut(base), mut(plain), 1)}), (Ints{1, 1}));
    EXPECT_STREQ(dst, "untouched");
    for (int twice = 0; twice < 2; ++twice)  // made, then already there
        EXPECT_TRUE(setDumpPath(dst, mut(base), mut(stage), 1) == 0 && std::string(dst) == base + "/stage" && isDirectory(dst));
    ST_DEBUG_INFO dbg{};
    std::strcpy(dbg.cDumpName, "old-long-name");
    std::string bg = "bg", nested = "x/y";
    EXPECT_TRUE(setDumpPath2(&ctrl, &dbg, mut(bg)) == 0 && !isDirectory(base + "/bg"));  // switched off: nothing
    dbg.ucDumpSw = 1;
    EXPECT_EQ((Ints{setDumpPath2(&ctrl, &dbg, mut(bg)), setDumpPath2(&ctrl, &dbg, mut(bg)), isDirectory(base + "/bg"),
                    setDumpPath2(&ctrl, &dbg, mut(nested))}), (Ints{0, 0, 1, 1}));
    EXPECT_EQ(std::string(dbg.cDumpName, 16), "x/y" + std::string(13, '\0'));
    FILE* fp = reinterpret_cast<FILE*>(0x1);  // a failed open leaves a null handle
    EXPECT_TRUE(_tfopen_s(&fp, (base + "/missing/a.txt").c_str(), "w") == -1 && fp == nullptr);
}

Bytes readTiff(const std::string& path) {  // 8-bit samples, strip after strip
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    if (tif == nullptr) return {};
    Bytes px(TIFFStripSize(tif) * TIFFNumberOfStrips(tif));
    tmsize_t at = 0;
    for (uint32_t s = 0; s < TIFFNumberOfStrips(tif); ++s) at += TIFFReadEncodedStrip(tif, s, px.data() + at, -1);
    TIFFClose(tif);
    px.resize(at);
    return px;
}

TEST(ImageDumps, StreamRawTiffAndScaledDumps) {
    std::string dir = tt::scratchDir("image_dumps"), bgPath = dir + "/bg.jpg", none = dir + "/none", unopenable = dir + "/no/x";
    Bytes px(6 * 130 * 3), mask = {0, 1, 2, 128, 255, 3}, twice(60);
    for (size_t i = 0; i < px.size(); ++i) px[i] = uint8_t(i * 13);
    for (size_t i = 0; i < 60; ++i) twice[i] = uint8_t(2 * px[i]);
    strBgImgInfo stream{200, px.data()}, noStream{200, nullptr};
    ImgTavrin rgb{px.data(), 10, 2, 30000, 30000, TAVRIN_TYPE_RGB}, gray{px.data(), 6, 130, 30000, 30000, TAVRIN_TYPE_GRAY};
    ImgTavrin bilevel{px.data(), 6, 10, 30000, 30000, TAVRIN_TYPE_BILEVEL}, noRows = gray, noPixels = gray;
    ImgTavrin small{mask.data(), 3, 2, 30000, 30000, 0};
    noRows.usHeight = 0;
    noPixels.pucImage = nullptr;
    std::string cRaw = "c.raw", gRaw = "g.raw", plane = "plane.tif", bi = "bi.tif", flat = "flat.tif", x2 = "x2.tif";
    EXPECT_EQ((Ints{TavrinApp_DebugBGImg(&stream, mut(bgPath), 1), TavrinApp_DebugBGImg(&noStream, mut(none), 0),
                    TavrinApp_DebugBGImg(&stream, mut(unopenable), 0), Tavrin_Debug_RawImage(mut(dir), mut(cRaw), &rgb),
                    Tavrin_Debug_RawImage(mut(dir), mut(gRaw), &gray), Tavrin_Debug_Image(mut(dir), mut(plane), &gray),
                    Tavrin_Debug_Image(mut(dir), mut(bi), &bilevel), Tavrin_Debug_Image(mut(dir), mut(flat), &noRows),
                    Tavrin_Debug_Image(mut(dir), mut(none), &noPixels), Tavrin_Debug_RawImage(mut(dir), mut(none), &noPixels),
                    DebugOutTiff(mut(dir), mut(x2), &rgb, 2)}),
              (Ints{0, 0, 0, 0, 0, 0, -1, -1, 0, 0, 0}));  // the TIFF writer's status; nothing without pixels
    EXPECT_EQ(tt::readFile(bgPath), Bytes(px.begin(), px.begin() + 200));  // the stream's bytes only
    EXPECT_EQ(tt::readFile(dir + "/c.raw"), Bytes(px.begin(), px.begin() + 60));
    EXPECT_EQ(tt::readFile(dir + "/g.raw"), Bytes(px.begin(), px.begin() + 780));
    EXPECT_EQ(readTiff(dir + "/plane.tif"), Bytes(px.begin(), px.begin() + 780));
    EXPECT_EQ(readTiff(dir + "/x2.tif"), twice);  // a colour image scaled over all its bytes
    EXPECT_FALSE(tt::fileExists(dir + "/flat.tif") || tt::fileExists(none));

    // Scaled dumps: bytes times the scale modulo 256, the source untouched.
    const std::pair<int, Bytes> scales[] = {{255, {0, 255, 254, 128, 1, 253}}, {256, Bytes(6, 0)}, {-1, {0, 255, 254, 128, 1, 253}},
                                            {2, {0, 2, 4, 0, 254, 6}}, {1, mask}};
    for (auto [scale, want] : scales) {
        std::string name = "s" + std::to_string(scale) + ".tif";
        EXPECT_EQ(DebugOut((dir + "/mask").c_str(), mask.data(), 3, 2, scale), 0);
        EXPECT_EQ(DebugOutTiff(mut(dir), mut(name), &small, scale), 0);
        EXPECT_EQ(tt::readFile(dir + "/mask.raw"), want) << scale;
        EXPECT_EQ(readTiff(dir + "/" + name), want) << scale;
    }
    EXPECT_EQ(mask, (Bytes{0, 1, 2, 128, 255, 3}));
    // "%s.raw" must fit 260 bytes with its zero: a longer name writes nothing,
    // not even a cut one. An empty image gives an empty file.
    ASSERT_LT(dir.size(), 200u);
    const std::string fits = dir + "/" + std::string(254 - dir.size(), 'f'), tooLong = fits + "g";
    std::string empty = "", name = "tavrin_no_dump_" + std::to_string(getpid()) + ".tif";
    EXPECT_EQ(DebugOut(fits.c_str(), mask.data() + 1, 1, 1, 255) + DebugOut(tooLong.c_str(), mask.data(), 1, 1, 255) +
                  DebugOut((dir + "/empty").c_str(), nullptr, 0, 5, 255), 0);
    EXPECT_TRUE(tt::readFile(fits + ".raw") == Bytes{255} && tt::readFile(dir + "/empty.raw").empty());
    EXPECT_TRUE(tt::fileExists(dir + "/empty.raw"));
    EXPECT_FALSE(tt::fileExists(tooLong + ".raw") || tt::fileExists((tooLong + ".raw").substr(0, 259)));
    EXPECT_EQ((Ints{DebugOut(none.c_str(), nullptr, 2, 2, 255), DebugOut(none.c_str(), mask.data(), -1, 2, 255),
                    DebugOut(nullptr, mask.data(), 1, 1, 255), DebugOutTiff(mut(empty), mut(name), &small, 1),
                    DebugOutTiff(mut(dir), nullptr, &small, 255), DebugOutTiff(nullptr, mut(name), &small, 1),
                    DebugOutTiff(mut(dir), mut(name), &noPixels, 255)}), (Ints{0, 0, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(tt::fileExists(none + ".raw") || tt::fileExists("/" + name) || tt::fileExists(dir + "/" + name));
}

TEST(LayoutDump, FourteenSignedFieldsPerEntry) {
    std::string dir = tt::scratchDir("layout"), name = "layout.csv", none = "none.csv", unopenable = "missing/x.csv";
    ST_LAYOUTRECT a[2] = {{1, 2, 3, 4, 5, 99}, {-1, -32768, 32767, 0, -70000, 7}};
    ST_LAYOUTRECT b[2] = {{10, 20, 30, 40, 50, -1}, {-10, 0, 0, -4, 2147483647, 127}};
    for (int32_t n : {2, 0, -3}) {  // A's last item is not written; columns 7 and 13 are zeros
        ST_LAYOUT layout{n, a, b};
        EXPECT_EQ(Tavrin_Debug_LayoutData(mut(dir), mut(name), &layout), 0);
        EXPECT_EQ(tt::readText(dir + "/layout.csv"),
                  n < 2 ? "" : "0,1,2,3,4,5,0,10,20,30,40,50,0,-1\n1,-1,-32768,32767,0,-70000,0,-10,0,0,-4,2147483647,0,127\n");
    }
    ST_LAYOUT onlyA{1, a, nullptr}, onlyB{1, nullptr, b}, both{1, a, b};
    EXPECT_EQ((Ints{Tavrin_Debug_LayoutData(mut(dir), mut(none), &onlyA), Tavrin_Debug_LayoutData(mut(dir), mut(none), &onlyB),
                    Tavrin_Debug_LayoutData(mut(dir), mut(none), nullptr),
                    Tavrin_Debug_LayoutData(mut(dir), mut(unopenable), &both)}),
              (Ints{0, 0, 0, 0}));
    EXPECT_FALSE(tt::fileExists(dir + "/none.csv"));
}

struct Layer {  // packed pixels (MSB first, 1 = black) and their T.6 bytes
    uint16_t width, height;
    Bytes packed, mmr;
    Layer(uint16_t w, uint16_t h, int seed, const std::string& dir) : width(w), height(h), packed((w + 7) / 8 * h) {
        for (int i = 0; i < w * h; ++i)  // stripes and noise
            if ((i % w / (3 + seed) + i / w / 4) % 2 == 0 || tt::hash(i + seed) % 11 == 0)
                packed[i / w * ((w + 7) / 8) + i % w / 8] |= 0x80 >> (i % w % 8);
        TIFF* tif = TIFFOpen((dir + "/g4.tif").c_str(), "w");  // one strip, written and read back raw
        encode_test::setG4Fields(tif, w, h);
        TIFFWriteEncodedStrip(tif, 0, packed.data(), tmsize_t(packed.size()));
        TIFFClose(tif);
        tif = TIFFOpen((dir + "/g4.tif").c_str(), "r");
        mmr.resize(TIFFRawStripSize(tif, 0));
        TIFFReadRawStrip(tif, 0, mmr.data(), tmsize_t(mmr.size()));
        TIFFClose(tif);
    }
    strFgImgInfo info(int16_t offX, int16_t offY, uint8_t red) {
        return strFgImgInfo{int32_t(mmr.size()), mmr.data(), width, height, 30000, 20050, offX, offY, {red, 128, 255}};
    }
};

std::vector<SoftCicResult> slotsOf(const std::vector<strFgImgInfo>& layers) {
    std::vector<SoftCicResult> slots(layers.size() + 1);
    std::memset(static_cast<void*>(slots.data()), 0xA5, sizeof(SoftCicResult));  // the caller's bytes in slot 0
    slots[0].iLayerNum = int32_t(slots.size());
    for (size_t i = 0; i < layers.size(); ++i) slots[i + 1].stFgImgInfo = layers[i];
    return slots;
}

// The pages of a dump, each against its layer: fields, tags, the strip
// (the caller's bytes, each bit-reversed) and, decoded as fill order 2
// although the page says 1, the layer's pixels.
void expectPages(const std::string& path, const std::vector<std::pair<strFgImgInfo, Layer*>>& pages) {
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    ASSERT_NE(tif, nullptr);
    EXPECT_EQ(TIFFNumberOfDirectories(tif), int(pages.size()));
    for (size_t p = 0; p < pages.size() && (p == 0 || TIFFReadDirectory(tif)); ++p) {
        const strFgImgInfo& info = pages[p].first;
        const Layer& l = *pages[p].second;
        uint32_t u32[3] = {};
        uint16_t u16[8] = {};
        float res[2] = {};
        const ttag_t tags[] = {TIFFTAG_IMAGEWIDTH, TIFFTAG_IMAGELENGTH, TIFFTAG_ROWSPERSTRIP, TIFFTAG_BITSPERSAMPLE,
                               TIFFTAG_SAMPLESPERPIXEL, TIFFTAG_PHOTOMETRIC, TIFFTAG_FILLORDER, TIFFTAG_PLANARCONFIG,
                               TIFFTAG_ORIENTATION, TIFFTAG_RESOLUTIONUNIT, TIFFTAG_COMPRESSION, TIFFTAG_XRESOLUTION,
                               TIFFTAG_YRESOLUTION};
        void* fields[] = {&u32[0], &u32[1], &u32[2], &u16[0], &u16[1], &u16[2], &u16[3],
                          &u16[4], &u16[5], &u16[6], &u16[7], &res[0], &res[1]};
        for (int i = 0; i < 13; ++i) EXPECT_TRUE(TIFFGetField(tif, tags[i], fields[i])) << tags[i];
        EXPECT_EQ((Ints{u32[0], u32[1], u32[2], u16[0], u16[1], u16[2], u16[3], u16[4], u16[5], u16[6], u16[7]}),
                  (Ints{l.width, l.height, l.height, 1, 1, PHOTOMETRIC_MINISWHITE, FILLORDER_MSB2LSB, PLANARCONFIG_CONTIG,
                        ORIENTATION_TOPLEFT, RESUNIT_INCH, COMPRESSION_CCITTFAX4}));
        EXPECT_TRUE(res[0] == info.usXReso / 100.0f && res[1] == info.usYReso / 100.0f);
        int32_t* offset = nullptr;
        uint16_t* colour = nullptr;
        ASSERT_TRUE(TIFFGetField(tif, TAVRIN_TIFFTAG_CIC_MASKOFFSET, &offset));
        ASSERT_TRUE(TIFFGetField(tif, TAVRIN_TIFFTAG_CIC_MASK_COLOR, &colour));
        EXPECT_EQ((Ints{offset[0], offset[1], colour[0], colour[1], colour[2]}),
                  (Ints{info.sMaskOffsetX, info.sMaskOffsetY, info.aucMaskColor[0], info.aucMaskColor[1], info.aucMaskColor[2]}));
        Bytes raw(TIFFRawStripSize(tif, 0)), want(l.mmr.size()), decoded(l.packed.size());
        TIFFReadRawStrip(tif, 0, raw.data(), tmsize_t(raw.size()));
        for (size_t i = 0; i < want.size(); ++i)
            for (int k = 0; k < 8; ++k) want[i] |= uint8_t((l.mmr[i] >> k & 1) << (7 - k));
        EXPECT_EQ(raw, want);
        TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_LSB2MSB);
        ASSERT_EQ(TIFFReadEncodedStrip(tif, 0, decoded.data(), tmsize_t(decoded.size())), tmsize_t(decoded.size()));
        const int stride = (l.width + 7) / 8;
        for (size_t i = stride - 1; i < decoded.size(); i += stride) decoded[i] &= uint8_t(0xFF << (7 - (l.width - 1) % 8));
        EXPECT_EQ(decoded, l.packed);  // padding bits are no pixels
    }
    TIFFClose(tif);
}

class FgDump : public ::testing::Test {
protected:
    void SetUp() override { _XTIFFInitialize(); }  // the tags must be known to read the dumps
    std::string dir = tt::scratchDir("fg_dump");
};

TEST_F(FgDump, OnePagePerLayerAndTheCallersBytesStay) {
    Layer a(37, 20, 1, dir), b(64, 33, 2, dir), c(203, 57, 7, dir);  // width 37: row padding
    c.mmr.assign(c.packed.size() * 2 + 1024, 0);  // this one from the library's own encoder
    strFgImgInfo infoC = c.info(-300, 12, 9), infoA = a.info(-5, -32768, 0), infoB = b.info(32767, 7, 255);
    ASSERT_EQ(Tavrin_bwToMmr(&infoC, c.packed.data(), c.mmr.size()), 0);
    c.mmr.resize(infoC.lMmrSize);
    infoB.usXReso = 7500;
    const Bytes mmrA = a.mmr, mmrB = b.mmr, mmrC = c.mmr;
    auto slots = slotsOf({strFgImgInfo{}, infoA, infoB, infoC});  // an empty layer makes no page
    std::string path = dir + "/fg.tif";
    EXPECT_EQ(TavrinApp_DebugFGImg(slots.data(), tt::mut(path)), 0);
    EXPECT_TRUE(a.mmr == mmrA && b.mmr == mmrB && c.mmr == mmrC);
    expectPages(path, {{infoA, &a}, {infoB, &b}, {infoC, &c}});

}

TEST_F(FgDump, NothingToWrite) {
    for (int32_t n : {1, 0, -4}) {
        SoftCicResult slot0{};
        slot0.iLayerNum = n;
        std::string path = dir + "/none" + std::to_string(n) + ".tif";
        EXPECT_EQ(TavrinApp_DebugFGImg(&slot0, tt::mut(path)), 0);
        EXPECT_EQ(tt::readFile(path).size(), 8u) << n;  // the bare header
    }
    std::string missing = dir + "/missing/fg.tif";
    auto slots = slotsOf({strFgImgInfo{}});
    EXPECT_EQ((Ints{TavrinApp_DebugFGImg(slots.data(), tt::mut(missing)), TavrinApp_DebugFGImg(nullptr, tt::mut(missing)),
                    TavrinApp_DebugFGImg(slots.data(), nullptr), tt::fileExists(missing)}), (Ints{0, 0, 0, 0}));
}

}  // namespace
