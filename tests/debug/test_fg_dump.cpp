// Foreground layer dump: pages, fields, private tags, the bit order of the
// stored strips, the caller's MMR bytes, and the stop at a short write.
// MMR data is made here with libtiff's own Group 4 coder, independently of
// the library.
#include <gtest/gtest.h>

#include <TavrinDebug.h>
#include <tiffio.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "test_files.h"

namespace {

using Bytes = std::vector<uint8_t>;

off_t fileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

uint8_t reversed(uint8_t b) {
    uint8_t r = 0;
    for (int k = 0; k < 8; ++k) r = static_cast<uint8_t>((r << 1) | ((b >> k) & 1));
    return r;
}

// A packed bi-level test image (MSB first, 1 = black) of some texture.
struct Layer {
    uint16_t width, height;
    Bytes packed;
    Bytes mmr;
};

Layer makeLayer(uint16_t width, uint16_t height, int seed) {
    Layer l{width, height, Bytes(((width + 7) / 8) * height), {}};
    const int bpr = (width + 7) / 8;
    uint32_t noise = 12345u + static_cast<uint32_t>(seed);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            noise = noise * 1103515245u + 12345u;
            bool black = ((x / (3 + seed)) + (y / 4)) % 2 == 0 || ((noise >> 16) % 11 == 0);
            if (black) l.packed[y * bpr + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
        }
    return l;
}

// Bare T.6 bytes of the layer: a one-strip Group 4 TIFF written by libtiff
// with fill order 1, read back as its raw strip.
Bytes encodeMmr(const Layer& l, const std::string& scratch) {
    const std::string path = scratch + "/encode.tif";
    TIFF* tif = TIFFOpen(path.c_str(), "w");
    if (tif == nullptr) return {};
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, uint32_t{l.width});
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, uint32_t{l.height});
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, uint32_t{l.height});
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFWriteEncodedStrip(tif, 0, const_cast<uint8_t*>(l.packed.data()),
                          static_cast<tmsize_t>(l.packed.size()));
    TIFFClose(tif);
    tif = TIFFOpen(path.c_str(), "r");
    if (tif == nullptr) return {};
    Bytes raw(static_cast<size_t>(TIFFRawStripSize(tif, 0)));
    TIFFReadRawStrip(tif, 0, raw.data(), static_cast<tmsize_t>(raw.size()));
    TIFFClose(tif);
    return raw;
}

strFgImgInfo describe(Layer& l, int16_t offX, int16_t offY, uint8_t r, uint8_t g, uint8_t b) {
    strFgImgInfo info{};
    info.lMmrSize = static_cast<int32_t>(l.mmr.size());
    info.pucMmrData = l.mmr.data();
    info.usWidth = l.width;
    info.usHeight = l.height;
    info.usXReso = 30000;
    info.usYReso = 20050;
    info.sMaskOffsetX = offX;
    info.sMaskOffsetY = offY;
    info.aucMaskColor[0] = r;
    info.aucMaskColor[1] = g;
    info.aucMaskColor[2] = b;
    return info;
}

std::vector<SoftCicResult> slotsOf(const std::vector<strFgImgInfo>& layers) {
    std::vector<SoftCicResult> slots(layers.size() + 1);
    std::memset(slots.data(), 0xA5, sizeof(SoftCicResult));  // caller's bytes in slot 0
    slots[0].iLayerNum = static_cast<int32_t>(slots.size());
    for (size_t i = 0; i < layers.size(); ++i) slots[i + 1].stFgImgInfo = layers[i];
    return slots;
}

// Compares decoded rows with the packed image, ignoring row padding bits.
void expectSamePixels(const Bytes& decoded, const Layer& l) {
    const int bpr = (l.width + 7) / 8;
    const uint8_t lastMask = static_cast<uint8_t>(0xFF << ((8 - l.width % 8) % 8));
    ASSERT_EQ(decoded.size(), l.packed.size());
    for (int y = 0; y < l.height; ++y)
        for (int i = 0; i < bpr; ++i) {
            const uint8_t m = (i == bpr - 1) ? lastMask : 0xFF;
            ASSERT_EQ(decoded[y * bpr + i] & m, l.packed[y * bpr + i] & m) << "row " << y;
        }
}

// Checks the current page against the layer description and its image.
void expectPage(TIFF* tif, const strFgImgInfo& info, const Layer& l) {
    uint32_t u32 = 0;
    uint16_t u16 = 0;
    float f = 0;
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &u32));
    EXPECT_EQ(u32, info.usWidth);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &u32));
    EXPECT_EQ(u32, info.usHeight);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_BITSPERSAMPLE, &u16));
    EXPECT_EQ(u16, 1);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_SAMPLESPERPIXEL, &u16));
    EXPECT_EQ(u16, 1);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &u16));
    EXPECT_EQ(u16, PHOTOMETRIC_MINISWHITE);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_FILLORDER, &u16));
    EXPECT_EQ(u16, FILLORDER_MSB2LSB);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_PLANARCONFIG, &u16));
    EXPECT_EQ(u16, PLANARCONFIG_CONTIG);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_ORIENTATION, &u16));
    EXPECT_EQ(u16, ORIENTATION_TOPLEFT);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_XRESOLUTION, &f));
    EXPECT_FLOAT_EQ(f, info.usXReso / 100.0f);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_YRESOLUTION, &f));
    EXPECT_FLOAT_EQ(f, info.usYReso / 100.0f);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_RESOLUTIONUNIT, &u16));
    EXPECT_EQ(u16, RESUNIT_INCH);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_ROWSPERSTRIP, &u32));
    EXPECT_EQ(u32, info.usHeight);
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_COMPRESSION, &u16));
    EXPECT_EQ(u16, COMPRESSION_CCITTFAX4);

    int32_t* offset = nullptr;
    ASSERT_TRUE(TIFFGetField(tif, TAVRIN_TIFFTAG_CIC_MASKOFFSET, &offset));
    EXPECT_EQ(offset[0], info.sMaskOffsetX);
    EXPECT_EQ(offset[1], info.sMaskOffsetY);
    uint16_t* colour = nullptr;
    ASSERT_TRUE(TIFFGetField(tif, TAVRIN_TIFFTAG_CIC_MASK_COLOR, &colour));
    for (int c = 0; c < 3; ++c) EXPECT_EQ(colour[c], info.aucMaskColor[c]);

    // The strip holds the caller's bytes with every byte's bit order
    // reversed.
    Bytes raw(static_cast<size_t>(TIFFRawStripSize(tif, 0)));
    ASSERT_EQ(raw.size(), l.mmr.size());
    ASSERT_EQ(TIFFReadRawStrip(tif, 0, raw.data(), static_cast<tmsize_t>(raw.size())),
              static_cast<tmsize_t>(raw.size()));
    for (size_t i = 0; i < raw.size(); ++i) ASSERT_EQ(raw[i], reversed(l.mmr[i])) << i;

    // So the T.6 data is least significant bit first although the page says
    // fill order 1: decoded as fill order 2 it gives the layer's image.
    TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_LSB2MSB);
    Bytes decoded(l.packed.size());
    ASSERT_EQ(TIFFReadEncodedStrip(tif, 0, decoded.data(), static_cast<tmsize_t>(decoded.size())),
              static_cast<tmsize_t>(decoded.size()));
    expectSamePixels(decoded, l);
}

int pageCount(const std::string& path) {
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    if (tif == nullptr) return -1;
    int n = TIFFNumberOfDirectories(tif);
    TIFFClose(tif);
    return n;
}

int libtiffErrors = 0;
void countError(const char*, const char*, va_list) { ++libtiffErrors; }

class FgDump : public ::testing::Test {
protected:
    void SetUp() override {
        dir = tavrin_test::scratchDir("fg_dump");
        // The tag extension must be known before the dumps are read back.
        _XTIFFInitialize();
    }
    std::string dir;
};

TEST_F(FgDump, OnePagePerNonEmptyLayerWithFieldsTagsAndImage) {
    Layer a = makeLayer(37, 20, 1), b = makeLayer(64, 33, 2);  // widths 37: row padding
    a.mmr = encodeMmr(a, dir);
    b.mmr = encodeMmr(b, dir);
    ASSERT_FALSE(a.mmr.empty());
    ASSERT_FALSE(b.mmr.empty());
    const Bytes mmrA = a.mmr, mmrB = b.mmr;

    strFgImgInfo empty{};  // slot 1: lMmrSize 0, no page
    strFgImgInfo infoA = describe(a, -5, -32768, 0, 128, 255);
    strFgImgInfo infoB = describe(b, 32767, 7, 255, 1, 0);
    infoB.usXReso = 7500;
    auto slots = slotsOf({empty, infoA, infoB});
    std::string path = dir + "/fg.tif";
    EXPECT_EQ(TavrinApp_DebugFGImg(slots.data(), &path[0]), 0);

    // The caller's MMR bytes are as before.
    EXPECT_EQ(a.mmr, mmrA);
    EXPECT_EQ(b.mmr, mmrB);

    TIFF* tif = TIFFOpen(path.c_str(), "r");
    ASSERT_NE(tif, nullptr);
    EXPECT_EQ(TIFFNumberOfDirectories(tif), 2);
    expectPage(tif, infoA, a);
    ASSERT_TRUE(TIFFReadDirectory(tif));
    expectPage(tif, infoB, b);
    EXPECT_FALSE(TIFFReadDirectory(tif));
    TIFFClose(tif);
}

TEST_F(FgDump, LayerFromTheLibraryEncoderDecodesToItsImage) {
    Layer l = makeLayer(203, 57, 7);
    l.mmr.assign(l.packed.size() * 2 + 1024, 0);
    strFgImgInfo info = describe(l, -300, 12, 9, 8, 7);
    ASSERT_EQ(Tavrin_bwToMmr(&info, l.packed.data(), l.mmr.size()), 0);
    l.mmr.resize(static_cast<size_t>(info.lMmrSize));  // shrinking keeps the buffer
    ASSERT_EQ(info.pucMmrData, l.mmr.data());
    const Bytes mmr = l.mmr;
    auto slots = slotsOf({info});
    std::string path = dir + "/encoded.tif";
    TavrinApp_DebugFGImg(slots.data(), &path[0]);
    EXPECT_EQ(l.mmr, mmr);

    TIFF* tif = TIFFOpen(path.c_str(), "r");
    ASSERT_NE(tif, nullptr);
    EXPECT_EQ(TIFFNumberOfDirectories(tif), 1);
    expectPage(tif, info, l);
    TIFFClose(tif);
}

TEST_F(FgDump, StripBytesAreBitReversedAndRestored) {
    // The dump does not decode the data, so any bytes show the reversal.
    Bytes data = {0x01, 0x02, 0xF0, 0x80, 0x5A, 0x00};
    strFgImgInfo info{};
    info.lMmrSize = 5;  // the sixth byte is not part of the strip
    info.pucMmrData = data.data();
    info.usWidth = 8;
    info.usHeight = 1;
    auto slots = slotsOf({info});
    std::string path = dir + "/bytes.tif";
    TavrinApp_DebugFGImg(slots.data(), &path[0]);
    EXPECT_EQ(data, (Bytes{0x01, 0x02, 0xF0, 0x80, 0x5A, 0x00}));

    TIFF* tif = TIFFOpen(path.c_str(), "r");
    ASSERT_NE(tif, nullptr);
    Bytes raw(5);
    ASSERT_EQ(TIFFRawStripSize(tif, 0), 5);
    TIFFReadRawStrip(tif, 0, raw.data(), 5);
    EXPECT_EQ(raw, (Bytes{0x80, 0x40, 0x0F, 0x01, 0x5A}));
    TIFFClose(tif);
}

TEST_F(FgDump, NoLayerGivesNoPage) {
    for (int32_t n : {1, 0, -4}) {
        SoftCicResult slot0{};
        slot0.iLayerNum = n;
        std::string path = dir + "/none" + std::to_string(n) + ".tif";
        EXPECT_EQ(TavrinApp_DebugFGImg(&slot0, &path[0]), 0);
        EXPECT_EQ(fileSize(path), 8) << n;  // the bare header, no directory
    }
}

TEST_F(FgDump, UnopenablePathLeavesTheLayersAlone) {
    Bytes data = {0x01, 0x03};
    strFgImgInfo info{};
    info.lMmrSize = 2;
    info.pucMmrData = data.data();
    info.usWidth = info.usHeight = 8;
    auto slots = slotsOf({info});
    std::string path = dir + "/missing/fg.tif";
    EXPECT_EQ(TavrinApp_DebugFGImg(slots.data(), &path[0]), 0);
    EXPECT_EQ(fileSize(path), -1);
    EXPECT_EQ(data, (Bytes{0x01, 0x03}));
    EXPECT_EQ(TavrinApp_DebugFGImg(nullptr, &path[0]), 0);
    EXPECT_EQ(TavrinApp_DebugFGImg(slots.data(), nullptr), 0);
}

TEST_F(FgDump, LayerThatCannotBeWrittenStopsTheDump) {
    Layer a = makeLayer(40, 10, 3);
    a.mmr = encodeMmr(a, dir);
    strFgImgInfo good = describe(a, 1, 2, 3, 4, 5);
    strFgImgInfo negative = good;
    negative.lMmrSize = -1;
    strFgImgInfo noData = good;
    noData.pucMmrData = nullptr;
    for (const strFgImgInfo& bad : {negative, noData}) {
        auto slots = slotsOf({good, bad, good});
        std::string path = dir + "/stop.tif";
        libtiffErrors = 0;
        TIFFErrorHandler old = TIFFSetErrorHandler(countError);
        TavrinApp_DebugFGImg(slots.data(), &path[0]);
        EXPECT_EQ(pageCount(path), 1);
        TIFFSetErrorHandler(old);
        EXPECT_EQ(libtiffErrors, 0);
    }
}

// A file-size limit makes the strip of the second page a short write. The
// dump runs in a child process so that the limit stays there; the child
// reports whether the caller's bytes survived.
TEST_F(FgDump, ShortWriteKeepsTheEarlierPagesInAClosedFile) {
    Layer a = makeLayer(61, 40, 4), b = makeLayer(200, 120, 5), c = makeLayer(16, 16, 6);
    a.mmr = encodeMmr(a, dir);
    b.mmr = encodeMmr(b, dir);
    c.mmr = encodeMmr(c, dir);
    ASSERT_GT(b.mmr.size(), 256u);
    strFgImgInfo infoA = describe(a, -1, -2, 10, 20, 30);
    strFgImgInfo infoB = describe(b, 0, 0, 0, 0, 0);
    strFgImgInfo infoC = describe(c, 0, 0, 0, 0, 0);

    // Size of the file with page A alone: the second strip starts there.
    auto onlyA = slotsOf({infoA});
    std::string pathA = dir + "/only_a.tif";
    TavrinApp_DebugFGImg(onlyA.data(), &pathA[0]);
    const off_t sizeA = fileSize(pathA);
    ASSERT_GT(sizeA, 0);

    auto slots = slotsOf({infoA, infoB, infoC});
    std::string path = dir + "/short.tif";
    const Bytes mmrA = a.mmr, mmrB = b.mmr;
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);  // an over-long write fails instead
        struct rlimit limit;
        limit.rlim_cur = limit.rlim_max = static_cast<rlim_t>(sizeA + 128);
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(3);
        TavrinApp_DebugFGImg(slots.data(), &path[0]);
#if defined(__SANITIZE_ADDRESS__)
        // _exit skips the exit-time leak check; the abandoned page must not
        // leak either.
        if (__lsan_do_recoverable_leak_check() != 0) _exit(4);
#endif
        _exit(a.mmr == mmrA && b.mmr == mmrB ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: caller's MMR bytes changed, 4: leak";

    // Page A is complete, nothing links to the broken page, and libtiff
    // reads the file without a complaint.
    libtiffErrors = 0;
    TIFFErrorHandler old = TIFFSetErrorHandler(countError);
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    ASSERT_NE(tif, nullptr);
    EXPECT_EQ(TIFFNumberOfDirectories(tif), 1);
    expectPage(tif, infoA, a);
    EXPECT_FALSE(TIFFReadDirectory(tif));
    TIFFClose(tif);
    TIFFSetErrorHandler(old);
    EXPECT_EQ(libtiffErrors, 0);
}

}  // namespace
