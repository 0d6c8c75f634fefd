#include "cli/document_compressor.h"

#include <sys/stat.h>

#include <cstdio>

#include "cli/commands.h"
#include "pipeline/app_error.h"

namespace tavrin {

DocumentCompressor::DocumentCompressor(const Options& options)
    : options_(options),
      tables_(options.tablesFile.empty() ? std::vector<Rect>() : readTablesFile(options.tablesFile)) {}

CompressedPage DocumentCompressor::addPage(Page& page, int number, int count, const std::string& label) {
    CompressedPage out;
    out.dpiSource = settleResolution(page, options_.dpi);
    CompressSettings settings = options_.settings;
    settings.detect.dumpDir = dumpDirFor(settings.detect.dumpDir, number, count);
    out.encoded = compressPage(page, settings, detector_, tables_, label, &out.report);
    pdf_.addPage(out.encoded);
    return out;
}

std::string DocumentCompressor::pdfBytes(const std::string& name) {
    try {
        return pdf_.toBytes();
    } catch (const std::exception& e) {
        throw AppError(kExitFailure, name + ": cannot assemble the PDF: " + e.what());
    }
}

std::string dumpDirFor(const std::string& base, int number, int count) {
    if (base.empty() || count == 1) return base;
    struct stat st;
    if (stat(base.c_str(), &st) != 0) mkdir(base.c_str(), 0777);
    char name[32];
    std::snprintf(name, sizeof name, "/page-%03d", number);
    return base + name;
}

}  // namespace tavrin
