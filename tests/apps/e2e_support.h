// Running the tavrin program, rendering its PDFs with two independent
// readers and comparing images.
#ifndef TAVRIN_E2E_SUPPORT_H
#define TAVRIN_E2E_SUPPORT_H

#include <string>
#include <vector>

#include "pipeline/page.h"
#include "pipeline/picture_detector.h"

namespace e2e {

struct RunResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// Runs the tavrin binary with `args` (no shell interpretation of them).
RunResult runTavrin(const std::vector<std::string>& args);

// A fresh directory below $TAVRIN_TEST_TMP for one test.
std::string scratchDir(const std::string& name);

bool fileExists(const std::string& path);
long long fileSize(const std::string& path);
// Names in `dir` (no . and ..).
std::vector<std::string> listDir(const std::string& dir);
bool haveProgram(const char* name);

enum class Reader { MuPdf, Ghostscript };
const char* readerName(Reader r);

// Page `pageNo` (from 1) of `pdf` rendered at `dpi`, gray or RGB.
tavrin::Page render(const std::string& pdf, Reader reader, int dpi, bool colour, int pageNo = 1);

struct Metrics {
    double mae = 0;   // mean absolute error per sample
    double psnr = 0;  // dB over all samples (peak 255)
};
// Compares two images of the same channel count over `area` (default: all
// they share).
Metrics compare(const tavrin::Page& a, const tavrin::Page& b, tavrin::Rect area = {0, 0, 1 << 30, 1 << 30});

// What tesseract (English) reads in `area` of `page`; empty when tesseract
// is missing.
std::string ocr(const tavrin::Page& page, const tavrin::Rect& area);
// Character error rate of `got` against `want`: edit distance over the
// length of `want`, whitespace runs counted as one space.
double characterErrorRate(const std::string& want, const std::string& got);

tavrin::Page readPage(const std::string& path);

// Regions of the first page of a `tavrin detect --json` report.
std::vector<tavrin::Rect> jsonRegions(const std::string& json);
// Value of a "key": VALUE field (first occurrence), as text.
std::string jsonField(const std::string& json, const std::string& key);
std::string readFile(const std::string& path);

// Share of `r` covered by the union of `regions`.
double coveredShare(const tavrin::Rect& r, const std::vector<tavrin::Rect>& regions);

}  // namespace e2e

#endif
