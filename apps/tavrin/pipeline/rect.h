// An inclusive rectangle in pixels.
#ifndef TAVRIN_APP_RECT_H
#define TAVRIN_APP_RECT_H

#include <algorithm>

namespace tavrin {

struct Rect {
    int x0 = 0, y0 = 0, x1 = -1, y1 = -1;
    int width() const { return x1 - x0 + 1; }
    int height() const { return y1 - y0 + 1; }
    bool empty() const { return x1 < x0 || y1 < y0; }
    long long area() const { return empty() ? 0 : (long long)width() * height(); }
    Rect intersect(const Rect& o) const {
        return {std::max(x0, o.x0), std::max(y0, o.y0), std::min(x1, o.x1), std::min(y1, o.y1)};
    }
    Rect unite(const Rect& o) const {
        if (empty()) return o;
        if (o.empty()) return *this;
        return {std::min(x0, o.x0), std::min(y0, o.y0), std::max(x1, o.x1), std::max(y1, o.y1)};
    }
};

}  // namespace tavrin

#endif
