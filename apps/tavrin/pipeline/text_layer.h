// The text layer: ink (text and line art) as bi-level masks, one mask per
// ink colour, at the mask resolution.
//
// Method: a pixel is ink when it is darker than a level between its
// local background and local ink levels (local_levels.h) and that local
// contrast is real; the decision is taken on the page resampled to the mask
// resolution. Specks smaller than a full stop are dropped. Each remaining
// component gets its colour (the mean of its pixels, the darker ones
// weighing more, since its edges are mixed with the paper); the colours are
// grouped into at most `maxColours` clusters, greedily from the most-used
// colour, a new cluster opening only for a colour far from every cluster
// so far; each cluster becomes one mask. A dark field with light lettering
// cut out of it (light_lettering.h) gets two more: the field in its colour,
// the lettering in its own.
#ifndef TAVRIN_APP_TEXT_LAYER_H
#define TAVRIN_APP_TEXT_LAYER_H

#include <array>
#include <vector>

#include "pipeline/local_levels.h"
#include "pipeline/page.h"
#include "pipeline/rect.h"

namespace tavrin {

struct TextSettings {
    double maskDpi = 200;   // mask resolution; at most the page's
    double smallTextDpi = 300;  // for small type (median letter under 0.06 in); 0: none
    int maxColours = 4;     // ink masks at most (a dark field and its lettering add two)
    int minContrast = 50;   // background-to-ink contrast below which nothing is ink
};

struct TextMask {
    std::vector<uint8_t> packed;   // rows of (width + 7) / 8 bytes, set bit = ink
    std::array<uint8_t, 3> colour{};
    uint64_t pixels = 0;
};

struct TextLayer {
    int width = 0, height = 0;     // mask size
    double dpiX = 0, dpiY = 0;     // mask resolution
    std::vector<TextMask> masks;   // most ink first; a dark field and its lettering last
    double letterHeight = 0;       // median height of the letter-sized marks, inches;
                                   // 0 when there are too few to tell
    Plane pageInk;                 // 0/1 per page pixel: what the masks cover
};

// `levels` are measured on `gray`, `paperLevel` is the page's paper gray
// level; nothing inside `pictures` is ink.
TextLayer buildTextLayer(const Page& page, const Plane& gray, const LocalLevels& levels, int paperLevel,
                         const std::vector<Rect>& pictures, const TextSettings& settings);

}  // namespace tavrin

#endif
