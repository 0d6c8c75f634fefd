// Local paper and ink levels of a gray plane, estimated per square block:
// the bright level (90th percentile) is the paper or background, the dark
// level (3rd percentile) the darkest ink nearby. Each block's levels are
// widened to its 3 x 3 block neighbourhood so that a block lying inside a
// thick stroke still sees the paper around it.
#ifndef TAVRIN_APP_BLOCK_LEVELS_H
#define TAVRIN_APP_BLOCK_LEVELS_H

#include <cstdint>
#include <vector>

#include "pipeline/page.h"

namespace tavrin {

struct BlockLevels {
    int block = 32;          // block side in pixels
    int columns = 0, rows = 0;
    std::vector<uint8_t> paper;  // per block, after widening
    std::vector<uint8_t> ink;

    uint8_t paperAt(int x, int y) const { return paper[size_t(y / block) * columns + x / block]; }
    uint8_t inkAt(int x, int y) const { return ink[size_t(y / block) * columns + x / block]; }
};

BlockLevels measureBlockLevels(const Plane& gray, int block);

// Block side for a resolution: 32 pixels at 300 dpi (about 2.7 mm), never
// below 8.
int blockSideFor(double dpi);

}  // namespace tavrin

#endif
