#include "pipeline/box_fitting.h"

#include <algorithm>

#include "pipeline/components.h"

namespace tavrin {

namespace {

constexpr int kReach = 3;         // cells beyond a box where its picture's cells still count
constexpr int kMaxGrowth = 12;    // cells a side may move out (a block and a half)
constexpr double kEdgeLine = 0.8; // marked share of a line of cells inside a picture
constexpr double kCornerLine = 0.1;  // and of one through a skewed picture's corners
constexpr int kCornerGrowth = 6;     // cells: the corners of a picture skewed by 3 degrees

Rect grown(const Rect& r, int by) { return {r.x0 - by, r.y0 - by, r.x1 + by, r.y1 + by}; }

double markedShare(const Plane& marked, int x0, int y0, int x1, int y1) {
    int n = 0, set = 0;
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x) set += marked.row(y)[x], ++n;
    return n ? double(set) / n : 0.0;
}

// Moves each side out, at most `steps` cells, while the line of cells beyond
// it is at least `share` marked.
Rect grow(Rect r, const Plane& marked, double share, int steps) {
    for (int k = 0; k < steps && r.x0 > 0 && markedShare(marked, r.x0 - 1, r.y0, r.x0 - 1, r.y1) >= share; ++k) --r.x0;
    for (int k = 0; k < steps && r.x1 + 1 < marked.width && markedShare(marked, r.x1 + 1, r.y0, r.x1 + 1, r.y1) >= share; ++k) ++r.x1;
    for (int k = 0; k < steps && r.y0 > 0 && markedShare(marked, r.x0, r.y0 - 1, r.x1, r.y0 - 1) >= share; ++k) --r.y0;
    for (int k = 0; k < steps && r.y1 + 1 < marked.height && markedShare(marked, r.x0, r.y1 + 1, r.x1, r.y1 + 1) >= share; ++k) ++r.y1;
    return r;
}

// Out to the edge where the picture's lines are full, then on over the
// corners of a skewed picture, whose lines are full only in part.
Rect growToEdges(const Rect& r, const Plane& marked) {
    return grow(grow(r, marked, kEdgeLine, kMaxGrowth), marked, kCornerLine, kCornerGrowth);
}

}  // namespace

std::vector<Rect> fitBoxes(const std::vector<Rect>& boxes, const Plane& pictureCells, const Plane& markedCells) {
    const Components areas = findComponents(pictureCells);
    const Rect plane{0, 0, pictureCells.width - 1, pictureCells.height - 1};
    // Per box: the picture areas that have cells within its reach.
    std::vector<std::vector<int>> touches(boxes.size());
    std::vector<Rect> fit(boxes.size());
    for (size_t b = 0; b < boxes.size(); ++b) {
        const Rect reach = grown(boxes[b], kReach).intersect(plane);
        for (const Run& r : areas.runs) {
            if (r.y < reach.y0 || r.y > reach.y1 || r.x1 < reach.x0 || r.x0 > reach.x1) continue;
            const int x0 = std::max(r.x0, reach.x0), x1 = std::min(r.x1, reach.x1);
            fit[b] = fit[b].unite({x0, r.y, x1, r.y});
            touches[b].push_back(r.component);
        }
    }
    for (std::vector<int>& t : touches) {
        std::sort(t.begin(), t.end());
        t.erase(std::unique(t.begin(), t.end()), t.end());
    }
    // Union of boxes that overlap or share a picture area, until stable.
    std::vector<Rect> out;
    std::vector<std::vector<int>> outAreas;
    for (size_t b = 0; b < boxes.size(); ++b) {
        out.push_back(fit[b].empty() ? boxes[b] : growToEdges(fit[b], markedCells));
        outAreas.push_back(touches[b]);
    }
    for (bool merged = true; merged;) {
        merged = false;
        for (size_t i = 0; i < out.size() && !merged; ++i)
            for (size_t j = i + 1; j < out.size() && !merged; ++j) {
                bool shared = !out[i].intersect(out[j]).empty();
                for (int a : outAreas[i])
                    for (int b : outAreas[j]) shared = shared || a == b;
                if (!shared) continue;
                out[i] = out[i].unite(out[j]);
                outAreas[i].insert(outAreas[i].end(), outAreas[j].begin(), outAreas[j].end());
                out.erase(out.begin() + j);
                outAreas.erase(outAreas.begin() + j);
                merged = true;
            }
    }
    return out;
}

}  // namespace tavrin
