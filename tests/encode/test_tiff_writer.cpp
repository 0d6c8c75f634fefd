// Tavrin_WriteTIFF: the file read back with libtiff has the fields, strips
// and pixels expected.
#include <TavrinEncode.h>
#include <gtest/gtest.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "encode_support.h"

namespace {

struct ReadBack {
    uint32_t width = 0, height = 0, rowsPerStrip = 0;
    uint16_t bits = 0, samples = 0, compression = 0, photometric = 0, fillOrder = 0,
             planar = 0, orientation = 0, resUnit = 0;
    float xRes = 0, yRes = 0;
    std::string software;
    std::vector<tmsize_t> stripSizes;  // decoded bytes per strip
    std::vector<uint8_t> pixels;
};

ReadBack readBack(const std::string& path) {
    ReadBack r;
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    EXPECT_NE(tif, nullptr);
    if (tif == nullptr) return r;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &r.width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &r.height);
    TIFFGetField(tif, TIFFTAG_ROWSPERSTRIP, &r.rowsPerStrip);
    TIFFGetField(tif, TIFFTAG_BITSPERSAMPLE, &r.bits);
    TIFFGetField(tif, TIFFTAG_SAMPLESPERPIXEL, &r.samples);
    TIFFGetField(tif, TIFFTAG_COMPRESSION, &r.compression);
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &r.photometric);
    TIFFGetField(tif, TIFFTAG_FILLORDER, &r.fillOrder);
    TIFFGetField(tif, TIFFTAG_PLANARCONFIG, &r.planar);
    TIFFGetField(tif, TIFFTAG_ORIENTATION, &r.orientation);
    TIFFGetField(tif, TIFFTAG_RESOLUTIONUNIT, &r.resUnit);
    TIFFGetField(tif, TIFFTAG_XRESOLUTION, &r.xRes);
    TIFFGetField(tif, TIFFTAG_YRESOLUTION, &r.yRes);
    char* software = nullptr;
    if (TIFFGetField(tif, TIFFTAG_SOFTWARE, &software)) r.software = software;
    const tmsize_t stripMax = TIFFStripSize(tif);
    std::vector<uint8_t> strip(stripMax);
    for (uint32_t s = 0; s < TIFFNumberOfStrips(tif); ++s) {
        tmsize_t got = TIFFReadEncodedStrip(tif, s, strip.data(), stripMax);
        r.stripSizes.push_back(got);
        if (got > 0) r.pixels.insert(r.pixels.end(), strip.begin(), strip.begin() + got);
    }
    TIFFClose(tif);
    return r;
}

class TiffWriter : public ::testing::Test {
protected:
    std::string path(const std::string& name) { return encode_test::scratchDir("tiffw") + "/" + name; }
    encode_test::QuietTiff quiet_;  // libtiff warns about the legacy Deflate code
};

TEST_F(TiffWriter, GrayFieldsStripsAndPixels) {
    auto px = encode_test::continuousTone(57, 300, 1);
    ImgTavrin img{px.data(), 57, 300, 30000, 7500, 0};
    const std::string file = path("gray.tif");
    ASSERT_EQ(Tavrin_WriteTIFF(file.c_str(), &img), 0);
    ReadBack r = readBack(file);
    EXPECT_EQ(r.width, 57u);
    EXPECT_EQ(r.height, 300u);
    EXPECT_EQ(r.bits, 8);
    EXPECT_EQ(r.samples, 1);
    EXPECT_EQ(r.compression, 32946);
    EXPECT_EQ(r.photometric, PHOTOMETRIC_MINISBLACK);
    EXPECT_EQ(r.fillOrder, 1);
    EXPECT_EQ(r.planar, PLANARCONFIG_CONTIG);
    EXPECT_EQ(r.orientation, ORIENTATION_TOPLEFT);
    EXPECT_EQ(r.resUnit, RESUNIT_INCH);
    EXPECT_FLOAT_EQ(r.xRes, 300.0f);
    EXPECT_FLOAT_EQ(r.yRes, 75.0f);
    EXPECT_EQ(r.software, file);
    EXPECT_EQ(r.rowsPerStrip, 128u);
    EXPECT_EQ(r.stripSizes, (std::vector<tmsize_t>{128 * 57, 128 * 57, 44 * 57}));
    EXPECT_EQ(r.pixels, px);
}

TEST_F(TiffWriter, ColourTypesAreRgb) {
    for (uint8_t type : {1, 2, 7}) {
        auto px = encode_test::continuousTone(31, 129, 3, type);
        ImgTavrin img{px.data(), 31, 129, 20000, 20000, type};
        const std::string file = path("rgb" + std::to_string(type) + ".tif");
        ASSERT_EQ(Tavrin_WriteTIFF(file.c_str(), &img), 0);
        ReadBack r = readBack(file);
        EXPECT_EQ(r.samples, 3);
        EXPECT_EQ(r.photometric, PHOTOMETRIC_RGB);
        EXPECT_EQ(r.stripSizes, (std::vector<tmsize_t>{128 * 93, 1 * 93}));  // 128 + 1 rows
        EXPECT_EQ(r.pixels, px);
    }
}

TEST_F(TiffWriter, OneStripUpTo128Rows) {
    auto px = encode_test::continuousTone(10, 128, 1);
    ImgTavrin img{px.data(), 10, 128, 30000, 30000, 0};
    const std::string file = path("one.tif");
    ASSERT_EQ(Tavrin_WriteTIFF(file.c_str(), &img), 0);
    EXPECT_EQ(readBack(file).stripSizes, (std::vector<tmsize_t>{128 * 10}));
    img.usHeight = 1;
    ASSERT_EQ(Tavrin_WriteTIFF(file.c_str(), &img), 0);  // replaces the file
    ReadBack r = readBack(file);
    EXPECT_EQ(r.height, 1u);
    EXPECT_EQ(r.stripSizes, (std::vector<tmsize_t>{10}));
}

TEST_F(TiffWriter, RefusalsTouchNoFile) {
    std::vector<uint8_t> px(64, 9);
    const std::string file = path("refused.tif");
    unlink(file.c_str());
    ImgTavrin bilevel{px.data(), 8, 8, 30000, 30000, 3};
    EXPECT_EQ(Tavrin_WriteTIFF(file.c_str(), &bilevel), -1);
    ImgTavrin odd{px.data(), 8, 8, 30000, 30000, 4};
    EXPECT_EQ(Tavrin_WriteTIFF(file.c_str(), &odd), -1);
    // Zero rows: refused before anything is opened; no pixel is read.
    ImgTavrin empty{nullptr, 8, 0, 30000, 30000, 0};
    EXPECT_EQ(Tavrin_WriteTIFF(file.c_str(), &empty), -1);
    ImgTavrin noPixels{nullptr, 8, 8, 30000, 30000, 0};
    EXPECT_EQ(Tavrin_WriteTIFF(file.c_str(), &noPixels), -1);
    EXPECT_FALSE(tavrin_test::fileExists(file));
    ImgTavrin gray{px.data(), 8, 8, 30000, 30000, 0};
    EXPECT_EQ(Tavrin_WriteTIFF((file + "/no/such/dir.tif").c_str(), &gray), -1);
    EXPECT_EQ(Tavrin_WriteTIFF(nullptr, &gray), -1);
    EXPECT_EQ(Tavrin_WriteTIFF(file.c_str(), nullptr), -1);
}

}  // namespace
