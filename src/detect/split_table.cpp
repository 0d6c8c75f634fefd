// Separating picture regions from the tables they overlap at one corner: the
// overlap plus a one-pixel margin is cleared from the mask, and a cut row
// along the table's edge splits the rest of the box into two rectangles that
// no longer touch each other or the table.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "TavrinDetect.h"

namespace {

// A half-resolution table rectangle on the quarter grid, halved and read in
// the order left, right, top, bottom (the driver's exclusion reads left,
// top, right, bottom).
struct TableBox {
    int x0, x1, y0, y1;
};

TableBox halvedTable(const ST_TABLERECT& r, int width, int height) {
    TableBox t{r.sRect0 >> 1, r.sRect1 >> 1, r.sRect2 >> 1, r.sRect3 >> 1};
    // A rectangle reaching outside the plane is clipped to it; one wholly
    // outside becomes empty (x0 > x1 or y0 > y1) and then meets no corner
    // relation. This keeps every write below inside the mask.
    t.x0 = std::max(t.x0, 0);
    t.y0 = std::max(t.y0, 0);
    t.x1 = std::min(t.x1, width - 1);
    t.y1 = std::min(t.y1, height - 1);
    return t;
}

// Clears the inclusive rectangle, clipped to the mask (only label boxes that
// do not come from a labelling of this mask can reach outside it).
void clearRect(uint8_t* mask, int width, int height, int64_t x0, int64_t x1, int64_t y0,
               int64_t y1) {
    x0 = std::max<int64_t>(x0, 0);
    y0 = std::max<int64_t>(y0, 0);
    x1 = std::min<int64_t>(x1, width - 1);
    y1 = std::min<int64_t>(y1, height - 1);
    if (x0 > x1) return;
    for (int64_t y = y0; y <= y1; ++y)
        std::memset(mask + static_cast<size_t>(y) * width + x0, 0, static_cast<size_t>(x1 - x0 + 1));
}

void splitAtCorner(uint8_t* mask, int width, int height, const PictLabel& box, const TableBox& t) {
    const int64_t lx0 = box.min_x, ly0 = box.min_y, lx1 = box.max_x, ly1 = box.max_y;
    const bool right = t.x0 < lx0 && lx0 < t.x1 && t.x1 < lx1;
    const bool left = lx0 < t.x0 && t.x0 < lx1 && lx1 < t.x1;
    const bool above = ly0 < t.y0 && t.y0 < ly1 && ly1 < t.y1;
    const bool below = t.y0 < ly0 && ly0 < t.y1 && t.y1 < ly1;
    if (!(right || left) || !(above || below)) return;  // not exactly one corner

    const int64_t cutRow = above ? t.y0 - 1 : t.y1 + 1;
    const int64_t bandY0 = above ? t.y0 - 1 : ly0 - 1;
    const int64_t bandY1 = above ? ly1 + 1 : t.y1 + 1;
    const int64_t bandX0 = right ? lx0 - 1 : t.x0 - 1;
    const int64_t bandX1 = right ? t.x1 + 1 : lx1 + 1;
    clearRect(mask, width, height, lx0, lx1, cutRow, cutRow);
    clearRect(mask, width, height, bandX0, bandX1, bandY0, bandY1);
}

}  // namespace

// Unlike the labelling, this reads the mask's height too: it bounds the
// clipping of table rectangles and writes.
int splitRect_forTable(PictLabel* pstLabel, ImgTavrin* mask, ST_TABLEDATA* pstTableData, int n) {
    if (n < 1 || pstLabel == nullptr || mask == nullptr || pstTableData == nullptr) return 0;
    if (pstTableData->iTableNum <= 0 || pstTableData->pstTableRect == nullptr) return 0;
    if (mask->pucImage == nullptr) return 0;
    const int width = mask->usWidth;
    const int height = mask->usHeight;

    for (int k = 1; k <= n; ++k) {
        if (pstLabel[k].pixel <= 0) continue;
        for (int t = 1; t <= pstTableData->iTableNum; ++t) {
            const TableBox table = halvedTable(pstTableData->pstTableRect[t], width, height);
            splitAtCorner(mask->pucImage, width, height, pstLabel[k], table);
        }
    }
    return 0;
}
