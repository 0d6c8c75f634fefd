#include "pipeline/page_measures.h"

namespace tavrin {

namespace {

// Cells of 4 page pixels, closed over 9 cells (3 mm at 300 dpi), wider
// than the strokes of any body text or heading.
constexpr int kLevelCell = 4;
constexpr int kLevelRadius = 4;

}  // namespace

PageMeasures measurePage(const Page& page, const Plane& gray) {
    return {estimatePaper(page, gray), measureLocalLevels(gray, kLevelCell, kLevelRadius)};
}

}  // namespace tavrin
