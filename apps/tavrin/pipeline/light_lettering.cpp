#include "pipeline/light_lettering.h"

#include <algorithm>

namespace tavrin {

namespace {

constexpr double kMinFieldSquareInches = 0.5;
constexpr double kMinFieldSideInches = 0.1;
constexpr double kMinFieldFill = 0.55;  // a bold letter or a ruled frame fills less
constexpr int kMinLetters = 3;

}  // namespace

LightLettering findLightLettering(const Plane& gray, const std::vector<Rect>& pictures, int paperLevel, double dpiX,
                                  double dpiY, double speck) {
    LightLettering out;
    const double minArea = kMinFieldSquareInches * dpiX * dpiY;
    const int darkBelow = paperLevel / 2;
    Plane dark(gray.width, gray.height);
    size_t darkCount = 0;
#pragma omp parallel for schedule(static) reduction(+ : darkCount)
    for (int y = 0; y < gray.height; ++y) {
        const uint8_t* g = gray.row(y);
        uint8_t* d = dark.row(y);
        for (int x = 0; x < gray.width; ++x) d[x] = uint8_t(g[x] < darkBelow);
        for (const Rect& p : pictures)
            if (y >= p.y0 && y <= p.y1) std::fill(d + p.x0, d + p.x1 + 1, uint8_t(0));
        uint32_t rowCount = 0;
        for (int x = 0; x < gray.width; ++x) rowCount += d[x];
        darkCount += rowCount;
    }
    if (double(darkCount) < kMinFieldFill * minArea) return out;  // the common page: no field can be there

    const Components comps = findComponents(dark);
    std::vector<char> isField(comps.count, 0);
    std::vector<Rect> fieldBoxes;
    for (int i = 0; i < comps.count; ++i) {
        const Rect& b = comps.boxes[i];
        if (b.width() < kMinFieldSideInches * dpiX || b.height() < kMinFieldSideInches * dpiY ||
            b.area() < minArea || comps.area[i] < kMinFieldFill * b.area())
            continue;
        // The light pixels of the box; those connected to its edge are
        // outside the field, the others are its holes.
        Plane open(b.width(), b.height());
        for (int y = 0; y < open.height; ++y) {
            const uint8_t* d = dark.row(b.y0 + y) + b.x0;
            uint8_t* o = open.row(y);
            for (int x = 0; x < open.width; ++x) o[x] = uint8_t(1 ^ d[x]);
        }
        const Components parts = findComponents(open);
        std::vector<char> hole(parts.count, 0);
        int letters = 0;
        for (int p = 0; p < parts.count; ++p) {
            const Rect& q = parts.boxes[p];
            const Rect onPage{q.x0 + b.x0, q.y0 + b.y0, q.x1 + b.x0, q.y1 + b.y0};
            // A picture inside the field is no letter, however light.
            bool inPicture = false;
            for (const Rect& pic : pictures) inPicture = inPicture || !pic.intersect(onPage).empty();
            hole[p] = q.x0 > 0 && q.y0 > 0 && q.x1 < open.width - 1 && q.y1 < open.height - 1 &&
                      parts.area[p] > speck && !inPicture;
            letters += hole[p];
        }
        if (letters < kMinLetters) continue;
        isField[i] = 1;
        fieldBoxes.push_back(b);
        for (Run r : parts.runs)
            if (hole[r.component]) {
                r.y += b.y0, r.x0 += b.x0, r.x1 += b.x0;
                out.lettering.push_back(r);
            }
    }
    // The counters of the letters (and whatever else dark is in a field's
    // box) go with the field, in its colour rather than the ink's.
    for (int i = 0; i < comps.count; ++i)
        for (const Rect& f : fieldBoxes)
            if (!isField[i] && f.intersect(comps.boxes[i]).area() == comps.boxes[i].area()) isField[i] = 1;
    for (const Run& r : comps.runs)
        if (isField[r.component]) out.fields.push_back(r);
    return out;
}

}  // namespace tavrin
