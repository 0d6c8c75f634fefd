#include "cli/commands.h"

#include <cstdio>
#include <sys/stat.h>

#include "cli/document_compressor.h"
#include "cli/page_detection.h"
#include "cli/progress.h"
#include "formats/atomic_output.h"
#include "formats/detect_report.h"
#include "formats/page_reader.h"
#include "formats/write_png.h"
#include "pipeline/app_error.h"

#ifndef TAVRIN_SAMPLE_PAGE
#define TAVRIN_SAMPLE_PAGE "samples/sample-page.jpg"
#endif

namespace tavrin {

namespace {

constexpr double kDefaultDpi = 300;

std::string pageLabel(const std::string& file, int number, int count) {
    return count > 1 ? file + " page " + std::to_string(number) : file;
}

// "out/x-overlay.png" -> "out/x-overlay-p2.png" for page 2 and later.
std::string perPagePath(const std::string& path, int number) {
    if (number == 1) return path;
    const size_t slash = path.rfind('/'), dot = path.rfind('.');
    const std::string suffix = "-p" + std::to_string(number);
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return path + suffix;
    return path.substr(0, dot) + suffix + path.substr(dot);
}

std::string percent(double share) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.1f%%", share * 100.0);
    return buf;
}

std::string rectText(const Rect& r) {
    return "x " + std::to_string(r.x0) + ", y " + std::to_string(r.y0) + ", " + std::to_string(r.width()) + " x " +
           std::to_string(r.height());
}

std::string imageText(const EncodedImage& e) {
    std::string t = std::to_string(e.width) + " x " + std::to_string(e.height) + " pixels, JPEG quality " +
                    std::to_string(e.quality);
    if (e.flate) t += ", Flate-wrapped from " + std::to_string(e.jpegBytes) + " bytes";
    return t + ": " + std::to_string(e.data.size()) + " bytes";
}

void explainPage(const std::string& label, const Page& page, const PageReport& rep, const EncodedPage& enc) {
    std::printf("%s: %d x %d pixels, %g x %g dpi, %s\n", label.c_str(), page.width, page.height, page.dpiX,
                page.dpiY, page.channels == 3 ? "colour" : "gray");
    if (!rep.detectionRan) std::printf("  pictures: detection off\n");
    if (rep.detectionRan)
        std::printf("  pictures: %zu region%s, %s of the page\n", enc.pictures.size(),
                    enc.pictures.size() == 1 ? "" : "s", percent(rep.detection.coverage).c_str());
    for (const EncodedImage& p : enc.pictures)
        std::printf("    %s: %s\n", rectText(p.box).c_str(), imageText(p).c_str());
    std::printf("  background (1/%d): %s\n", rep.backgroundFactor, imageText(enc.background).c_str());
    for (const Fill& f : enc.fills)
        std::printf("    tint %s: #%02x%02x%02x\n", rectText(f.box).c_str(), f.colour[0], f.colour[1], f.colour[2]);
    size_t text = 0;
    for (const EncodedLayer& l : enc.layers) text += l.mmr.size();
    std::printf("  text: %zu mask%s, %zu bytes\n", enc.layers.size(), enc.layers.size() == 1 ? "" : "s", text);
    for (const EncodedLayer& l : enc.layers)
        std::printf("    colour #%02x%02x%02x, %d x %d, %llu pixels: %zu bytes\n", l.colour[0], l.colour[1],
                    l.colour[2], l.width, l.height, static_cast<unsigned long long>(l.pixels), l.mmr.size());
    std::printf("  streams: %zu bytes = %s of the %zu raw bytes (1:%.0f)\n", enc.bytes(),
                percent(double(enc.bytes()) / rep.rawBytes).c_str(), rep.rawBytes,
                double(rep.rawBytes) / double(enc.bytes()));
}

// qpdf assembles the document in memory; it reaches the disk only whole.
void writePdf(DocumentCompressor& document, const std::string& path) {
    AtomicOutput out(path);
    out.write(document.pdfBytes(path));
    out.commit();
}

void reducedNote(const std::string& label, const Page& page, const DetectResult& r) {
    if (!r.reducedForLimits) return;
    std::fprintf(stderr,
                 "tavrin: note: %s is %d x %d pixels, beyond the picture detector's limits; "
                 "detecting on a copy reduced to 1/%d\n",
                 label.c_str(), page.width, page.height, r.reduction);
}

}  // namespace

std::string inputPath(const Options& o) {
    return o.page.empty() ? std::string(TAVRIN_SAMPLE_PAGE) : o.page;
}

std::string settleResolution(Page& page, double optionDpi) {
    if (optionDpi > 0) {
        page.dpiX = page.dpiY = optionDpi;
        return "option";
    }
    auto usable = [](double d) { return d >= 10 && d <= 10000; };
    if (usable(page.dpiX)) {
        if (!usable(page.dpiY)) page.dpiY = page.dpiX;
        return "file";
    }
    page.dpiX = page.dpiY = kDefaultDpi;
    return "default";
}

int runDetect(const Options& o) {
    const std::string file = inputPath(o);
    const std::vector<Rect> tables = o.tablesFile.empty() ? std::vector<Rect>() : readTablesFile(o.tablesFile);
    auto reader = PageReader::open(file);
    const int count = reader->pageCount();
    const std::string stem = stemOf(file);
    const std::string overlay = o.overlayPath.empty() ? stem + "-overlay.png" : o.overlayPath;
    const std::string json = o.jsonPath.empty() ? stem + ".json" : o.jsonPath;
    // Refuse an unwritable report before the work is done.
    std::unique_ptr<AtomicOutput> jsonOut;
    if (json != "-") jsonOut.reset(new AtomicOutput(json));

    PictureDetector detector;
    DetectionRunInfo run{file, formatName(reader->format()), o.settings.detect, tables};
    std::vector<PageDetection> pages;
    std::vector<std::unique_ptr<AtomicOutput>> overlays;  // committed with the report, all or none
    Progress progress(count);
    Page page;
    for (int n = 1; reader->next(page); ++n) {
        const std::string label = pageLabel(file, n, count);
        PageDetection pd = detectPage(detector, page, o, tables, n, count, label);
        reducedNote(label, page, pd.result);
        pd.overlayPath = perPagePath(overlay, n);
        overlays.emplace_back(new AtomicOutput(pd.overlayPath));
        writePng(makeOverlay(page, pd.result.regions), *overlays.back());
        pages.push_back(pd);
        progress.update(n);
    }
    const std::string report = detectionJson(run, pages);
    std::vector<AtomicOutput*> outputs;
    for (auto& o : overlays) outputs.push_back(o.get());
    if (jsonOut) {
        jsonOut->write(report);
        outputs.push_back(jsonOut.get());
    }
    AtomicOutput::commitAll(outputs);
    if (!jsonOut) std::fputs(report.c_str(), stdout);
    if (!o.quiet && json != "-") {
        for (const PageDetection& pd : pages) {
            const DetectResult& r = pd.result;
            std::printf("%s: %d x %d pixels at %g dpi: %s, %zu region%s, %s of the page (iPictPixelNum %d of %d)\n",
                        pageLabel(file, pd.number, count).c_str(), pd.width, pd.height, pd.dpiX,
                        r.picturePage ? "picture page" : "not a picture page", r.regions.size(),
                        r.regions.size() == 1 ? "" : "s", percent(r.coverage).c_str(), r.pictPixelNum,
                        r.planePixels);
            for (const Rect& g : r.regions) std::printf("  picture at %s\n", rectText(g).c_str());
            std::printf("  overlay: %s\n", pd.overlayPath.c_str());
        }
        std::printf("report: %s\n", json.c_str());
    }
    return kExitOk;
}

int runCompress(const Options& o) {
    const std::string file = inputPath(o);
    DocumentCompressor document(o);
    auto reader = PageReader::open(file);
    const int count = reader->pageCount();
    const std::string output = o.outputPath.empty() ? stemOf(file) + ".pdf" : o.outputPath;
    { AtomicOutput probe(output); }  // refuse an unwritable output before the work is done

    Progress progress(count);
    size_t rawTotal = 0;
    Page page;
    int pagesDone = 0;
    for (int n = 1; reader->next(page); ++n) {
        const std::string label = pageLabel(file, n, count);
        const CompressedPage done = document.addPage(page, n, count, label);
        const EncodedPage& enc = done.encoded;
        const PageReport& rep = done.report;
        if (rep.detectionRan) reducedNote(label, page, rep.detection);
        rawTotal += rep.rawBytes;
        if (o.explain) explainPage(label, page, rep, enc);
        pagesDone = n;
        progress.update(n);
    }
    writePdf(document, output);
    if (!o.quiet) {
        struct stat st;
        const long long size = stat(output.c_str(), &st) == 0 ? (long long)st.st_size : -1;
        std::printf("%s: %d page%s, %lld bytes (%s of the %zu raw bytes of %s)\n", output.c_str(), pagesDone,
                    pagesDone == 1 ? "" : "s", size, percent(double(size) / double(rawTotal)).c_str(), rawTotal,
                    file.c_str());
    }
    return kExitOk;
}

}  // namespace tavrin
