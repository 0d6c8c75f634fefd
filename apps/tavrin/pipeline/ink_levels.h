// Splits a page into ink bands with a local threshold: every pixel is given
// its level between the local paper and ink levels (block estimates), and
// the levels are cut into `count` bands of equal width. Band 0 is the
// darkest ink; band `count` is everything that is not ink (paper, pictures,
// light marks), which stays in the background layer.
#ifndef TAVRIN_APP_INK_LEVELS_H
#define TAVRIN_APP_INK_LEVELS_H

#include <vector>

#include "pipeline/page.h"
#include "pipeline/picture_detector.h"

namespace tavrin {

constexpr int kMaxInkLevels = 4;

struct InkBands {
    int count = 1;  // number of ink bands
    Plane band;     // 0 .. count per page pixel
};

// `minContrast`: blocks whose paper and ink levels differ by less hold no
// ink. Pixels inside `pictures` are never ink.
InkBands splitInk(const Plane& gray, double dpi, int count, int minContrast,
                  const std::vector<Rect>& pictures);

}  // namespace tavrin

#endif
