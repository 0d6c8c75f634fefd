// Flat tints: rectangles of one colour in the background (a shaded box, the
// banded rows of a table) are drawn as filled rectangles instead of
// background pixels. Their edges stay sharp at no cost, and the background
// they leave is plain paper, which a quarter of the resolution carries.
//
// Method: on the background's block means, the pixels off the page's paper
// colour by at least `contrast` form 8-connected shapes; the rows and
// columns a shape mostly covers make its rectangle (a stain touching a box
// stays out), which must hold nearly all of the shape, be nearly full,
// corners included, large enough and one colour inside to be a tint.
// Blocks under the box's text, whose colour was filled in from around
// them (partly from outside the box near its edge), count as covered and
// are left out of its colour. Its edges are placed to the page pixel from how much of the border
// pixels the tint covers (the border pixels are block means). The caller
// then builds the background again with the tints left out, as pictures
// are, so that their area takes the colour of the paper around them.
#ifndef TAVRIN_APP_TINTS_H
#define TAVRIN_APP_TINTS_H

#include <vector>

#include "pipeline/background.h"
#include "pipeline/encoded_page.h"
#include "pipeline/page.h"
#include "pipeline/paper.h"
#include "pipeline/rect.h"

namespace tavrin {

// The tints in `blocks`, the block means of a page's background before the
// paper was flattened (near a large box the local paper estimate is part
// tint), `factor` page pixels per block, for a page of `width` x `height`
// pixels. Tints may not touch `pictures` (page pixels).
std::vector<Fill> findTints(const BlockMeans& blocks, int factor, int width, int height, const PaperMap& paper,
                            const std::vector<Rect>& pictures, int contrast);

}  // namespace tavrin

#endif
