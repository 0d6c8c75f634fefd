// Size against quality on the bundled pages: the tavrin PDF is at most a
// third of the size of a PDF holding the page as one 300-dpi JPEG at
// quality 75 (made here with the same library encoder and PDF writer), and
// its rendering keeps a PSNR of at least 30 dB against the source page in
// both readers.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "cli/commands.h"
#include "e2e_support.h"
#include "generated_pages.h"
#include "pipeline/layer_encoders.h"
#include "pipeline/pdf_writer.h"

using namespace e2e;

namespace {

void referencePdf(const tavrin::Page& page, const std::string& path) {
    tavrin::EncodedPage e;
    e.width = page.width, e.height = page.height, e.dpiX = page.dpiX, e.dpiY = page.dpiY;
    int quality = 0;
    e.background = tavrin::encodeJpeg(page, 75, 0, 0, "reference", &quality);
    ASSERT_EQ(quality, 75);
    e.backgroundWidth = page.width, e.backgroundHeight = page.height, e.backgroundChannels = page.channels;
    tavrin::PdfWriter w;
    w.addPage(e);
    std::ofstream(path, std::ios::binary) << w.toBytes();
}

void checkPage(const std::string& name, const std::string& source) {
    if (!haveProgram("mutool") || !haveProgram("gs")) GTEST_SKIP() << "mutool and gs are needed";
    const std::string dir = scratchDir("size-" + name);
    tavrin::Page page = readPage(source);
    tavrin::settleResolution(page, 0);
    referencePdf(page, dir + "/reference.pdf");
    const RunResult r = runTavrin({"compress", source, "-o", dir + "/tavrin.pdf"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const long long ours = fileSize(dir + "/tavrin.pdf"), reference = fileSize(dir + "/reference.pdf");
    const bool colour = page.channels == 3;
    const Metrics refMu = compare(page, render(dir + "/reference.pdf", Reader::MuPdf, 300, colour));
    std::printf("    %s: reference PDF (JPEG q75, 300 dpi) %lld bytes, PSNR %.2f dB (mutool)\n", name.c_str(),
                reference, refMu.psnr);
    std::printf("    %s: tavrin PDF %lld bytes = %.1f%% of the reference\n", name.c_str(), ours,
                100.0 * ours / reference);
    EXPECT_LE(ours * 3, reference) << name;
    for (Reader reader : {Reader::MuPdf, Reader::Ghostscript}) {
        const Metrics m = compare(page, render(dir + "/tavrin.pdf", reader, 300, colour));
        std::printf("    %s: tavrin PDF in %s: PSNR %.2f dB, MAE %.2f\n", name.c_str(), readerName(reader), m.psnr,
                    m.mae);
        EXPECT_GE(m.psnr, 30.0) << name << " " << readerName(reader);
    }
}

}  // namespace

TEST(SizeQuality, SamplePage) { checkPage("sample page", samplePage()); }

TEST(SizeQuality, TextOnlyPage) { checkPage("text page", sampleTextPage()); }
