// Connected components (8-neighbourhood) of a 0/1 plane, as runs.
//
// Method: the set pixels of each row are cut into runs (eight bytes at a
// time, the two halves of a large plane side by side); a run joins every
// run of the row above that it touches, counting diagonal contact, through
// a union-find over run indices; the components are then numbered in the
// order of their first run (raster order). No per-pixel label plane is
// needed: a component is the list of its runs.
#ifndef TAVRIN_APP_COMPONENTS_H
#define TAVRIN_APP_COMPONENTS_H

#include <cstdint>
#include <vector>

#include "pipeline/page.h"
#include "pipeline/rect.h"

namespace tavrin {

struct Run {
    int y = 0, x0 = 0, x1 = 0;  // inclusive columns
    int component = 0;          // 0 .. count - 1
};

struct Components {
    std::vector<Run> runs;      // in raster order
    int count = 0;
    std::vector<Rect> boxes;    // per component
    std::vector<int64_t> area;  // per component, pixels
};

Components findComponents(const Plane& mask);

}  // namespace tavrin

#endif
