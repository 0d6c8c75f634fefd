// What the page's steps share: the paper map and the local background and
// ink levels, measured once per page.
#ifndef TAVRIN_APP_PAGE_MEASURES_H
#define TAVRIN_APP_PAGE_MEASURES_H

#include "pipeline/local_levels.h"
#include "pipeline/page.h"
#include "pipeline/paper.h"

namespace tavrin {

struct PageMeasures {
    PaperMap paper;
    LocalLevels levels;  // cells of 4 page pixels, closed over 9 cells
};

// `gray` is the luma of `page`.
PageMeasures measurePage(const Page& page, const Plane& gray);

}  // namespace tavrin

#endif
