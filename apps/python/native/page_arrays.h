// Pages and masks between numpy arrays and the program's page records.
// A page array is copied into a Page, because a Page owns its pixels (the
// pipeline's page memory, huge-page aligned) and because the caller may
// change or drop the array while the pipeline runs without the GIL; a copy
// costs about 1 % of a page's processing time (2 ms of 0.19 s for an A4
// 300-dpi colour page).
#ifndef TAVRIN_PYTHON_PAGE_ARRAYS_H
#define TAVRIN_PYTHON_PAGE_ARRAYS_H

#include <pybind11/numpy.h>

#include <string>

#include "pipeline/page.h"

namespace tavrin_python {

namespace py = pybind11;

using PixelArray = py::array_t<uint8_t, py::array::c_style>;

// The geometry of a checked page array: (height, width) gray or
// (height, width, 3) RGB. Checked with the GIL held; the pixels may then be
// read without it while the array is referenced.
struct PageView {
    const uint8_t* pixels = nullptr;
    int width = 0, height = 0, channels = 1;
};

// Throws AppError(kExitFormat) as the program does for a page it cannot take,
// naming the page `what`.
PageView viewPage(const PixelArray& array, const std::string& what);

// The pixels of the view in a Page without resolution (the caller settles
// it). Needs no GIL.
tavrin::Page copyPage(const PageView& view);

// A height x width boolean array from bytes that are zero or not.
py::array_t<bool> boolArray(const uint8_t* bytes, int width, int height);

}  // namespace tavrin_python

#endif
