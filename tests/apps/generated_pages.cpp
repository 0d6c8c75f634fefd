#include "generated_pages.h"

#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <stdexcept>

#include "e2e_support.h"

namespace e2e {

namespace {

constexpr int kSuper = 4;  // supersampling per axis for anti-aliased strokes

// Coverage plane (0..255) painted by primitives at kSuper x resolution,
// reduced on the fly per glyph cell.
struct Canvas {
    int w, h;
    std::vector<uint8_t> cover;  // 0..16 samples covered per pixel
    Canvas(int w_, int h_) : w(w_), h(h_), cover(size_t(w_) * h_, 0) {}
    template <class Inside>
    void paint(int x0, int y0, int x1, int y1, Inside inside) {
        x0 = std::max(0, x0), y0 = std::max(0, y0), x1 = std::min(w - 1, x1), y1 = std::min(h - 1, y1);
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) {
                int n = 0;
                for (int sy = 0; sy < kSuper; ++sy)
                    for (int sx = 0; sx < kSuper; ++sx)
                        n += inside(x + (sx + 0.5) / kSuper, y + (sy + 0.5) / kSuper);
                uint8_t& c = cover[size_t(y) * w + x];
                c = uint8_t(std::max<int>(c, n));
            }
    }
};

bool overlaps(const tavrin::Rect& a, const std::vector<tavrin::Rect>& list) {
    for (const tavrin::Rect& b : list)
        if (a.x0 <= b.x1 && b.x0 <= a.x1 && a.y0 <= b.y1 && b.y0 <= a.y1) return true;
    return false;
}

}  // namespace

std::string samplePage() { return std::string(TAVRIN_SAMPLES_DIR) + "/sample-page.jpg"; }
std::string sampleTextPage() { return std::string(TAVRIN_SAMPLES_DIR) + "/text-page.jpg"; }
// Measured on the composed page (see samples/compose_sample.py).
tavrin::Rect samplePhotoCoffee() { return tavrin::Rect{210, 635, 1194, 1291}; }
tavrin::Rect samplePhotoCat() { return tavrin::Rect{1285, 1815, 2269, 2469}; }

GeneratedPage makeTextPage(int width, int height, bool colour, unsigned seed,
                           const std::vector<tavrin::Rect>& skip) {
    std::mt19937 rng(seed);
    auto uni = [&](int a, int b) { return std::uniform_int_distribution<int>(a, b)(rng); };
    GeneratedPage g;
    Canvas canvas(width, height);
    const double stroke = 4.0;                  // stroke width, pixels
    const int xHeight = 22, ascender = 32, lineHeight = 52;
    const int margin = width / 12, gutter = 60;
    const int columns = width > 1800 ? 2 : 1;
    const int colWidth = (width - 2 * margin - (columns - 1) * gutter) / columns;
    for (int col = 0; col < columns; ++col) {
        const int left = margin + col * (colWidth + gutter);
        for (int base = margin + ascender; base + 12 < height - margin; base += lineHeight) {
            int x = left;
            while (x < left + colWidth - 30) {
                const int letters = uni(2, 8);
                const tavrin::Rect word{x, base - ascender - 2, x + letters * 20, base + 2};
                if (word.x1 > left + colWidth || overlaps(word, skip)) {
                    x += 40;
                    continue;
                }
                for (int k = 0; k < letters; ++k) {
                    const double gx = x + 2;
                    switch (uni(0, 3)) {
                        case 0: {  // 'l': tall bar
                            const double cx = gx + 4;
                            canvas.paint(int(cx - 3), base - ascender, int(cx + 3), base, [&](double px, double py) {
                                return std::fabs(px - cx) <= stroke / 2 && py >= base - ascender && py <= base;
                            });
                            g.strokeCentres.push_back({int(cx), base - ascender / 2});
                            x += 12;
                            break;
                        }
                        case 1: {  // 'o': ring
                            const double cx = gx + 8, cy = base - xHeight / 2.0, r = xHeight / 2.0 - stroke / 2;
                            canvas.paint(int(cx - 12), int(cy - 13), int(cx + 12), int(cy + 13), [&](double px, double py) {
                                const double d = std::hypot((px - cx) * 1.2, py - cy);
                                return std::fabs(d - r) <= stroke / 2;
                            });
                            x += 20;
                            break;
                        }
                        case 2: {  // 'n': bar and arch
                            const double cx = gx + 2, cy = base - xHeight + 8.0;
                            canvas.paint(int(gx - 2), base - xHeight - 2, int(gx + 18), base, [&](double px, double py) {
                                const bool left = std::fabs(px - cx) <= stroke / 2 && py >= base - xHeight && py <= base;
                                const bool right = std::fabs(px - (cx + 12)) <= stroke / 2 && py >= cy && py <= base;
                                const double d = std::hypot(px - (cx + 6), py - cy);
                                const bool arch = py <= cy && std::fabs(d - 6) <= stroke / 2;
                                return left || right || arch;
                            });
                            g.strokeCentres.push_back({int(cx), base - xHeight / 2});
                            x += 20;
                            break;
                        }
                        default: {  // 'e'-like: ring with a bar
                            const double cx = gx + 8, cy = base - xHeight / 2.0, r = xHeight / 2.0 - stroke / 2;
                            canvas.paint(int(cx - 12), int(cy - 13), int(cx + 12), int(cy + 13), [&](double px, double py) {
                                const double d = std::hypot((px - cx) * 1.2, py - cy);
                                const bool ring = std::fabs(d - r) <= stroke / 2 && !(px > cx && py > cy && py < cy + 5);
                                const bool bar = std::fabs(py - cy) <= stroke / 2 && std::fabs(px - cx) <= r / 1.2;
                                return ring || bar;
                            });
                            x += 20;
                            break;
                        }
                    }
                }
                x += uni(14, 22);  // word space
            }
        }
    }
    // Paper with a slight tint and gradient, ink near black, sensor noise.
    std::normal_distribution<double> noise(0.0, 1.6);
    tavrin::Page& p = g.page;
    p.width = width;
    p.height = height;
    p.channels = colour ? 3 : 1;
    p.dpiX = p.dpiY = 300;
    p.pixels.resize(p.pixelCount() * p.channels);
    const double paper[3] = {244, 241, 233}, ink[3] = {28, 26, 32};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double a = canvas.cover[size_t(y) * width + x] / double(kSuper * kSuper);
            const double shade = -4.0 * y / height;
            for (int c = 0; c < p.channels; ++c) {
                const int k = colour ? c : 0;
                const double v = (paper[k] + shade) * (1 - a) + ink[k] * a + noise(rng);
                p.row(y)[size_t(x) * p.channels + c] = uint8_t(std::clamp(std::lround(v), 0L, 255L));
            }
        }
    return g;
}

void pastePhoto(GeneratedPage& g, const tavrin::Rect& from, int x, int y) {
    static const tavrin::Page sample = readPage(samplePage());
    tavrin::Page& p = g.page;
    for (int yy = 0; yy < from.height(); ++yy)
        for (int xx = 0; xx < from.width(); ++xx) {
            if (y + yy >= p.height || x + xx >= p.width) continue;
            const uint8_t* s = sample.row(from.y0 + yy) + size_t(from.x0 + xx) * 3;
            uint8_t* d = p.row(y + yy) + size_t(x + xx) * p.channels;
            if (p.channels == 3)
                d[0] = s[0], d[1] = s[1], d[2] = s[2];
            else
                d[0] = uint8_t((77 * s[0] + 150 * s[1] + 29 * s[2] + 128) >> 8);
        }
    g.photos.push_back(tavrin::Rect{x, y, std::min(p.width - 1, x + from.width() - 1),
                                    std::min(p.height - 1, y + from.height() - 1)});
}

void writePnm(const tavrin::Page& page, const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) throw std::runtime_error("cannot write " + path);
    std::fprintf(f, "P%c\n%d %d\n255\n", page.channels == 3 ? '6' : '5', page.width, page.height);
    std::fwrite(page.pixels.data(), 1, page.pixels.size(), f);
    std::fclose(f);
}

void writeTiff(const std::vector<tavrin::Page>& pages, const std::string& path) {
    TIFF* t = TIFFOpen(path.c_str(), "w");
    if (!t) throw std::runtime_error("cannot write " + path);
    for (const tavrin::Page& p : pages) {
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(p.width));
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(p.height));
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, p.channels);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, p.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 64);
        TIFFSetField(t, TIFFTAG_XRESOLUTION, float(p.dpiX));
        TIFFSetField(t, TIFFTAG_YRESOLUTION, float(p.dpiY));
        TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        TIFFSetField(t, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
        for (int y = 0; y < p.height; ++y)
            if (TIFFWriteScanline(t, const_cast<uint8_t*>(p.row(y)), uint32_t(y), 0) < 0)
                throw std::runtime_error("cannot write " + path);
        TIFFWriteDirectory(t);
    }
    TIFFClose(t);
}

}  // namespace e2e
