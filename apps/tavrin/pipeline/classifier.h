// The picture classifier: which parts of a page are pictures (photographs
// with their plain and dark parts, halftone prints, illustrations) and which
// are text and line art. It writes the half-resolution attribute map that
// the library's detector takes: 112 for picture pixels, 255 for ink of text
// and line art, 0 for the rest (paper, tints).
//
// Method, on cells of 4 x 4 page pixels (the detector's quarter grid):
// 1. A cell is flat when its pixels span few levels; a flat cell at the
//    local paper colour is paper, a flat cell off it is tone; any other cell
//    holds an edge.
// 2. Blocks of 8 x 8 cells (2.7 mm at 300 dpi) where paper is scarce are
//    dense; 8-connected groups of dense blocks are the candidate areas. Text
//    never makes a block dense (the paper between its lines shows), big
//    type only in small islands.
// 3. A candidate area is a picture when it is large enough and either its
//    tones spread (a photograph: gradients, shading, any colour variety),
//    or edges fill nearly all of it (a halftone screen, a dense drawing), or
//    it is a big flat area with no ink in it (a dark, quiet photograph: a
//    tint box always carries text). A flat area with ink is a tint.
// 4. Picture areas get their holes filled (a white wall inside a photograph)
//    and are written as 112; outside them, pixels darker than the middle of
//    their local background and ink levels are written as 255.
#ifndef TAVRIN_APP_CLASSIFIER_H
#define TAVRIN_APP_CLASSIFIER_H

#include "pipeline/page.h"
#include "pipeline/page_measures.h"

namespace tavrin {

constexpr uint8_t kPictureAttribute = 112;
constexpr uint8_t kHighAttribute = 255;  // any value >= 128 is high-attribute

// What a picture is: continuous tone (photographs, halftones, quiet dark
// pictures) or a graphic (drawings, charts, diagrams), whose lines and
// lettering are better kept as text masks over it.
enum PictureKind : uint8_t { kPhoto = 1, kGraphic = 2 };

struct Classification {
    Plane attributes;   // half resolution: (width + 1) / 2 x (height + 1) / 2
    Plane pictureCells; // per 4 x 4 cell: 0, kPhoto or kGraphic
    Plane markedCells;  // 0/1 per cell: not paper (tone or edge)
};

// `page` and `gray` at `dpi`; `measures` taken on them.
Classification classifyPage(const Page& page, const Plane& gray, const PageMeasures& measures, double dpi);

}  // namespace tavrin

#endif
