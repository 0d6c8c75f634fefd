// The paper of a page: its colour, which may drift slowly across a scan
// (uneven light, yellowed margins), and the noise the scanner adds to it.
//
// Method: the page is cut into tiles of about 5 mm. A tile whose brightest
// tenth forms a narrow peak that holds a good share of its pixels shows
// paper (a text tile does: ink covers a fifth of it at most); tiles of
// pictures and tints do not. The paper tiles' colours are kept, the other
// tiles take the colour of the nearest paper tiles (filled from coarser
// averages), and the map is smoothed. With no paper tile at all (a
// full-page photograph) the page's brightest level stands in.
#ifndef TAVRIN_APP_PAPER_H
#define TAVRIN_APP_PAPER_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "pipeline/page.h"
#include "pipeline/rect.h"

namespace tavrin {

struct PaperMap {
    int tile = 64;                 // tile side, page pixels
    int columns = 0, rows = 0;
    std::vector<uint8_t> gray;     // per tile
    std::vector<std::array<uint8_t, 3>> colour;  // per tile (R = G = B on gray pages)
    std::vector<uint8_t> isPaper;  // 1 where the tile itself showed paper
    uint8_t globalGray = 255;      // the paper level of the page as a whole
    std::array<uint8_t, 3> globalColour{{255, 255, 255}};
    double noise = 2.0;            // standard deviation of the paper's gray level
    double paperShare = 0;         // share of tiles that showed paper

    // Paper gray level at page pixel (x, y), bilinear between tile centres.
    int grayAt(int x, int y) const;
    // The paper's colour at (x, y): the smooth gray level with the tile's
    // tint (`channels` 1 or 3 of the result are set).
    std::array<uint8_t, 3> colourAt(int x, int y, int channels) const;
    // The same, given grayAt(x, y) already.
    std::array<uint8_t, 3> colourAt(int x, int y, int channels, int level) const {
        const std::array<uint8_t, 3>& t =
            colour[size_t(std::min(rows - 1, y / tile)) * columns + std::min(columns - 1, x / tile)];
        const int tileGray = channels == 3 ? (77 * t[0] + 150 * t[1] + 29 * t[2] + 128) >> 8 : t[0];
        std::array<uint8_t, 3> out{};
        for (int c = 0; c < channels; ++c) out[c] = uint8_t(std::clamp(t[c] + level - tileGray, 0, 255));
        return out;
    }
    // The gray level at `count` points of row y: x, x + step, ...
    void grayAlong(int y, int x, int step, int count, uint8_t* out) const;
};

// `notPaper`: areas (page pixels) known to be something else, such as
// tinted boxes; tiles a quarter covered by one take the paper from around.
PaperMap estimatePaper(const Page& page, const Plane& gray, const std::vector<Rect>& notPaper = {});

}  // namespace tavrin

#endif
