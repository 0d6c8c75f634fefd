// The background layer: the page (or a part of it) at a low resolution
// without its ink and pictures, with the paper made perfectly even.
//
// Method: each factor x factor block becomes the mean of its usable pixels
// (neither ink nor its soft edge) outside the pictures; blocks with no such
// pixel take the colour of their surroundings, filled coarse-to-fine from a
// pyramid of such means. Blocks within `flatten` levels of the local paper
// colour then become exactly that colour (blending back to the block's own
// over the next `flatten` levels), so that an empty area costs the JPEG
// coder almost nothing while tints, shadows and coloured boxes stay.
#ifndef TAVRIN_APP_BACKGROUND_H
#define TAVRIN_APP_BACKGROUND_H

#include <vector>

#include "pipeline/local_levels.h"
#include "pipeline/page.h"
#include "pipeline/paper.h"
#include "pipeline/rect.h"

namespace tavrin {

// 1 for the page pixels that may show in a background: not ink, not next to
// ink, and no darker than `tolerance` below their local background (the
// soft edge of a letter is).
Plane backgroundPixels(const Plane& gray, const Plane& ink, const LocalLevels& levels, int tolerance);

// A background's block means before the paper was flattened, and which
// blocks had usable pixels of their own (the others, under ink or soft
// edges, took the colour of their surroundings).
struct BlockMeans {
    Page means;
    Plane known;  // 1 = the block's own pixels
};

// The background of `area` (page pixels; the whole page for the page's
// background, a picture's box for a drawing) from the `usable` pixels
// outside `excluded`; with `blocks`, also its block means.
Page buildBackground(const Page& page, const Plane& usable, const std::vector<Rect>& excluded, const Rect& area,
                     int factor, const PaperMap& paper, int flatten, BlockMeans* blocks = nullptr);

// Halves `bg` (2 x 2 means) while the result, drawn back at the original
// size with bilinear interpolation as a viewer does, stays within
// `tolerance` levels of it in every pixel and channel, at most `maxHalvings`
// times: plain or evenly shaded paper needs few pixels, while the edge of a
// tint or a rule keeps them all. Spots where it does not, each within a
// square of `maxSpot` pixels of `bg` (a stain, a speck of dust), may blur;
// pixels set in `hidden` (the size of `bg`: covered by pictures or fills)
// are not looked at. Returns the number of halvings made.
int coarsenWhileFaithful(Page& bg, int tolerance, int maxHalvings, int maxSpot = 0, const Plane* hidden = nullptr);

// The pixels of a background at `factor` page pixels per pixel that lie
// wholly inside one of `covers` (page pixels).
Plane coveredPixels(int width, int height, int factor, const std::vector<Rect>& covers);

}  // namespace tavrin

#endif
