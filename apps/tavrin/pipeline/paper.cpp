#include "pipeline/paper.h"

#include <algorithm>
#include <cmath>

namespace tavrin {

namespace {

constexpr int kPeakHalfWidth = 8;        // levels around the bright peak that count as paper
constexpr double kMinPaperShare = 0.45;  // of a tile, for the tile to show paper
constexpr int kMaxPaperDrift = 30;       // a paper tile's level is this close to the page's paper
constexpr int kMaxTintDrift = 24;
constexpr int kBorderTiles = 1;          // rows and columns of tiles that make the page's border
constexpr double kBorderShare = 0.3;     // flat share of the border that makes it a margin        // and its colour, once the level is taken out

int tileSideFor(double dpi) { return std::max(16, int(std::lround(64.0 * dpi / 300.0))); }

struct TileStats {
    int level = 0;         // the bright peak
    double share = 0;      // of the tile's samples within kPeakHalfWidth of it
    double variance = 0;   // of those samples
    std::array<double, 3> colour{};
};

// Every second pixel of every second row is enough for levels and colours.
TileStats measureTile(const Page& page, const Plane& gray, int x0, int y0, int x1, int y1) {
    uint32_t hist[256] = {};
    uint32_t total = 0;
    for (int y = y0; y < y1; y += 2) {
        const uint8_t* g = gray.row(y);
        for (int x = x0; x < x1; x += 2) ++hist[g[x]], ++total;
    }
    TileStats t;
    if (!total) return t;
    // The bright peak: the fullest level among the brightest 15 %.
    uint32_t seen = 0;
    int from = 255;
    while (from > 0 && seen + hist[from] < total * 0.15) seen += hist[from--];
    int peak = from;
    for (int v = from; v <= 255; ++v)
        if (hist[v] >= hist[peak]) peak = v;
    // Smooth the peak's position over its neighbourhood.
    double n = 0, s = 0, s2 = 0;
    for (int v = std::max(0, peak - kPeakHalfWidth); v <= std::min(255, peak + kPeakHalfWidth); ++v)
        n += hist[v], s += double(hist[v]) * v, s2 += double(hist[v]) * v * v;
    t.level = int(std::lround(s / n));
    t.share = n / total;
    t.variance = std::max(0.0, s2 / n - (s / n) * (s / n));
    // Colour of the paper samples.
    double c[3] = {}, m = 0;
    const int lo = t.level - kPeakHalfWidth, hi = t.level + kPeakHalfWidth;
    for (int y = y0; y < y1; y += 2) {
        const uint8_t* g = gray.row(y);
        const uint8_t* p = page.row(y);
        for (int x = x0; x < x1; x += 2) {
            if (g[x] < lo || g[x] > hi) continue;
            for (int k = 0; k < 3; ++k) c[k] += p[size_t(x) * page.channels + (page.channels == 3 ? k : 0)];
            ++m;
        }
    }
    for (int k = 0; k < 3; ++k) t.colour[k] = m ? c[k] / m : t.level;
    return t;
}

// Fills the tiles without a value (weight 0) from the nearest coarser
// average that has one, then smooths with a 3 x 3 mean.
void fillAndSmooth(std::vector<std::array<double, 4>>& v, int cols, int rows) {
    // v[i] = {gray, r, g, b} with weight in isPaper; holes are marked by NaN.
    std::vector<std::array<double, 4>> filled = v;
    for (int radius = 1; radius < std::max(cols, rows) * 2; radius *= 2) {
        bool holes = false;
        std::vector<std::array<double, 4>> next = filled;
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < cols; ++x) {
                std::array<double, 4>& d = next[size_t(y) * cols + x];
                if (!std::isnan(d[0])) continue;
                std::array<double, 4> acc{};
                double n = 0;
                for (int yy = std::max(0, y - radius); yy <= std::min(rows - 1, y + radius); ++yy)
                    for (int xx = std::max(0, x - radius); xx <= std::min(cols - 1, x + radius); ++xx) {
                        const std::array<double, 4>& s = filled[size_t(yy) * cols + xx];
                        if (std::isnan(s[0])) continue;
                        for (int k = 0; k < 4; ++k) acc[k] += s[k];
                        ++n;
                    }
                if (n) {
                    for (int k = 0; k < 4; ++k) d[k] = acc[k] / n;
                } else {
                    holes = true;
                }
            }
        filled.swap(next);
        if (!holes) break;
    }
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x) {
            std::array<double, 4> acc{};
            double n = 0;
            for (int yy = std::max(0, y - 1); yy <= std::min(rows - 1, y + 1); ++yy)
                for (int xx = std::max(0, x - 1); xx <= std::min(cols - 1, x + 1); ++xx) {
                    for (int k = 0; k < 4; ++k) acc[k] += filled[size_t(yy) * cols + xx][k];
                    ++n;
                }
            for (int k = 0; k < 4; ++k) v[size_t(y) * cols + x][k] = acc[k] / n;
        }
}

uint8_t toByte(double v) { return uint8_t(std::clamp(std::lround(v), 0l, 255l)); }

}  // namespace

int PaperMap::grayAt(int x, int y) const {
    uint8_t level;
    grayAlong(y, x, 1, 1, &level);
    return level;
}

std::array<uint8_t, 3> PaperMap::colourAt(int x, int y, int channels) const {
    return colourAt(x, y, channels, grayAt(x, y));
}

void PaperMap::grayAlong(int y, int x, int step, int count, uint8_t* out) const {
    const double fy = std::clamp((y + 0.5) / tile - 0.5, 0.0, double(rows - 1));
    const int y0 = int(fy), y1 = std::min(y0 + 1, rows - 1);
    const double ay = fy - y0;
    const uint8_t* upper = gray.data() + size_t(y0) * columns;
    const uint8_t* lower = gray.data() + size_t(y1) * columns;
    for (int k = 0; k < count; ++k, x += step) {
        const double fx = std::clamp((x + 0.5) / tile - 0.5, 0.0, double(columns - 1));
        const int x0 = int(fx), x1 = std::min(x0 + 1, columns - 1);
        const double ax = fx - x0;
        const double top = double(upper[x0]) * (1 - ax) + double(upper[x1]) * ax;
        const double bottom = double(lower[x0]) * (1 - ax) + double(lower[x1]) * ax;
        out[k] = uint8_t(std::lround(top * (1 - ay) + bottom * ay));
    }
}

PaperMap estimatePaper(const Page& page, const Plane& gray, const std::vector<Rect>& notPaper) {
    PaperMap m;
    m.tile = tileSideFor(page.dpiX > 0 ? page.dpiX : 300);
    m.columns = std::max(1, (gray.width + m.tile - 1) / m.tile);
    m.rows = std::max(1, (gray.height + m.tile - 1) / m.tile);
    const size_t n = size_t(m.columns) * m.rows;
    std::vector<TileStats> tiles(n);
#pragma omp parallel for schedule(static)
    for (int ty = 0; ty < m.rows; ++ty)
        for (int tx = 0; tx < m.columns; ++tx)
            tiles[size_t(ty) * m.columns + tx] =
                measureTile(page, gray, tx * m.tile, ty * m.tile, std::min(gray.width, (tx + 1) * m.tile),
                            std::min(gray.height, (ty + 1) * m.tile));

    // The page's paper: where the page shows its margins (tiles along its
    // border) are flat, their median level; else the median of the flat
    // tiles within 40 levels of the brightest flat level. A plain area
    // inside a picture is darker than the paper more often than not.
    std::vector<int> strong, border;
    int brightest = 0;
    for (int ty = 0; ty < m.rows; ++ty)
        for (int tx = 0; tx < m.columns; ++tx) {
            const TileStats& t = tiles[size_t(ty) * m.columns + tx];
            brightest = std::max(brightest, t.level);
            if (t.share < kMinPaperShare) continue;
            strong.push_back(t.level);
            if (tx < kBorderTiles || ty < kBorderTiles || tx >= m.columns - kBorderTiles || ty >= m.rows - kBorderTiles)
                border.push_back(t.level);
        }
    const auto median = [](std::vector<int> v) {
        std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
        return v[v.size() / 2];
    };
    const int borderTiles = 2 * kBorderTiles * (m.columns + m.rows);
    int global = brightest;
    if (border.size() >= size_t(kBorderShare * borderTiles) && !border.empty()) {
        global = median(border);
    } else if (!strong.empty()) {
        const int top = *std::max_element(strong.begin(), strong.end());
        std::vector<int> near;
        for (int v : strong)
            if (v >= top - 40) near.push_back(v);
        global = median(near);
    }

    // Its colour: that of the strong tiles at the paper level itself.
    double ref[3] = {double(global), double(global), double(global)}, refN = 0, refSum[3] = {};
    for (const TileStats& t : tiles)
        if (t.share >= kMinPaperShare && std::abs(t.level - global) <= kPeakHalfWidth) {
            for (int k = 0; k < 3; ++k) refSum[k] += t.colour[k];
            ++refN;
        }
    if (refN)
        for (int k = 0; k < 3; ++k) ref[k] = refSum[k] / refN;
    // A plain sky or backdrop can be as flat as paper; its colour gives it
    // away unless it is the paper's own.
    const auto paperLike = [&](const TileStats& t) {
        if (t.share < kMinPaperShare || std::abs(t.level - global) > kMaxPaperDrift) return false;
        const double shift = t.level - global;
        for (int k = 0; k < 3; ++k)
            if (std::abs(t.colour[k] - shift - ref[k]) > kMaxTintDrift) return false;
        return true;
    };

    std::vector<std::array<double, 4>> v(n);
    m.isPaper.assign(n, 0);
    double noiseSum = 0, colour[3] = {};
    int paperTiles = 0;
    const auto covered = [&](size_t i) {
        const int tx = int(i % m.columns), ty = int(i / m.columns);
        const Rect tile{tx * m.tile, ty * m.tile, (tx + 1) * m.tile - 1, (ty + 1) * m.tile - 1};
        return std::any_of(notPaper.begin(), notPaper.end(),
                           [&](const Rect& r) { return 4 * r.intersect(tile).area() >= tile.area(); });
    };
    for (size_t i = 0; i < n; ++i) {
        const TileStats& t = tiles[i];
        const bool paper = paperLike(t) && !covered(i);
        m.isPaper[i] = paper;
        if (paper) {
            v[i] = {double(t.level), t.colour[0], t.colour[1], t.colour[2]};
            noiseSum += t.variance;
            for (int k = 0; k < 3; ++k) colour[k] += t.colour[k];
            ++paperTiles;
        } else {
            v[i] = {std::nan(""), 0, 0, 0};
        }
    }
    m.paperShare = double(paperTiles) / n;
    if (paperTiles == 0) {
        // No paper showing: stand in the brightest level, neutral.
        for (size_t i = 0; i < n; ++i) v[i] = {double(global), double(global), double(global), double(global)};
        m.globalColour = {toByte(global), toByte(global), toByte(global)};
    } else {
        m.noise = std::max(1.0, std::sqrt(noiseSum / paperTiles));
        m.globalColour = {toByte(colour[0] / paperTiles), toByte(colour[1] / paperTiles),
                          toByte(colour[2] / paperTiles)};
    }
    m.globalGray = toByte(global);
    fillAndSmooth(v, m.columns, m.rows);
    m.gray.resize(n);
    m.colour.resize(n);
    for (size_t i = 0; i < n; ++i) {
        m.gray[i] = toByte(v[i][0]);
        m.colour[i] = {toByte(v[i][1]), toByte(v[i][2]), toByte(v[i][3])};
    }
    return m;
}

}  // namespace tavrin
