#include "page_arrays.h"

#include <cstring>

#include "formats/page_reader.h"
#include "pipeline/app_error.h"

namespace tavrin_python {

PageView viewPage(const PixelArray& array, const std::string& what) {
    const bool rgb = array.ndim() == 3 && array.shape(2) == 3;
    if (array.ndim() != 2 && !rgb)
        throw tavrin::AppError(tavrin::kExitFormat,
                               what + ": expected a (height, width) gray or (height, width, 3) RGB array");
    tavrin::checkPageSize(uint64_t(array.shape(1)), uint64_t(array.shape(0)), what);
    PageView v;
    v.pixels = array.data();
    v.height = int(array.shape(0));
    v.width = int(array.shape(1));
    v.channels = rgb ? 3 : 1;
    return v;
}

tavrin::Page copyPage(const PageView& view) {
    tavrin::Page page;
    page.width = view.width;
    page.height = view.height;
    page.channels = view.channels;
    page.pixels.resize(page.pixelCount() * page.channels);
    std::memcpy(page.pixels.data(), view.pixels, page.pixels.size());
    return page;
}

py::array_t<bool> boolArray(const uint8_t* bytes, int width, int height) {
    py::array_t<bool> out({height, width});
    bool* d = out.mutable_data();
    for (size_t i = 0, n = size_t(width) * height; i < n; ++i) d[i] = bytes[i] != 0;
    return out;
}

}  // namespace tavrin_python
