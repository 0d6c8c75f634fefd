// Generated scan-like pages with known content: lines of glyph-like strokes
// (anti-aliased), paper tint and sensor noise, and photographs cut from the
// bundled sample page.
#ifndef TAVRIN_GENERATED_PAGES_H
#define TAVRIN_GENERATED_PAGES_H

#include <string>
#include <utility>
#include <vector>

#include "pipeline/page.h"
#include "pipeline/picture_detector.h"

namespace e2e {

struct GeneratedPage {
    tavrin::Page page;
    std::vector<std::pair<int, int>> strokeCentres;  // pixels fully inside a stroke
    std::vector<tavrin::Rect> photos;                // where photographs were placed
};

// A page of text columns at 300 dpi: 10-point-sized glyphs of bars, rings
// and arches in near-black on off-white paper. `skip` rectangles stay free
// of text (room for photographs).
GeneratedPage makeTextPage(int width, int height, bool colour, unsigned seed,
                           const std::vector<tavrin::Rect>& skip = {});

// Copies the photograph at `from` of the bundled sample page to (x, y).
void pastePhoto(GeneratedPage& g, const tavrin::Rect& from, int x, int y);

// The two photographs of the bundled sample page (page pixels).
tavrin::Rect samplePhotoCoffee();
tavrin::Rect samplePhotoCat();
std::string samplePage();
std::string sampleTextPage();

void writePnm(const tavrin::Page& page, const std::string& path);
// Every page into one TIFF (LZW), with its resolution.
void writeTiff(const std::vector<tavrin::Page>& pages, const std::string& path);

}  // namespace e2e

#endif
