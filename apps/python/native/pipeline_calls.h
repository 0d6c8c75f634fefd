// The program's own page pipeline behind the module: options through the
// program's parser, detection as `tavrin detect` reports it, and PDFs from
// the document compressor that `tavrin compress` uses. Each call releases
// the GIL for its whole run.
#ifndef TAVRIN_PYTHON_PIPELINE_CALLS_H
#define TAVRIN_PYTHON_PIPELINE_CALLS_H

#include <string>
#include <vector>

#include "cli/options.h"
#include "page_arrays.h"

namespace tavrin_python {

// Option words ("--quality=40", ...) of `tavrin detect` or `tavrin compress`.
tavrin::Options parseOptions(const std::string& command, const std::vector<std::string>& words);

// The JSON report of one page (as `tavrin detect --json` writes it) and the
// final picture mask (quarter grid of the detected page, true = picture).
py::tuple detectArray(const PixelArray& page, const tavrin::Options& options);

// One PDF of the pages, as `tavrin compress` writes it.
py::bytes compressArrays(const std::vector<PixelArray>& pages, const tavrin::Options& options);

// One PDF of every page of an image file, the detection report of its pages
// when `withReport` (else None), and the number of pages.
py::tuple compressFile(const std::string& path, const tavrin::Options& options, bool withReport);

// `data` written to `path` through the program's atomic output.
void writeFile(const std::string& path, const std::string& data);

}  // namespace tavrin_python

#endif
