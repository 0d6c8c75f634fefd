#include "pipeline_calls.h"

#include <algorithm>
#include <mutex>

#include "cli/commands.h"
#include "cli/document_compressor.h"
#include "cli/page_detection.h"
#include "encoders.h"
#include "formats/atomic_output.h"
#include "formats/detect_report.h"
#include "formats/page_reader.h"
#include "pipeline/app_error.h"

namespace tavrin_python {

namespace {

tavrin::Command commandOf(const std::string& name) {
    if (name == "detect") return tavrin::Command::Detect;
    if (name == "compress") return tavrin::Command::Compress;
    throw tavrin::AppError(tavrin::kExitUsage, "unknown command '" + name + "' (detect, compress)");
}

std::vector<tavrin::Rect> tablesOf(const tavrin::Options& o) {
    return o.tablesFile.empty() ? std::vector<tavrin::Rect>() : tavrin::readTablesFile(o.tablesFile);
}

}  // namespace

tavrin::Options parseOptions(const std::string& command, const std::vector<std::string>& words) {
    return tavrin::parseOptions(commandOf(command), words);
}

py::tuple detectArray(const PixelArray& array, const tavrin::Options& o) {
    const PageView view = viewPage(array, "page");
    std::string report;
    std::vector<uint8_t> mask;
    int maskWidth = 0, maskHeight = 0;
    {
        py::gil_scoped_release noGil;
        const std::vector<tavrin::Rect> tables = tablesOf(o);
        tavrin::Page page = copyPage(view);
        tavrin::PictureDetector detector;
        const tavrin::PageDetection pd = tavrin::detectPage(detector, page, o, tables, 1, 1, "page");
        const tavrin::DetectResult& r = pd.result;
        maskWidth = r.planeWidth, maskHeight = r.planeHeight;
        mask.assign(size_t(std::max(0, maskWidth)) * std::max(0, maskHeight), 0);
        // A page without picture pixels may not have reached the detector,
        // which then left no mask behind.
        if (r.pictPixelNum > 0) std::copy_n(detector.pictureMask(), mask.size(), mask.begin());
        const tavrin::DetectionRunInfo run{"", "array", o.settings.detect, tables};
        report = tavrin::detectionJson(run, {pd});
    }
    return py::make_tuple(report, boolArray(mask.data(), maskWidth, maskHeight));
}

py::bytes compressArrays(const std::vector<PixelArray>& arrays, const tavrin::Options& o) {
    std::vector<PageView> views;
    for (size_t i = 0; i < arrays.size(); ++i) views.push_back(viewPage(arrays[i], "page " + std::to_string(i + 1)));
    std::string pdf;
    {
        py::gil_scoped_release noGil;
        std::lock_guard<std::mutex> one(mmrLock());
        tavrin::DocumentCompressor document(o);
        const int count = int(views.size());
        for (int n = 1; n <= count; ++n) {
            tavrin::Page page = copyPage(views[n - 1]);
            document.addPage(page, n, count, "page " + std::to_string(n));
        }
        pdf = document.pdfBytes("the PDF");
    }
    return py::bytes(pdf);
}

py::tuple compressFile(const std::string& path, const tavrin::Options& o, bool withReport) {
    std::string pdf, report;
    int count = 0;
    {
        py::gil_scoped_release noGil;
        std::lock_guard<std::mutex> one(mmrLock());
        tavrin::DocumentCompressor document(o);
        auto reader = tavrin::PageReader::open(path);
        count = reader->pageCount();
        std::vector<tavrin::PageDetection> pages;
        tavrin::Page page;
        for (int n = 1; reader->next(page); ++n) {
            const std::string label = count > 1 ? path + " page " + std::to_string(n) : path;
            const tavrin::CompressedPage done = document.addPage(page, n, count, label);
            if (withReport) pages.push_back(tavrin::pageDetection(page, n, done.dpiSource, done.report.detection));
        }
        pdf = document.pdfBytes(path);
        if (withReport) {
            const tavrin::DetectionRunInfo run{path, tavrin::formatName(reader->format()), o.settings.detect,
                                               document.tables()};
            report = tavrin::detectionJson(run, pages);
        }
    }
    return py::make_tuple(py::bytes(pdf), withReport ? py::object(py::str(report)) : py::object(py::none()),
                          count);
}

void writeFile(const std::string& path, const std::string& data) {
    py::gil_scoped_release noGil;
    tavrin::AtomicOutput out(path);
    out.write(data);
    out.commit();
}

}  // namespace tavrin_python
