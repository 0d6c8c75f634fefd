// One PDF from pages handed over one at a time, with the options of
// `tavrin compress`: the page pipeline and the PDF assembly that the program
// and the Python module share, so that both give the same bytes for the
// same pages and options.
#ifndef TAVRIN_APP_DOCUMENT_COMPRESSOR_H
#define TAVRIN_APP_DOCUMENT_COMPRESSOR_H

#include <string>
#include <vector>

#include "cli/options.h"
#include "pipeline/encoded_page.h"
#include "pipeline/page_compressor.h"
#include "pipeline/pdf_writer.h"
#include "pipeline/picture_detector.h"

namespace tavrin {

struct CompressedPage {
    EncodedPage encoded;
    PageReport report;
    std::string dpiSource;  // "option", "file" or "default"
};

class DocumentCompressor {
public:
    // Reads the options' tables file (AppError as readTablesFile).
    explicit DocumentCompressor(const Options& options);

    // Settles the page's resolution (--dpi, else the page's, else 300),
    // compresses page `number` of `count` and appends it to the PDF.
    // `label` names the page in error messages.
    CompressedPage addPage(Page& page, int number, int count, const std::string& label);

    // The whole document; AppError(kExitFailure) naming `name` when qpdf
    // cannot assemble it.
    std::string pdfBytes(const std::string& name);

    const std::vector<Rect>& tables() const { return tables_; }

private:
    Options options_;
    std::vector<Rect> tables_;
    PictureDetector detector_;
    PdfWriter pdf_;
};

// The dump directory of page `number` of `count`: one subdirectory per page
// of a multi-page input (created here), the directory itself otherwise.
std::string dumpDirFor(const std::string& base, int number, int count);

}  // namespace tavrin

#endif
