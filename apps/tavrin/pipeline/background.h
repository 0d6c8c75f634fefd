// The continuous-tone background layer: the page at a reduced resolution
// with the foreground's ink replaced by the colour around it.
#ifndef TAVRIN_APP_BACKGROUND_H
#define TAVRIN_APP_BACKGROUND_H

#include <array>
#include <cstdint>
#include <vector>

#include "pipeline/ink_levels.h"
#include "pipeline/page.h"

namespace tavrin {

// Each factor x factor block becomes the mean of its pixels that are not
// ink; blocks that are all ink take the colour of their surroundings
// (filled coarse-to-fine from a pyramid of such means). A block of plain
// paper thus stays paper, and a letter on a tinted box leaves the tint.
Page buildBackground(const Page& page, const InkBands& ink, int factor);

// Mean colour (channels of the page) of the pixels of each ink band.
struct BandColours {
    std::vector<std::array<uint8_t, 3>> colour;  // per band
    std::vector<uint64_t> pixels;                // per band
};
BandColours measureBandColours(const Page& page, const InkBands& ink);

}  // namespace tavrin

#endif
