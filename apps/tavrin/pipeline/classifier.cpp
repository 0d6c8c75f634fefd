#include "pipeline/classifier.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "pipeline/components.h"
#include "pipeline/local_levels.h"

namespace tavrin {

namespace {

constexpr int kCell = 4;               // page pixels per cell side
constexpr int kMinFlatRange = 12;      // levels between the cell means around a flat cell, at most,
constexpr double kFlatNoises = 3;      // or this many times the paper's noise
constexpr int kBlock = 8;              // cells per block side
constexpr double kDenseBelowPaper = 0.35;  // paper share under which a block is dense
constexpr int kMinAreaBlocks = 10;     // smallest picture, blocks (about 0.7 cm^2 at 300 dpi)
constexpr int kMinSideBlocks = 2;      // and its smallest side
constexpr int kPaperTint = 8;          // colour difference, levels, that still passes for paper
constexpr int kMinColours = 12;        // colour bins of a photograph's tones
constexpr double kScreenSpread = 6;    // gray spread of a halftone picture's block means
constexpr double kEdgeFilled = 0.75;   // share of edge cells of a screen or dense drawing
constexpr double kLetterShare = 0.6;   // share of marks in letter-sized shapes from which a flat area holds text
constexpr int kMarkContrast = 40;
constexpr int kThinRange = 60;         // levels a thin line spans inside its cell
constexpr int kScreenCells = 16;       // of 25 around a cell that span as much in a screen      // levels between the dark and light side of a mark
constexpr int kLetterMin = 4, kLetterMax = 60;  // letter heights, cells (1.4 mm to 2 cm at 300 dpi)
constexpr int kQuietMinBlocks = 48;    // smallest quiet picture, blocks (3.5 cm^2)
constexpr int kQuietMinSide = 6;       // and its smallest side (1.6 cm)
constexpr int kDrawingMinSide = 30;    // cells (1 cm at 300 dpi)
constexpr double kDrawingMaxDensity = 0.35;  // marked share of its box; words are denser
constexpr double kTableSpan = 0.8;     // share of a table's side that its rulings cross
constexpr double kPartSpan = 0.5;      // share crossed by the edges of a chart's bars
constexpr int kTableLines = 3;         // rulings each way that make a table
constexpr double kTableFill = 0.45;    // inked share of a table's box, at most
constexpr double kSolidFill = 0.55;    // inked share of a solid shape's box
constexpr double kLetterFill = 0.3;    // inked share of a display letter's box
constexpr int kSkewSteps = 6;          // slopes tried either way for skewed rulings
constexpr double kSkewStep = 0.01;
constexpr int kInkContrast = 50;       // local background-to-ink contrast of text

struct Cells {
    int width = 0, height = 0;
    std::vector<uint8_t> mean, median, range, wideAround, paper;  // range: brightest - darkest pixel
    std::vector<std::array<uint8_t, 3>> rgb, paperRgb;  // mean colour, the paper's colour
};

Cells measureCells(const Page& page, const Plane& gray, const PaperMap& paper) {
    Cells c;
    c.width = (gray.width + kCell - 1) / kCell;
    c.height = (gray.height + kCell - 1) / kCell;
    const size_t n = size_t(c.width) * c.height;
    c.rgb.resize(n), c.paperRgb.resize(n);
    c.mean.resize(n), c.range.resize(n), c.paper.resize(n);
    const bool colour = page.channels == 3;
#pragma omp parallel
    {
        // Per band of cell rows: each page column's sum, darkest and
        // brightest level (and each colour sample's sum) down the band, in
        // loops over whole rows that the compiler vectorises; then each
        // cell gathers its four columns.
        std::vector<uint16_t> colSum(gray.width), rgbSum(colour ? size_t(gray.width) * 3 : 0);
        std::vector<uint8_t> colLo(gray.width), colHi(gray.width);
#pragma omp for schedule(static)
        for (int cy = 0; cy < c.height; ++cy) {
            const int y0 = cy * kCell, y1 = std::min(gray.height, y0 + kCell);
            const int py = std::min(gray.height - 1, y0 + kCell / 2);
            const std::array<uint8_t, 3>* paperColours =
                paper.colour.data() + size_t(std::min(paper.rows - 1, py / paper.tile)) * paper.columns;
            const uint8_t* first = gray.row(y0);
            std::copy_n(first, gray.width, colLo.data()), std::copy_n(first, gray.width, colHi.data());
            std::copy_n(first, gray.width, colSum.data());
            if (colour) std::copy_n(page.row(y0), rgbSum.size(), rgbSum.data());
            for (int y = y0 + 1; y < y1; ++y) {
                const uint8_t* g = gray.row(y);
                for (int x = 0; x < gray.width; ++x) {
                    colSum[x] = uint16_t(colSum[x] + g[x]);
                    colLo[x] = std::min(colLo[x], g[x]), colHi[x] = std::max(colHi[x], g[x]);
                }
                if (colour) {
                    const uint8_t* q = page.row(y);
                    for (size_t i = 0; i < rgbSum.size(); ++i) rgbSum[i] = uint16_t(rgbSum[i] + q[i]);
                }
            }
            for (int cx = 0; cx < c.width; ++cx) {
                const int x0 = cx * kCell, x1 = std::min(gray.width, x0 + kCell);
                int s = 0, l = 255, h = 0;
                std::array<int, 3> t{};
                for (int x = x0; x < x1; ++x) {
                    s += colSum[x], l = std::min<int>(l, colLo[x]), h = std::max<int>(h, colHi[x]);
                    if (colour)
                        for (int k = 0; k < 3; ++k) t[k] += rgbSum[size_t(x) * 3 + k];
                }
                const size_t i = size_t(cy) * c.width + cx;
                const int n = (x1 - x0) * (y1 - y0);
                // A whole cell divides by 16: a shift, not a division, per mean.
                const auto mean = [n](int total) { return uint8_t(n == kCell * kCell ? (total + 8) >> 4 : (total + n / 2) / n); };
                c.mean[i] = mean(s);
                c.range[i] = uint8_t(h - l);
                for (int k = 0; k < 3; ++k) c.rgb[i][k] = colour ? mean(t[k]) : c.mean[i];
                const int px = std::min(gray.width - 1, cx * kCell + kCell / 2);
                c.paperRgb[i] = paperColours[std::min(paper.columns - 1, px / paper.tile)];
            }
            // The paper level at each cell's centre (the last may lie off the page).
            const int centred = std::min(c.width, std::max(0, gray.width - 1 - kCell / 2) / kCell + (gray.width > kCell / 2));
            uint8_t* paperRow = c.paper.data() + size_t(cy) * c.width;
            paper.grayAlong(py, kCell / 2, kCell, centred, paperRow);
            for (int cx = centred; cx < c.width; ++cx) paperRow[cx] = uint8_t(paper.grayAt(gray.width - 1, py));
        }
    }
    c.median.resize(n), c.wideAround.resize(n);
    // Wide-range cells counted over 5 x 5 cells: sums along rows, then down.
    std::vector<uint8_t> rowWide(n);
#pragma omp parallel for schedule(static)
    for (int cy = 0; cy < c.height; ++cy) {
        const uint8_t* r = c.range.data() + size_t(cy) * c.width;
        uint8_t* o = rowWide.data() + size_t(cy) * c.width;
        for (int cx = 0; cx < c.width; ++cx) {
            int wide = 0;
            for (int dx = -2; dx <= 2; ++dx) wide += r[std::clamp(cx + dx, 0, c.width - 1)] >= kThinRange;
            o[cx] = uint8_t(wide);
        }
    }
// Medians of 3 x 3 cell means: each column of three sorted once, then the
// median of nine is the middle of (the largest low, the middle of the
// middles, the smallest high) over three adjacent columns. Branch-free
// byte minima and maxima that the compiler vectorises.
#pragma omp parallel
    {
        std::vector<uint8_t> lo(c.width), mid(c.width), hi(c.width);
#pragma omp for schedule(static)
        for (int cy = 0; cy < c.height; ++cy) {
            const uint8_t* rows[5];
            for (int dy = -2; dy <= 2; ++dy) rows[dy + 2] = rowWide.data() + size_t(std::clamp(cy + dy, 0, c.height - 1)) * c.width;
            const uint8_t* m0 = c.mean.data() + size_t(std::max(cy - 1, 0)) * c.width;
            const uint8_t* m1 = c.mean.data() + size_t(cy) * c.width;
            const uint8_t* m2 = c.mean.data() + size_t(std::min(cy + 1, c.height - 1)) * c.width;
            uint8_t* wide = c.wideAround.data() + size_t(cy) * c.width;
            for (int cx = 0; cx < c.width; ++cx) {
                wide[cx] = uint8_t(rows[0][cx] + rows[1][cx] + rows[2][cx] + rows[3][cx] + rows[4][cx]);
                const uint8_t a = std::min(m0[cx], m1[cx]), b = std::max(m0[cx], m1[cx]);
                lo[cx] = std::min(a, m2[cx]);
                hi[cx] = std::max(b, m2[cx]);
                mid[cx] = std::max(a, std::min(b, m2[cx]));
            }
            uint8_t* med = c.median.data() + size_t(cy) * c.width;
            const auto median = [&](int l, int x, int r) {
                const uint8_t low = std::max({lo[l], lo[x], lo[r]}), high = std::min({hi[l], hi[x], hi[r]});
                const uint8_t a = std::min(mid[l], mid[x]), b = std::max(mid[l], mid[x]);
                const uint8_t middle = std::max(a, std::min(b, mid[r]));
                const uint8_t p = std::min(low, middle), q = std::max(low, middle);
                return std::max(p, std::min(q, high));
            };
            for (int cx = 1; cx + 1 < c.width; ++cx) med[cx] = median(cx - 1, cx, cx + 1);
            med[0] = median(0, 0, std::min(1, c.width - 1));
            if (c.width > 1) med[c.width - 1] = median(c.width - 2, c.width - 1, c.width - 1);
        }
    }
    return c;
}

// A thin line or a fine detail: a wide range of levels inside the cell
// among cells that have none (a screen spans a wide range in every cell).
bool thinLine(const Cells& c, size_t i) { return c.range[i] >= kThinRange && c.wideAround[i] < kScreenCells; }

enum CellKind : uint8_t { kPaperCell, kToneCell, kEdgeCell };

// Long straight lines of one shape, counted along the rows (or columns) of
// its box after shearing by each slope up to 3.4 degrees (a skewed scan):
// groups of adjacent sheared rows that the shape crosses over `span` of the
// box's width. The best slope counts.
int longLines(const Components& marks, int m, bool rows, double span) {
    const Rect& b = marks.boxes[m];
    const int along = rows ? b.width() : b.height(), across = rows ? b.height() : b.width();
    int best = 0;
    std::vector<int> count;
    for (int step = -kSkewSteps; step <= kSkewSteps; ++step) {
        const double slope = step * kSkewStep;
        const int pad = int(std::ceil(std::abs(slope) * along)) + 1;
        count.assign(size_t(across + 2 * pad), 0);
        for (const Run& r : marks.runs) {
            if (r.component != m) continue;
            for (int x = r.x0; x <= r.x1; ++x) {
                const int u = rows ? x - b.x0 : r.y - b.y0, v = rows ? r.y - b.y0 : x - b.x0;
                ++count[size_t(v - int(std::lround(slope * u)) + pad)];
            }
        }
        int n = 0;
        bool in = false;
        for (int c : count) {
            const bool line = c >= span * along;
            n += line && !in;
            in = line;
        }
        best = std::max(best, n);
    }
    return best;
}

// Drawings, charts and diagrams: large, sparse shapes of marks (an outline,
// a pair of axes). Left out: the grid of a ruled table, whose lines run
// from side to side both ways, solid shapes, and display letters, which
// stand in rows.
std::vector<Rect> drawingBoxes(const Components& marks, const Plane& inkedCells) {
    std::vector<Rect> out;
    std::vector<int> big;
    for (int m = 0; m < marks.count; ++m) {
        const Rect& b = marks.boxes[m];
        if (b.width() >= kDrawingMinSide && b.height() >= kDrawingMinSide && marks.area[m] < kDrawingMaxDensity * b.area())
            big.push_back(m);
    }
    for (int m : big) {
        const Rect& b = marks.boxes[m];
        // A solid shape (a display letter, a bold logo) is not a drawing of
        // lines; a dense picture is found as an area anyway.
        int inked = 0;
        for (int y = b.y0; y <= b.y1; ++y)
            for (int x = b.x0; x <= b.x1; ++x) inked += inkedCells.row(y)[x];
        if (inked >= kSolidFill * b.area()) continue;
        // Display type: a shape of about the same height level with it,
        // close beside it, and strokes that fill much of the box.
        bool lettering = false;
        for (int o = 0; o < marks.count && !lettering; ++o) {
            const Rect& q = marks.boxes[o];
            const int overlap = std::min(b.y1, q.y1) - std::max(b.y0, q.y0) + 1;
            lettering = o != m && overlap >= 0.6 * b.height() && q.height() >= 0.6 * b.height() &&
                        q.height() <= 1.6 * b.height() && std::max(q.x0 - b.x1, b.x0 - q.x1) <= b.height();
        }
        if (lettering && inked >= kLetterFill * b.area()) continue;
        // A table: rulings across, rulings down (they may stop short of a
        // header), and less ink or shading between them than a chart's bars.
        const int across = longLines(marks, m, true, kTableSpan), down = longLines(marks, m, false, kPartSpan);
        if (across >= kTableLines && down >= kTableLines && inked < kTableFill * b.area()) continue;
        out.push_back(b);
    }
    return out;
}

struct Area {
    int blocks = 0;
    Rect box;               // in blocks
    double cells = 0, edge = 0, marks = 0, letters = 0;
    double toneN = 0;
    int colours = 0;        // colour bins that hold 90 % of the tone cells
    double blockN = 0, blockSum = 0, blockSum2 = 0;  // gray means of whole blocks (a screen averages out)
};

}  // namespace

Classification classifyPage(const Page& page, const Plane& gray, const PageMeasures& measures, double dpi) {
    const PaperMap& paper = measures.paper;
    const LocalLevels& levels = measures.levels;
    (void)dpi;
    const Cells c = measureCells(page, gray, paper);
    const double noise = paper.noise;
    const int flatRange = std::max(kMinFlatRange, int(std::lround(kFlatNoises * noise)));
    const int paperTolerance = std::max(12, int(std::lround(4 * noise)));
    const size_t n = size_t(c.width) * c.height;
    std::vector<uint8_t> kind(n);
#pragma omp parallel for schedule(static)
    for (size_t i = 0; i < n; ++i) {
        const bool flat = std::abs(c.mean[i] - c.median[i]) <= flatRange && !thinLine(c, i);
        // At the paper's level, and of its colour once the level is taken out.
        const int shift = c.mean[i] - c.paper[i];
        bool paperLevel = std::abs(shift) <= paperTolerance;
        for (int k = 0; k < 3 && paperLevel; ++k)
            paperLevel = std::abs(c.rgb[i][k] - c.paperRgb[i][k] - shift) <= kPaperTint;
        kind[i] = !flat ? kEdgeCell : paperLevel ? kPaperCell : kToneCell;
    }

    // Dense blocks and their 8-connected areas.
    const int bw = (c.width + kBlock - 1) / kBlock, bh = (c.height + kBlock - 1) / kBlock;
    Plane dense(bw, bh, 0);
#pragma omp parallel for schedule(static)
    for (int by = 0; by < bh; ++by)
        for (int bx = 0; bx < bw; ++bx) {
            int paperCells = 0, cells = 0;
            for (int cy = by * kBlock; cy < std::min(c.height, (by + 1) * kBlock); ++cy)
                for (int cx = bx * kBlock; cx < std::min(c.width, (bx + 1) * kBlock); ++cx)
                    paperCells += kind[size_t(cy) * c.width + cx] == kPaperCell, ++cells;
            dense.row(by)[bx] = paperCells < kDenseBelowPaper * cells;
        }
    const Components areas = findComponents(dense);
    std::vector<int> areaOf(size_t(bw) * bh, -1);
    for (const Run& r : areas.runs)
        for (int x = r.x0; x <= r.x1; ++x) areaOf[size_t(r.y) * bw + x] = r.component;

    // Marks: cells with a strong edge inside, dark on light or light on
    // dark. Their 8-connected shapes are letter-sized in text (words, at
    // this scale) and tiny in a starry sky or a speckled texture.
    Plane markCells(c.width, c.height);
#pragma omp parallel for schedule(static)
    for (size_t i = 0; i < n; ++i) {
        const int deviation = std::abs(c.mean[i] - c.median[i]);
        markCells.data[i] = deviation >= kMarkContrast || thinLine(c, i);
    }
    const Components marks = findComponents(markCells);
    std::vector<uint8_t> letterSized(marks.count);
    for (int m = 0; m < marks.count; ++m)
        letterSized[m] = marks.boxes[m].height() >= kLetterMin && marks.boxes[m].height() <= kLetterMax;
    // Whether each mark cell's shape is letter-sized (other cells: undefined, never read).
    Plane inLetter(c.width, c.height);
    for (const Run& r : marks.runs)
        std::fill_n(inLetter.row(r.y) + r.x0, r.x1 - r.x0 + 1, letterSized[r.component]);

    // Statistics of each area over its cells.
    std::vector<Area> stats(areas.count);
    for (int i = 0; i < areas.count; ++i) stats[i].box = areas.boxes[i], stats[i].blocks = int(areas.area[i]);
    for (int cy = 0; cy < c.height; ++cy)
        for (int cx = 0; cx < c.width; ++cx) {
            const int a = areaOf[size_t(cy / kBlock) * bw + cx / kBlock];
            if (a < 0) continue;
            const size_t i = size_t(cy) * c.width + cx;
            Area& s = stats[a];
            s.cells += 1;
            if (kind[i] == kEdgeCell) {
                s.edge += 1;
                if (markCells.data[i]) {
                    s.marks += 1;
                    s.letters += inLetter.data[i];
                }
            } else if (kind[i] == kToneCell) {
                s.toneN += 1;
            }
        }
    // Colour variety: a photograph's tones fill many bins of 8 levels per
    // channel, a tint or a table's shading one or two each.
    {
        std::vector<std::vector<uint32_t>> toneBins(areas.count);
        for (int cy = 0; cy < c.height; ++cy)
            for (int cx = 0; cx < c.width; ++cx) {
                const int a = areaOf[size_t(cy / kBlock) * bw + cx / kBlock];
                const size_t i = size_t(cy) * c.width + cx;
                if (a < 0 || kind[i] != kToneCell) continue;
                const auto& q = c.rgb[i];
                toneBins[a].push_back(uint32_t(q[0] >> 3) << 10 | uint32_t(q[1] >> 3) << 5 | uint32_t(q[2] >> 3));
            }
        // Counted in one table of every bin, emptied again after each area.
        std::vector<uint32_t> binCount(size_t(1) << 15, 0), counts;
        for (int a = 0; a < areas.count; ++a) {
            const std::vector<uint32_t>& b = toneBins[a];
            for (uint32_t bin : b) ++binCount[bin];
            counts.clear();
            for (uint32_t bin : b)
                if (binCount[bin]) counts.push_back(binCount[bin]), binCount[bin] = 0;
            std::sort(counts.rbegin(), counts.rend());
            uint64_t covered = 0;
            int bins = 0;
            while (bins < int(counts.size()) && covered < 0.9 * b.size()) covered += counts[bins++];
            stats[a].colours = bins;
        }
    }
    for (int by = 0; by < bh; ++by)
        for (int bx = 0; bx < bw; ++bx) {
            const int a = areaOf[size_t(by) * bw + bx];
            if (a < 0) continue;
            double sum = 0, count = 0;
            for (int cy = by * kBlock; cy < std::min(c.height, (by + 1) * kBlock); ++cy)
                for (int cx = bx * kBlock; cx < std::min(c.width, (bx + 1) * kBlock); ++cx)
                    sum += c.mean[size_t(cy) * c.width + cx], ++count;
            const double m = sum / count;
            stats[a].blockN += 1, stats[a].blockSum += m, stats[a].blockSum2 += m * m;
        }
    std::vector<uint8_t> isPicture(areas.count, 0);
    for (int a = 0; a < areas.count; ++a) {
        const Area& s = stats[a];
        if (s.blocks < kMinAreaBlocks || s.box.width() < kMinSideBlocks || s.box.height() < kMinSideBlocks) continue;
        const bool tones = s.colours >= kMinColours;
        // A halftone print is edges all over, and its shades vary; a screened
        // tint is edges all over too, but one shade.
        const double blockMean = s.blockSum / s.blockN;
        const double blockSpread = std::sqrt(std::max(0.0, s.blockSum2 / s.blockN - blockMean * blockMean));
        const bool screen = s.edge > kEdgeFilled * s.cells && blockSpread >= kScreenSpread;
        const bool quiet = s.blocks >= kQuietMinBlocks && s.box.width() >= kQuietMinSide &&
                           s.box.height() >= kQuietMinSide && s.letters < kLetterShare * s.marks;
        isPicture[a] = tones || screen || quiet;
    }

    // Picture cells: the picture areas, holes filled.
    Classification out;
    out.pictureCells = Plane(c.width, c.height, 0);
    Plane pictureBlocks(bw, bh, 0);
    for (size_t i = 0; i < areaOf.size(); ++i) pictureBlocks.data[i] = areaOf[i] >= 0 && isPicture[areaOf[i]];
    {
        // Holes: blocks not reachable from the border through non-picture blocks.
        Plane outside(bw, bh, 0);
        std::vector<int> stack;
        for (int y = 0; y < bh; ++y)
            for (int x = 0; x < bw; ++x)
                if ((x == 0 || y == 0 || x == bw - 1 || y == bh - 1) && !pictureBlocks.row(y)[x])
                    outside.row(y)[x] = 1, stack.push_back(y * bw + x);
        while (!stack.empty()) {
            const int p = stack.back();
            stack.pop_back();
            const int x = p % bw, y = p / bw;
            const int nx[4] = {x - 1, x + 1, x, x}, ny[4] = {y, y, y - 1, y + 1};
            for (int k = 0; k < 4; ++k) {
                if (nx[k] < 0 || ny[k] < 0 || nx[k] >= bw || ny[k] >= bh) continue;
                uint8_t& o = outside.row(ny[k])[nx[k]];
                if (!o && !pictureBlocks.row(ny[k])[nx[k]]) o = 1, stack.push_back(ny[k] * bw + nx[k]);
            }
        }
        for (size_t i = 0; i < pictureBlocks.data.size(); ++i) pictureBlocks.data[i] = !outside.data[i];
    }
    out.markedCells = Plane(c.width, c.height);
#pragma omp parallel for schedule(static)
    for (int cy = 0; cy < c.height; ++cy)
        for (int cx = 0; cx < c.width; ++cx) {
            out.pictureCells.row(cy)[cx] = pictureBlocks.row(cy / kBlock)[cx / kBlock] ? kPhoto : 0;
            out.markedCells.row(cy)[cx] = kind[size_t(cy) * c.width + cx] != kPaperCell;
        }

    // Inked: a mark, or far from the paper's level either way (the strokes
    // of bold type, a dark banner behind light type, a chart's bars).
    Plane inkedCells(c.width, c.height);
#pragma omp parallel for schedule(static)
    for (size_t i = 0; i < n; ++i) inkedCells.data[i] = markCells.data[i] || std::abs(c.mean[i] - c.paper[i]) >= kMarkContrast;
    for (const Rect& r : drawingBoxes(marks, inkedCells))
        for (int cy = r.y0; cy <= r.y1; ++cy)
            for (int cx = r.x0; cx <= r.x1; ++cx)
                if (!out.pictureCells.row(cy)[cx]) out.pictureCells.row(cy)[cx] = kGraphic;

    // The attribute map.
    const Plane half = reducePlane(gray, 2);
    out.attributes = Plane(half.width, half.height);
#pragma omp parallel for schedule(static)
    for (int y = 0; y < half.height; ++y) {
        const int cy = std::min(c.height - 1, y / 2);
        const uint8_t* g = half.row(y);
        const uint8_t* bg = levels.background.row(std::min(levels.background.height - 1, cy));
        const uint8_t* ink = levels.ink.row(cy);
        const uint8_t* pic = out.pictureCells.row(cy);
        uint8_t* a = out.attributes.row(y);
        for (int x = 0; x < half.width; ++x) {
            const int cx = std::min(c.width - 1, x / 2);
            if (pic[cx])
                a[x] = kPictureAttribute;
            else if (bg[cx] - ink[cx] >= kInkContrast && 2 * g[x] < bg[cx] + ink[cx])
                a[x] = kHighAttribute;
            else
                a[x] = 0;
        }
    }
    return out;
}

}  // namespace tavrin
