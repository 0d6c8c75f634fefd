// Turning the detector's boxes into one box per picture, fitted to it.
//
// Method: the detector's boxes are grown by its margin and by the cleaning
// of its mask, and a picture whose middle is plain may come out as two
// boxes. A box that holds cells of the classifier's picture areas first
// becomes the bounding box of those cells (whole blocks, which stop short of
// the picture's edge where a block is half paper); then each side moves out
// while the line of cells beyond it is nearly all marked (not paper), as a
// picture's rows are and a text line's are not, which finds the edge to one
// cell. Boxes that overlap or share a picture area become one.
#ifndef TAVRIN_APP_BOX_FITTING_H
#define TAVRIN_APP_BOX_FITTING_H

#include <vector>

#include "pipeline/page.h"
#include "pipeline/rect.h"

namespace tavrin {

// Boxes and the 0/1 cell planes on the same grid (4 x 4 page pixels).
std::vector<Rect> fitBoxes(const std::vector<Rect>& boxes, const Plane& pictureCells, const Plane& markedCells);

}  // namespace tavrin

#endif
