#include "pipeline/tints.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "pipeline/components.h"

namespace tavrin {

namespace {

constexpr double kMinSideInches = 0.15;    // a tint narrower than this stays in the background,
constexpr double kMinSquareInches = 0.25;  // as does one smaller than this (a blot, a dot)
constexpr double kCoreShare = 0.5;         // of a row or column of its box that a tint covers
constexpr double kMinFill = 0.9;           // of its rectangle, and of its shape
constexpr int kMaxSpread = 10;             // levels an inner pixel may be from the tint's mean,
constexpr double kMaxUneven = 0.03;        // except this share of them
constexpr double kWhole = 0.95;            // share of a block that is all of it, noise aside

}  // namespace

std::vector<Fill> findTints(const BlockMeans& blocks, int factor, int width, int height, const PaperMap& paper,
                            const std::vector<Rect>& pictures, int contrast) {
    std::vector<Fill> out;
    const Page& means = blocks.means;
    const Plane& known = blocks.known;
    const int ch = means.channels, w = means.width, h = means.height;
    if (w < 3 || h < 3) return out;
    // Off the page's paper colour: the local paper estimate takes a large
    // box's inside for paper.
    std::array<int, 3> blank{};
    for (int c = 0; c < ch; ++c) blank[c] = ch == 3 ? paper.globalColour[c] : paper.globalGray;
    Plane tinted(w, h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < ch; ++c) tinted.row(y)[x] |= std::abs(means.row(y)[x * ch + c] - blank[c]) >= contrast;
    const Components shapes = findComponents(tinted);
    const double bgDpi = means.dpiX > 0 ? means.dpiX : 300.0 / factor;
    const int minSide = std::max(3, int(std::ceil(kMinSideInches * bgDpi)));
    const double minArea = kMinSquareInches * bgDpi * bgDpi;
    // The runs of each shape large enough to be a tint.
    std::vector<std::vector<const Run*>> runsOf(shapes.count);
    for (const Run& r : shapes.runs) {
        const Rect& box = shapes.boxes[r.component];
        if (box.width() >= minSide && box.height() >= minSide) runsOf[r.component].push_back(&r);
    }
    for (int s = 0; s < shapes.count; ++s) {
        if (runsOf[s].empty()) continue;
        const Rect& whole = shapes.boxes[s];
        Plane mine(whole.width(), whole.height(), 0);  // the shape's blocks and the filled-in ones of its box
        for (const Run* r : runsOf[s])
            std::fill(mine.row(r->y - whole.y0) + r->x0 - whole.x0, mine.row(r->y - whole.y0) + r->x1 - whole.x0 + 1,
                      uint8_t(1));
        for (int y = 0; y < mine.height; ++y)
            for (int x = 0; x < mine.width; ++x) mine.row(y)[x] |= !known.row(whole.y0 + y)[whole.x0 + x];
        const auto at = [&](int x, int y) { return mine.row(y - whole.y0)[x - whole.x0]; };
        // The rectangle: the rows and columns mostly covered by the shape
        // within it, trimmed until none is left to trim (a stain touching a
        // box stays outside it). It must hold nearly all of the shape and be
        // nearly full, corners included: a blot is round.
        Rect b = whole;
        const auto mostlyCovered = [&](int i, bool row) {  // row i, or column i, of b
            int n = 0;
            for (int j = row ? b.x0 : b.y0; j <= (row ? b.x1 : b.y1); ++j) n += row ? at(j, i) : at(i, j);
            return n >= kCoreShare * (row ? b.width() : b.height());
        };
        for (bool trimmed = true; trimmed;) {
            const Rect before = b;
            while (b.y0 < b.y1 && !mostlyCovered(b.y0, true)) ++b.y0;
            while (b.y1 > b.y0 && !mostlyCovered(b.y1, true)) --b.y1;
            while (b.x0 < b.x1 && !mostlyCovered(b.x0, false)) ++b.x0;
            while (b.x1 > b.x0 && !mostlyCovered(b.x1, false)) --b.x1;
            trimmed = b.x0 != before.x0 || b.x1 != before.x1 || b.y0 != before.y0 || b.y1 != before.y1;
        }
        if (b.width() < minSide || b.height() < minSide || b.area() < minArea) continue;
        long long inside = 0, insideOwn = 0;
        for (int y = b.y0; y <= b.y1; ++y)
            for (int x = b.x0; x <= b.x1; ++x) inside += at(x, y);
        for (const Run* r : runsOf[s])
            if (r->y >= b.y0 && r->y <= b.y1) insideOwn += std::max(0, std::min(r->x1, b.x1) - std::max(r->x0, b.x0) + 1);
        if (inside < kMinFill * b.area() || insideOwn < kMinFill * shapes.area[s]) continue;
        const int rim = b.width() > 6 && b.height() > 6 ? 2 : 1;
        if (!at(b.x0 + rim, b.y0 + rim) || !at(b.x1 - rim, b.y0 + rim) || !at(b.x0 + rim, b.y1 - rim) ||
            !at(b.x1 - rim, b.y1 - rim))
            continue;
        const Rect onPage{b.x0 * factor, b.y0 * factor, (b.x1 + 1) * factor - 1, (b.y1 + 1) * factor - 1};
        const Rect near{onPage.x0 - factor, onPage.y0 - factor, onPage.x1 + factor, onPage.y1 + factor};
        if (std::any_of(pictures.begin(), pictures.end(), [&](const Rect& p) { return !p.intersect(near).empty(); }))
            continue;
        // One colour inside (the two outer lines are part paper), the
        // paper's mottle and a stain or two aside.
        const Rect inner{b.x0 + rim, b.y0 + rim, b.x1 - rim, b.y1 - rim};
        double sum[3] = {};
        long long own = 0;
        for (int y = inner.y0; y <= inner.y1; ++y)
            for (int x = inner.x0; x <= inner.x1; ++x)
                if (known.row(y)[x]) {
                    for (int c = 0; c < ch; ++c) sum[c] += means.row(y)[x * ch + c];
                    ++own;
                }
        if (own < kMinFill * inner.area() / 2) continue;  // mostly text: its colour is not seen
        std::array<uint8_t, 3> colour{};
        for (int c = 0; c < ch; ++c) colour[c] = uint8_t(std::lround(sum[c] / own));
        long long uneven = 0;
        for (int y = inner.y0; y <= inner.y1; ++y)
            for (int x = inner.x0; x <= inner.x1; ++x) {
                bool off = false;
                for (int c = 0; c < ch; ++c) off = off || std::abs(means.row(y)[x * ch + c] - colour[c]) > kMaxSpread;
                uneven += off && known.row(y)[x];
            }
        if (uneven > kMaxUneven * own) continue;
        // How much of a border line the tint covers, from the channel that
        // tells tint and paper apart best.
        int best = 0;
        for (int c = 1; c < ch; ++c)
            if (std::abs(colour[c] - blank[c]) > std::abs(colour[best] - blank[best])) best = c;
        if (colour[best] == blank[best]) continue;  // tinted pixels about an untinted mean: no flat tint
        // The share of a line of blocks the tint covers; blocks with no
        // pixels of their own count as `unseen`.
        const auto covered = [&](int x0, int y0, int x1, int y1, double unseen) {
            double share = 0;
            int n = 0;
            for (int y = y0; y <= y1; ++y)
                for (int x = x0; x <= x1; ++x)
                    if (known.row(y)[x])
                        share += double(means.row(y)[x * ch + best] - blank[best]) / (colour[best] - blank[best]), ++n;
            return n ? std::clamp(share / n, 0.0, 1.0) : unseen;
        };
        // An edge inside the border line of blocks, or, where that is wholly
        // covered, in the line beyond it (whose share of a faint tint may be
        // too small for it to count as tinted). Blocks at the page's end are
        // cut short.
        const auto blockSide = [&](int i, int pageSide) { return std::min(factor, pageSide - i * factor); };
        const auto line = [&](int i, bool across, double unseen) {  // a column (across) or a row of blocks
            return across ? covered(i, inner.y0, i, inner.y1, unseen) : covered(inner.x0, i, inner.x1, i, unseen);
        };
        const auto startEdge = [&](int first, bool across, int pageSide) {
            const double in = line(first, across, 1.0);
            if (in < kWhole || first == 0) return first * factor + (1 - in) * blockSide(first, pageSide);
            return first * factor - line(first - 1, across, 0.0) * blockSide(first - 1, pageSide);
        };
        const auto endEdge = [&](int last, int count, bool across, int pageSide) {  // one past the tint
            const double in = line(last, across, 1.0);
            if (in < kWhole || last + 1 >= count) return last * factor + in * blockSide(last, pageSide);
            return last * factor + blockSide(last, pageSide) + line(last + 1, across, 0.0) * blockSide(last + 1, pageSide);
        };
        Fill t;
        t.colour = colour;
        if (ch == 1) t.colour[1] = t.colour[2] = colour[0];
        t.box.x0 = int(std::lround(startEdge(b.x0, true, width)));
        t.box.x1 = int(std::lround(endEdge(b.x1, w, true, width))) - 1;
        t.box.y0 = int(std::lround(startEdge(b.y0, false, height)));
        t.box.y1 = int(std::lround(endEdge(b.y1, h, false, height))) - 1;
        t.box = t.box.intersect({0, 0, width - 1, height - 1});
        if (t.box.empty()) continue;
        out.push_back(t);
    }
    return out;
}

}  // namespace tavrin
