// tavrin compress end to end: generated pages in, PDFs rendered by two
// independent readers, compared with the source pages.
//
// Limits (also in the README): against the source page a rendering at the
// page's resolution has a PSNR of at least 30 dB and a mean absolute error
// of at most 6 levels; every stroke centre of the source is dark (below
// mid-gray) in both renderings; the two readers agree to within 40 dB PSNR.
#define POINTERHOLDER_TRANSITION 4
#include <gtest/gtest.h>

#include <cstdio>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include "e2e_support.h"
#include "formats/write_png.h"
#include "generated_pages.h"

using namespace e2e;

namespace {

constexpr double kMinPsnr = 30.0;
constexpr double kMaxMae = 6.0;
constexpr double kMinReaderAgreement = 40.0;

class CompressE2E : public ::testing::Test {
protected:
    void SetUp() override {
        if (!haveProgram("mutool") || !haveProgram("gs")) GTEST_SKIP() << "mutool and gs are needed (scripts/deps.sh)";
    }

    // Renders page `pageNo` of `pdf` with both readers and checks it
    // against `src`.
    void checkRendering(const std::string& pdf, const GeneratedPage& src, int pageNo) {
        const bool colour = src.page.channels == 3;
        const int dpi = int(src.page.dpiX);
        tavrin::Page renders[2];
        int i = 0;
        for (Reader r : {Reader::MuPdf, Reader::Ghostscript}) {
            tavrin::Page img = render(pdf, r, dpi, colour, pageNo);
            EXPECT_NEAR(img.width, src.page.width, 1) << readerName(r);
            EXPECT_NEAR(img.height, src.page.height, 1) << readerName(r);
            const Metrics m = compare(src.page, img);
            std::printf("    %s page %d: PSNR %.2f dB, MAE %.2f\n", readerName(r), pageNo, m.psnr, m.mae);
            EXPECT_GE(m.psnr, kMinPsnr) << readerName(r) << " page " << pageNo;
            EXPECT_LE(m.mae, kMaxMae) << readerName(r) << " page " << pageNo;
            size_t dark = 0;
            for (const auto& c : src.strokeCentres) dark += img.row(c.second)[size_t(c.first) * img.channels] < 128;
            ASSERT_FALSE(src.strokeCentres.empty());
            EXPECT_GE(double(dark) / src.strokeCentres.size(), 0.99) << readerName(r) << ": strokes missing";
            renders[i++] = std::move(img);
        }
        EXPECT_GE(compare(renders[0], renders[1]).psnr, kMinReaderAgreement) << "the readers disagree";
    }
};

struct PdfImages {
    int pages = 0;
    std::vector<std::string> backgroundFilters;  // unparsed /Filter of each background
    int masks = 0;
    bool masksAreT6 = true;
    bool backgroundsAreJpeg = true;
};

PdfImages inspect(const std::string& path) {
    QPDF pdf;
    pdf.processFile(path.c_str());
    PdfImages out;
    for (QPDFPageObjectHelper& page : QPDFPageDocumentHelper(pdf).getAllPages()) {
        ++out.pages;
        // getImages() leaves image masks out; walk the XObjects instead.
        QPDFObjectHandle xobjects = page.getObjectHandle().getKey("/Resources").getKey("/XObject");
        for (const std::string& key : xobjects.getKeys()) {
            QPDFObjectHandle img = xobjects.getKey(key);
            QPDFObjectHandle dict = img.getDict();
            if (dict.getKey("/ImageMask").isBool() && dict.getKey("/ImageMask").getBoolValue()) {
                ++out.masks;
                QPDFObjectHandle parms = dict.getKey("/DecodeParms");
                out.masksAreT6 = out.masksAreT6 && dict.getKey("/Filter").unparse() == "/CCITTFaxDecode" &&
                                 parms.getKey("/K").getIntValue() == -1;
            } else {
                const std::string filter = dict.getKey("/Filter").unparse();
                out.backgroundFilters.push_back(filter);
                if (filter == "/DCTDecode") {
                    const std::string raw = img.getRawStreamData()->getSize() > 2
                                                ? std::string(reinterpret_cast<const char*>(
                                                                  img.getRawStreamData()->getBuffer()), 2)
                                                : "";
                    out.backgroundsAreJpeg = out.backgroundsAreJpeg && raw == "\xFF\xD8";
                }
            }
        }
    }
    return out;
}

}  // namespace

TEST_F(CompressE2E, GrayTextPageFromPng) {
    const std::string dir = scratchDir("gray-png");
    GeneratedPage g = makeTextPage(1748, 2480, false, 1);
    tavrin::writePng(g.page, dir + "/page.png");
    const RunResult r = runTavrin({"compress", dir + "/page.png", "-o", dir + "/page.pdf", "--explain"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("foreground: 3 masks"), std::string::npos) << r.out;
    const PdfImages info = inspect(dir + "/page.pdf");
    EXPECT_EQ(info.pages, 1);
    EXPECT_EQ(info.masks, 3);
    EXPECT_TRUE(info.masksAreT6);
    ASSERT_EQ(info.backgroundFilters.size(), 1u);
    EXPECT_EQ(info.backgroundFilters[0], "/DCTDecode");
    EXPECT_TRUE(info.backgroundsAreJpeg);
    checkRendering(dir + "/page.pdf", g, 1);
}

TEST_F(CompressE2E, MultiPageTiffGivesOnePdfPagePerPage) {
    const std::string dir = scratchDir("tiff");
    GeneratedPage colour = makeTextPage(1748, 2480, true, 2, {tavrin::Rect{200, 700, 1250, 1400}});
    pastePhoto(colour, samplePhotoCat(), 230, 720);
    GeneratedPage gray = makeTextPage(1400, 1100, false, 3);
    writeTiff({colour.page, gray.page}, dir + "/two.tif");
    const RunResult r = runTavrin({"compress", dir + "/two.tif", "-o", dir + "/two.pdf", "--flate"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");  // no progress bar when standard error is not a terminal
    const PdfImages info = inspect(dir + "/two.pdf");
    EXPECT_EQ(info.pages, 2);
    for (const std::string& f : info.backgroundFilters) EXPECT_EQ(f, "[ /FlateDecode /DCTDecode ]");
    EXPECT_TRUE(info.masksAreT6);
    checkRendering(dir + "/two.pdf", colour, 1);
    checkRendering(dir + "/two.pdf", gray, 2);
}

TEST_F(CompressE2E, PnmWithResolutionOption) {
    const std::string dir = scratchDir("pnm");
    GeneratedPage g = makeTextPage(1200, 900, true, 4);
    writePnm(g.page, dir + "/page.ppm");
    // PNM carries no resolution: --dpi sets the page size in the PDF.
    const RunResult r = runTavrin({"compress", dir + "/page.ppm", "-o", dir + "/page.pdf", "--dpi", "150"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    QPDF pdf;
    pdf.processFile((dir + "/page.pdf").c_str());
    const auto box = QPDFPageDocumentHelper(pdf).getAllPages().at(0).getMediaBox().getArrayAsRectangle();
    EXPECT_NEAR(box.urx, 1200 * 72.0 / 150, 0.01);
    EXPECT_NEAR(box.ury, 900 * 72.0 / 150, 0.01);
    g.page.dpiX = g.page.dpiY = 150;
    checkRendering(dir + "/page.pdf", g, 1);
}

TEST_F(CompressE2E, SingleLevelAndChromaOptions) {
    const std::string dir = scratchDir("options");
    GeneratedPage g = makeTextPage(1300, 1000, true, 5);
    tavrin::writePng(g.page, dir + "/page.png");
    const RunResult r = runTavrin({"compress", dir + "/page.png", "-o", dir + "/page.pdf", "--levels", "1",
                                   "--quality", "60", "--chroma-offset", "-20", "--sampling", "444",
                                   "--bg-dpi", "150"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(inspect(dir + "/page.pdf").masks, 1);
    // One bi-level layer keeps every stroke; its PSNR limit is lower (the
    // anti-aliased edges are quantised to two levels).
    const tavrin::Page img = render(dir + "/page.pdf", Reader::MuPdf, 300, true);
    size_t dark = 0;
    for (const auto& c : g.strokeCentres) dark += img.row(c.second)[size_t(c.first) * 3] < 128;
    EXPECT_GE(double(dark) / g.strokeCentres.size(), 0.99);
    EXPECT_GE(compare(g.page, img).psnr, 24.0);
}
