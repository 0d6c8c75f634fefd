#include "pipeline/text_layer.h"

#include <algorithm>
#include <cmath>

#include "pipeline/components.h"
#include "pipeline/light_lettering.h"

namespace tavrin {

namespace {

constexpr double kSpeckArea300 = 3;       // largest speck, pixels at 300 dpi
constexpr double kNewColourDistance = 80;  // colour distance (below) that opens a new cluster
constexpr double kMinClusterShare = 0.01;  // of all ink, for a cluster of its own
// Where between the local ink (0) and background (1) levels the threshold
// lies. Above the middle: a thin stroke or a serif never reaches the ink
// level of the heavy strokes (less still once resampled to a lower mask
// resolution, or on a skewed scan), and letters that lose them read worse
// than letters a little bold.
constexpr double kThresholdShare = 0.65;
// Marks of these heights (inches) are taken for letters when the text's
// size is measured: from a lowercase letter of 6 points to a capital of 20.
constexpr double kLetterInches[2] = {0.03, 0.3};
constexpr size_t kMinLettersMeasured = 50;
// Text whose median letter is smaller than this (about 9-point type) is
// masked at the finer resolution: 200-dpi masks read as well as 300-dpi
// ones from 10-point type up.
constexpr double kSmallLetterInches = 0.06;

// Thresholds per level cell: between background and ink where the contrast
// is real, else 0 (nothing is darker than 0).
Plane cellThresholds(const LocalLevels& L, int minContrast) {
    Plane t(L.background.width, L.background.height);
    for (size_t i = 0; i < t.data.size(); ++i) {
        const int b = L.background.data[i], k = L.ink.data[i];
        t.data[i] = b - k >= minContrast ? uint8_t(k + kThresholdShare * (b - k) + 0.5) : 0;
    }
    return t;
}

// A pixel that differs from both neighbours along a row (or a column) while
// a neighbour across agrees with them is a notch or a burr on an edge: noise
// that costs the T.6 coder two short runs and carries no shape. A thin line
// one pixel wide keeps its pixels: its neighbours across differ from them.
void smoothEdges(Plane& mask) {
    const int w = mask.width, h = mask.height;
    if (w < 3 || h < 3) return;
    const Plane in = mask;
#pragma omp parallel for schedule(static)
    for (int y = 1; y < h - 1; ++y) {
        const uint8_t* up = in.row(y - 1);
        const uint8_t* mid = in.row(y);
        const uint8_t* down = in.row(y + 1);
        uint8_t* out = mask.row(y);
        for (int x = 1; x < w - 1; ++x) {
            // 0/1 values: == is 1 - (a ^ b); written without branches.
            const uint8_t p = mid[x], l = mid[x - 1], r = mid[x + 1], u = up[x], d = down[x];
            const uint8_t burrAlongRow = uint8_t((1 ^ l ^ r) & (p ^ l) & ((u ^ p) | (d ^ p)));
            const uint8_t burrDownColumn = uint8_t((1 ^ u ^ d) & (p ^ u) & ((l ^ p) | (r ^ p)));
            out[x] = uint8_t(p ^ (burrAlongRow | burrDownColumn));
        }
    }
}

struct Cluster {
    double rgb[3] = {};
    double weight = 0;
};

// Squared distance between two ink colours: between two grays, their
// distance in RGB; between colours, twice the difference along the
// red-green and yellow-blue opponent axes besides. A navy or dark green
// heading differs from black text by no more than a gray caption does in
// plain RGB, yet it is a colour of its own.
double distance2(const double* a, const double* b) {
    const double light = (a[0] + a[1] + a[2] - b[0] - b[1] - b[2]) / 3;
    const double redGreen = 2 * ((a[0] - a[1]) - (b[0] - b[1]));
    const double yellowBlue = 2 * (((a[0] + a[1]) / 2 - a[2]) - ((b[0] + b[1]) / 2 - b[2]));
    return 3 * light * light + redGreen * redGreen + yellowBlue * yellowBlue;
}

}  // namespace

namespace {

// The layer at `settings.maskDpi`.
TextLayer buildAt(const Page& page, const Plane& gray, const LocalLevels& levels, int paperLevel,
                  const std::vector<Rect>& pictures, const TextSettings& settings) {
    TextLayer out;
    const double pageDpi = page.dpiX > 0 ? page.dpiX : 300;
    const double scale = std::min(1.0, settings.maskDpi / pageDpi);
    out.width = std::max(1, int(std::lround(page.width * scale)));
    out.height = std::max(1, int(std::lround(page.height * scale)));
    const double sx = double(out.width) / page.width, sy = double(out.height) / page.height;
    out.dpiX = pageDpi * sx;
    out.dpiY = (page.dpiY > 0 ? page.dpiY : pageDpi) * sy;
    const bool full = out.width == page.width && out.height == page.height;
    const Plane resampled = full ? Plane() : resizePlane(gray, out.width, out.height);
    const Plane& g = full ? gray : resampled;

    // Mask-pixel column -> level cell column, once per column.
    const Plane thresholds = cellThresholds(levels, settings.minContrast);
    std::vector<int> cellX(out.width);
    for (int x = 0; x < out.width; ++x)
        cellX[x] = std::min(thresholds.width - 1, int((x + 0.5) / sx) / levels.cell);
    Plane mask(out.width, out.height);
#pragma omp parallel for schedule(static)
    for (int y = 0; y < out.height; ++y) {
        const uint8_t* t = thresholds.row(std::min(thresholds.height - 1, int((y + 0.5) / sy) / levels.cell));
        const uint8_t* s = g.row(y);
        uint8_t* m = mask.row(y);
        for (int x = 0; x < out.width; ++x) m[x] = s[x] < t[cellX[x]];
    }
    smoothEdges(mask);
    std::vector<Rect> maskPictures;
    for (const Rect& r : pictures) {
        const Rect c = Rect{int(r.x0 * sx), int(r.y0 * sy), int(std::ceil((r.x1 + 1) * sx)) - 1,
                            int(std::ceil((r.y1 + 1) * sy)) - 1}
                           .intersect({0, 0, out.width - 1, out.height - 1});
        for (int y = c.y0; y <= c.y1; ++y) std::fill(mask.row(y) + c.x0, mask.row(y) + c.x1 + 1, uint8_t(0));
        maskPictures.push_back(c);
    }
    const double speck = kSpeckArea300 * (out.dpiX / 300) * (out.dpiY / 300);
    const LightLettering light = findLightLettering(g, maskPictures, paperLevel, out.dpiX, out.dpiY, speck);
    // The field and its letters, soft edges included, are theirs alone.
    for (const std::vector<Run>* runs : {&light.fields, &light.lettering})
        for (const Run& r : *runs) std::fill(mask.row(r.y) + r.x0, mask.row(r.y) + r.x1 + 1, uint8_t(0));

    // Components: drop specks, measure colours.
    const Components comps = findComponents(mask);
    std::vector<int> letterHeights;
    for (int i = 0; i < comps.count; ++i) {
        const double h = comps.boxes[i].height() / out.dpiY;
        if (comps.area[i] > speck && h >= kLetterInches[0] && h <= kLetterInches[1])
            letterHeights.push_back(comps.boxes[i].height());
    }
    if (letterHeights.size() >= kMinLettersMeasured) {
        std::nth_element(letterHeights.begin(), letterHeights.begin() + letterHeights.size() / 2, letterHeights.end());
        out.letterHeight = letterHeights[letterHeights.size() / 2] / out.dpiY;
    }
    std::vector<std::array<double, 4>> colour(comps.count, {0, 0, 0, 0});  // weighted r, g, b, weight
    // A run's page colour into `c` (weighted r, g, b, weight). `core` +1:
    // the dark core decides, not the soft edge; -1: the light core (light
    // lettering); 0: every pixel alike.
    const auto addColour = [&](const Run& r, int core, std::array<double, 4>& c) {
        const int py = std::min(page.height - 1, int((r.y + 0.5) / sy));
        const uint8_t* prow = page.row(py);
        const uint8_t* grow = g.row(r.y);
        const uint8_t* trow = thresholds.row(std::min(thresholds.height - 1, py / levels.cell));
        for (int x = r.x0; x <= r.x1; ++x) {
            const int px = std::min(page.width - 1, int((x + 0.5) / sx));
            const double depth = std::max(0, core * (int(trow[cellX[x]]) - int(grow[x])));
            const double w = 1.0 + depth * depth;
            for (int k = 0; k < 3; ++k) c[k] += w * prow[size_t(px) * page.channels + (page.channels == 3 ? k : 0)];
            c[3] += w;
        }
    };
    for (const Run& r : comps.runs)
        if (comps.area[r.component] > speck) addColour(r, +1, colour[r.component]);

    // Greedy clusters, most ink first.
    std::vector<int> order;
    for (int i = 0; i < comps.count; ++i)
        if (colour[i][3] > 0) order.push_back(i);
    std::sort(order.begin(), order.end(), [&](int a, int b) { return comps.area[a] > comps.area[b]; });
    int64_t inkTotal = 0;
    for (int i : order) inkTotal += comps.area[i];
    std::vector<Cluster> clusters;
    std::vector<int> clusterOf(comps.count, -1);
    for (int i : order) {
        double rgb[3];
        for (int k = 0; k < 3; ++k) rgb[k] = colour[i][k] / colour[i][3];
        int best = -1;
        double bestD = 1e18;
        for (size_t c = 0; c < clusters.size(); ++c) {
            const double d = distance2(rgb, clusters[c].rgb);
            if (d < bestD) bestD = d, best = int(c);
        }
        if (int(clusters.size()) < settings.maxColours && (best < 0 || bestD > kNewColourDistance * kNewColourDistance)) {
            clusters.emplace_back();
            best = int(clusters.size()) - 1;
        }
        if (best < 0) continue;  // no mask at all (maxColours 0)
        clusterOf[i] = best;
        Cluster& c = clusters[best];
        const double w = double(comps.area[i]);
        for (int k = 0; k < 3; ++k) c.rgb[k] = (c.rgb[k] * c.weight + rgb[k] * w) / (c.weight + w);
        c.weight += w;
    }
    // Clusters too small to earn a mask of their own join the nearest big one.
    std::vector<int> target(clusters.size());
    for (size_t c = 0; c < clusters.size(); ++c) {
        target[c] = int(c);
        if (clusters[c].weight >= kMinClusterShare * inkTotal) continue;
        double bestD = 1e18;
        for (size_t o = 0; o < clusters.size(); ++o)
            if (o != c && clusters[o].weight >= kMinClusterShare * inkTotal &&
                distance2(clusters[c].rgb, clusters[o].rgb) < bestD)
                bestD = distance2(clusters[c].rgb, clusters[o].rgb), target[c] = int(o);
    }

    const size_t rowBytes = (size_t(out.width) + 7) / 8;
    std::vector<int> maskOf(clusters.size(), -1);
    for (size_t c = 0; c < clusters.size(); ++c) {
        if (target[c] != int(c)) continue;
        maskOf[c] = int(out.masks.size());
        TextMask m;
        m.packed.assign(rowBytes * out.height, 0);
        for (int k = 0; k < 3; ++k) m.colour[k] = uint8_t(std::clamp(std::lround(clusters[c].rgb[k]), 0l, 255l));
        out.masks.push_back(std::move(m));
    }
    // The page pixels under a run of the mask.
    const auto markPage = [&](Plane& plane, const Run& r) {
        const int py0 = int(r.y / sy), py1 = std::min(page.height - 1, int(std::ceil((r.y + 1) / sy)) - 1);
        const int px0 = int(r.x0 / sx), px1 = std::min(page.width - 1, int(std::ceil((r.x1 + 1) / sx)) - 1);
        for (int py = py0; py <= py1; ++py) std::fill(plane.row(py) + px0, plane.row(py) + px1 + 1, uint8_t(1));
    };
    const auto setRun = [&](TextMask& m, const Run& r) {
        uint8_t* row = m.packed.data() + rowBytes * r.y;
        for (int x = r.x0; x <= r.x1; ++x) row[x >> 3] |= uint8_t(0x80 >> (x & 7));
        m.pixels += r.x1 - r.x0 + 1;
        markPage(out.pageInk, r);
    };
    out.pageInk = Plane(page.width, page.height, 0);
    for (const Run& r : comps.runs) {
        const int c = clusterOf[r.component];
        if (c < 0 || comps.area[r.component] <= speck) continue;
        setRun(out.masks[maskOf[target[c]]], r);
    }

    // A dark field and its light lettering: a mask each, in their own
    // colours, however little there is of them (joined to a dark ink the
    // lettering would vanish, and the field would take the ink's colour).
    // The field's mask is solid, letters included, so that the letters'
    // edges are coded once, in the lettering's mask drawn over it; both
    // come after the ink masks.
    std::stable_sort(out.masks.begin(), out.masks.end(),
                     [](const TextMask& a, const TextMask& b) { return a.pixels > b.pixels; });
    if (!light.lettering.empty() && settings.maxColours > 0) {
        for (const bool lettering : {false, true}) {
            TextMask m;
            m.packed.assign(rowBytes * out.height, 0);
            if (!lettering)
                for (const Run& r : light.lettering) setRun(m, r);
            std::array<double, 4> sum{};
            for (const Run& r : lettering ? light.lettering : light.fields) {
                setRun(m, r);
                addColour(r, lettering ? -1 : 0, sum);  // the field is even enough
            }
            for (int k = 0; k < 3; ++k) m.colour[k] = uint8_t(std::clamp(std::lround(sum[k] / sum[3]), 0l, 255l));
            out.masks.push_back(std::move(m));
        }
    }
    return out;
}

}  // namespace

TextLayer buildTextLayer(const Page& page, const Plane& gray, const LocalLevels& levels, int paperLevel,
                         const std::vector<Rect>& pictures, const TextSettings& settings) {
    TextLayer out = buildAt(page, gray, levels, paperLevel, pictures, settings);
    const double pageDpi = page.dpiX > 0 ? page.dpiX : 300;  // neither mask is finer than the page
    if (std::min(settings.smallTextDpi, pageDpi) > std::min(settings.maskDpi, pageDpi) && out.letterHeight > 0 &&
        out.letterHeight < kSmallLetterInches) {
        TextSettings finer = settings;
        finer.maskDpi = settings.smallTextDpi;
        out = buildAt(page, gray, levels, paperLevel, pictures, finer);
    }
    return out;
}

}  // namespace tavrin
