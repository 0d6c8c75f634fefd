// Local background and ink levels of a gray page, on a grid of cells of
// `cell` x `cell` page pixels.
//
// Method: per cell the brightest and darkest pixel; the background is the
// grey-level closing of the brightest values (a running maximum, then a
// running minimum, over a square of 2 * radius + 1 cells), which fills in
// every stroke narrower than the square while following the edges of larger
// areas, so a tinted box keeps its tint; the ink level is the running
// minimum of the darkest values over the same square.
#ifndef TAVRIN_APP_LOCAL_LEVELS_H
#define TAVRIN_APP_LOCAL_LEVELS_H

#include "pipeline/page.h"

namespace tavrin {

struct LocalLevels {
    int cell = 4;       // page pixels per cell side
    Plane background;   // per cell
    Plane ink;          // per cell
};

// `radius` in cells.
LocalLevels measureLocalLevels(const Plane& gray, int cell, int radius);

// Running maximum (or minimum) over 2 * radius + 1 samples along rows, then
// along columns, the borders repeated outwards, of `in` into `out` (which
// may be `in`). Meant for small radii: the cost grows with the radius.
void runningMax(const Plane& in, Plane& out, int radius);
void runningMin(const Plane& in, Plane& out, int radius);

}  // namespace tavrin

#endif
