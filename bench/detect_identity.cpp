// Identity check for speed work on the detector: runs every detection stage
// and the whole driver on many inputs (the bundled page, a synthetic page,
// random planes of many sizes and densities, every parameter edge), serial,
// with the parallel flag on a team of 2 and on a team of 1, and prints one
// 64-bit digest of everything each call wrote per line. Run it before and
// after a change and compare the outputs with diff: a single differing line
// names the case. bench/detect_identity.txt holds the digests of the
// current code on Debian 12 x86-64.
//
// Digests of the labelling and the driver cover the whole work buffer
// (filled with a pattern beforehand) except the equivalence-table entry
// T[N] just past the plane, which the labelling leaves alone since it
// initialises only the entries its pass can read.
#include <omp.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <TavrinDetect.h>
#include <jpeglib.h>

namespace {

uint64_t digest(const void* data, size_t n, uint64_t h = 1469598103934665603ull) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
    return h;
}

struct Gray {
    int w = 0, h = 0;
    std::vector<uint8_t> px;
    ImgTavrin img() { return ImgTavrin{px.data(), uint16_t(w), uint16_t(h), 7500, 7500, 0}; }
};

// The bundled page decoded to RGB (the driver samples its first byte).
Gray samplePage(int& components) {
    FILE* f = std::fopen(TAVRIN_SAMPLES_DIR "/sample-page.jpg", "rb");
    if (f == nullptr) throw std::runtime_error("sample page missing");
    jpeg_decompress_struct d;
    jpeg_error_mgr err;
    d.err = jpeg_std_error(&err);
    jpeg_create_decompress(&d);
    jpeg_stdio_src(&d, f);
    jpeg_read_header(&d, TRUE);
    jpeg_start_decompress(&d);
    components = d.output_components;
    Gray g{int(d.output_width), int(d.output_height), {}};
    g.px.resize(size_t(g.w) * g.h * components);
    while (d.output_scanline < d.output_height) {
        JSAMPROW row = g.px.data() + size_t(d.output_scanline) * g.w * components;
        jpeg_read_scanlines(&d, &row, 1);
    }
    jpeg_finish_decompress(&d);
    jpeg_destroy_decompress(&d);
    std::fclose(f);
    return g;
}

std::mt19937 rng(20240611);

// Random plane: kind 0 noise, 1 smooth gradients with grain, 2 a page-like
// mix of paper, dark strokes and texture; masks: 0/1 with the given density.
Gray randomGray(int w, int h, int kind) {
    Gray g{w, h, std::vector<uint8_t>(size_t(w) * h)};
    std::uniform_int_distribution<int> byte(0, 255), grain(-6, 6);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int v = byte(rng);
            if (kind == 1) v = (x * 3 + y * 5) % 256 + grain(rng);
            if (kind == 2) v = (y / 9) % 3 == 0 && x % 5 < 2 ? 30 + grain(rng) : (x / 40 + y / 40) % 4 == 0 ? v : 235 + grain(rng);
            g.px[size_t(y) * w + x] = uint8_t(std::clamp(v, 0, 255));
        }
    return g;
}

Gray randomMask(int w, int h, double density, bool blobs) {
    Gray g{w, h, std::vector<uint8_t>(size_t(w) * h)};
    std::uniform_real_distribution<double> u(0, 1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const bool set = blobs ? ((x / 7 + y / 5) % 3 == 0) != (u(rng) < density) : u(rng) < density;
            g.px[size_t(y) * w + x] = set ? 1 : 0;
        }
    return g;
}

void print(const std::string& name, uint64_t h) { std::printf("%-60s %016" PRIx64 "\n", name.c_str(), h); }

// The three ways to run a filter: serial, parallel on two threads, and the
// parallel path on a team of one.
const int kModes[3][2] = {{0, 2}, {1, 2}, {1, 1}};
std::string modeName(int m) { return m == 0 ? "serial" : m == 1 ? "par2" : "par1"; }

std::vector<uint8_t> work(TAVRIN_DETECT_WORK_SIZE + 64);

// The work buffer without the 4 bytes of T[n].
uint64_t workDigest(size_t n, uint64_t h) {
    const size_t skip = TAVRIN_DETECT_EQUIV_OFFSET + 4 * n;
    if (skip + 4 > TAVRIN_DETECT_EQUIV_OFFSET + TAVRIN_DETECT_EQUIV_LIMIT) return digest(work.data(), work.size(), h);
    h = digest(work.data(), skip, h);
    return digest(work.data() + skip + 4, work.size() - skip - 4, h);
}

void smoothing(const std::string& name, Gray& src, Gray& mask, double space, double range) {
    for (int m = 0; m < 3; ++m) {
        omp_set_num_threads(kModes[m][1]);
        Gray dst{src.w, src.h, std::vector<uint8_t>(src.px.size(), 0x5A)};
        ST_PARAM_DETECT_PICT p{};
        p.dSpaceSigma = space;
        p.dRangeSigma = range;
        ImgTavrin s = src.img(), k = mask.img(), d = dst.img();
        const int status = smoothFilter(&s, &k, &d, work.data(), &p, kModes[m][0]);
        char tag[96];
        std::snprintf(tag, sizeof tag, " s%g r%g %s", space, range, modeName(m).c_str());
        print("smooth " + name + tag, digest(dst.px.data(), dst.px.size(), uint64_t(status)));
    }
}

void entropy(const std::string& name, Gray& src, Gray& mask) {
    for (int m = 0; m < 3; ++m) {
        omp_set_num_threads(kModes[m][1]);
        Gray dst{src.w, src.h, std::vector<uint8_t>(src.px.size(), 0x5A)};
        ImgTavrin s = src.img(), k = mask.img(), d = dst.img();
        const int status = maskedEntropy(&s, &k, &d, kModes[m][0]);
        print("entropy " + name + " " + modeName(m), digest(dst.px.data(), dst.px.size(), uint64_t(status)));
    }
}

void morphology(const std::string& name, Gray& src) {
    for (int mode = 0; mode < 2; ++mode)
        for (int m = 0; m < 3; ++m) {
            omp_set_num_threads(kModes[m][1]);
            Gray dst{src.w, src.h, std::vector<uint8_t>(src.px.size(), 0x5A)};
            const int status = morphologyTrans(src.img(), dst.img(), mode, kModes[m][0]);
            print("morph" + std::to_string(mode) + " " + name + " " + modeName(m),
                  digest(dst.px.data(), dst.px.size(), uint64_t(status)));
        }
    Gray solo = src;
    remove_SoloPoint(solo.img());
    print("solo " + name, digest(solo.px.data(), solo.px.size()));
}

void labelling(const std::string& name, Gray& mask) {
    std::fill(work.begin(), work.end(), uint8_t(0xA5));
    std::vector<PictLabel> table(4097, PictLabel{7, 7, 7, 7, 7});
    Gray labels{mask.w, mask.h, std::vector<uint8_t>(mask.px.size(), 0x5A)};
    ImgTavrin in = mask.img(), out = labels.img();
    char noDump[] = "";
    const int k = entLabeling(table.data(), &in, &out, work.data(), noDump);
    uint64_t h = digest(labels.px.data(), labels.px.size(), uint64_t(k));
    h = digest(table.data(), table.size() * sizeof(PictLabel), h);
    print("label " + name, workDigest(mask.px.size(), h));
}

// The whole driver on a page with its half-resolution attribute map.
void driver(const std::string& name, Gray& page, int components, Gray& attr, ST_TABLEDATA tables,
            ST_PARAM_DETECT_PICT param, int attrMode, int passes) {
    for (int m = 0; m < 3; ++m) {
        omp_set_num_threads(kModes[m][1]);
        std::fill(work.begin(), work.end(), uint8_t(0xA5));
        structFGInfos fg{};
        fg.stPageImg = ImgTavrin{page.px.data(), uint16_t(page.w), uint16_t(page.h), 30000, 30000,
                                 uint8_t(components == 3 ? 1 : 0)};
        fg.stAttrImg = attr.img();
        fg.stTableData = tables;
        ST_PARAM_DETECT_PICT p = param;
        char noDump[] = "";
        const int result = runDetectPict(&fg, work.data(), attrMode, passes, &p, kModes[m][0], noDump);
        char tag[64];
        std::snprintf(tag, sizeof tag, " mode%d passes%d %s", attrMode, passes, modeName(m).c_str());
        uint64_t h = digest(&p, sizeof p, uint64_t(result));
        const size_t n = size_t((page.w + 3) / 4) * ((page.h + 3) / 4);
        print("driver " + name + tag, workDigest(n, h));
    }
}

// Attribute map: dark pixels of the page (sampled at half resolution) are
// high-attribute, a band of mid grays P-attribute.
Gray plainAttr(const Gray& page, int components) {
    Gray a{(page.w + 1) / 2, (page.h + 1) / 2, {}};
    a.px.resize(size_t(a.w) * a.h);
    for (int y = 0; y < a.h; ++y)
        for (int x = 0; x < a.w; ++x) {
            const uint8_t v = page.px[(size_t(2 * y) * page.w + 2 * x) * components];
            a.px[size_t(y) * a.w + x] = v < 96 ? 255 : (v > 120 && v < 130 ? 112 : 0);
        }
    return a;
}

// The quarter plane the driver samples from a page.
Gray quarterOf(const Gray& page, int components) {
    Gray q{(page.w + 3) / 4, (page.h + 3) / 4, {}};
    q.px.resize(size_t(q.w) * q.h);
    for (int y = 0; y < q.h; ++y)
        for (int x = 0; x < q.w; ++x) q.px[size_t(y) * q.w + x] = page.px[(size_t(4 * y) * page.w + 4 * x) * components];
    return q;
}

// The tavrin program's defaults with the given sigmas.
ST_PARAM_DETECT_PICT params(double space, double range) {
    return ST_PARAM_DETECT_PICT{space, range, 16, 16, 512, 0.2, {}, 0.3, 0.05, 0};
}

}  // namespace

int main() {
    const double inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
    int components = 0;
    Gray page = samplePage(components);
    Gray attr = plainAttr(page, components);
    Gray quarter = quarterOf(page, components);
    Gray quarterMask = quarterOf(attr, 1);
    for (uint8_t& v : quarterMask.px) v >>= 7;
    quarterMask.w = quarter.w, quarterMask.h = quarter.h;
    quarterMask.px.resize(quarter.px.size());

    // Smoothing: the page with every parameter edge, then random planes.
    const double spaces[] = {0, 1e-3, 0.5, 1.5, 2, 5, 1e3, inf, nan, -1};
    const double ranges[] = {0, 0.05, 1, 5, 10, 18, 100, 1e6, inf, nan};
    for (double s : spaces) smoothing("page", quarter, quarterMask, s, 5);
    for (double r : ranges) smoothing("page", quarter, quarterMask, 2, r);
    Gray none{quarter.w, quarter.h, std::vector<uint8_t>(quarter.px.size(), 0)};
    smoothing("page-unmasked", quarter, none, 1.5, 18);
    const int sizes[][2] = {{1, 1}, {1, 9}, {2, 2}, {3, 7}, {5, 4}, {6, 5}, {7, 7}, {8, 3}, {9, 12},
                            {12, 9}, {13, 2}, {31, 17}, {64, 64}, {101, 37}, {1312, 6}, {1313, 4}};
    for (auto& sz : sizes)
        for (int kind = 0; kind < 3; ++kind) {
            Gray g = randomGray(sz[0], sz[1], kind);
            Gray k = randomMask(sz[0], sz[1], 0.3, kind == 2);
            const std::string n = std::to_string(sz[0]) + "x" + std::to_string(sz[1]) + "k" + std::to_string(kind);
            smoothing(n, g, k, 2, 5);
            smoothing(n, g, k, 1.5, 18);
            smoothing(n, g, k, 0.8, 60);
            entropy(n, g, k);
            Gray nomask{g.w, g.h, std::vector<uint8_t>(g.px.size(), 0)};
            entropy(n + "-unmasked", g, nomask);
        }
    for (int kind = 0; kind < 3; ++kind) {
        Gray g = randomGray(620, 877, kind), k = randomMask(620, 877, 0.2, true);
        smoothing("a4-" + std::to_string(kind), g, k, 2, 5);
        entropy("a4-" + std::to_string(kind), g, k);
    }
    entropy("page", quarter, quarterMask);

    // Morphology and labelling on masks of many densities and sizes.
    const double densities[] = {0.0, 0.02, 0.1, 0.3, 0.5, 0.8, 1.0};
    for (auto& sz : sizes)
        for (double d : densities)
            for (int blobs = 0; blobs < 2; ++blobs) {
                Gray m = randomMask(sz[0], sz[1], d, blobs);
                const std::string n = std::to_string(sz[0]) + "x" + std::to_string(sz[1]) + "d" +
                                      std::to_string(d) + (blobs ? "b" : "");
                if (sz[1] >= 2) morphology(n, m);
                labelling(n, m);
            }
    for (double d : densities) {
        Gray m = randomMask(620, 877, d, true);
        morphology("a4-" + std::to_string(d), m);
        labelling("a4-" + std::to_string(d), m);
    }
    for (int regions : {4095, 4096, 9000}) {  // label limits
        Gray m{200, 200, std::vector<uint8_t>(200 * 200, 0)};
        for (int i = 0; i < regions && i < 100 * 100; ++i) m.px[(i / 100) * 2 * 200 + (i % 100) * 2] = 1;
        labelling("grid" + std::to_string(regions), m);
    }

    // The whole driver: the page (colour and gray), with and without tables.
    std::vector<ST_TABLERECT> rects(3);
    rects[1] = ST_TABLERECT{100, 1500, 600, 1700, {}};
    rects[2] = ST_TABLERECT{-40, -40, 5000, 20, {}};
    const ST_TABLEDATA noTables{0, rects.data()}, withTables{2, rects.data()};
    for (int mode : {0, 1, 2})
        for (int passes : {-1, 0, 1, 8, 20})
            driver("page", page, components, attr, noTables, params(2, 5), mode, passes);
    driver("page-tables", page, components, attr, withTables, params(2, 5), 1, 8);
    driver("page-s1.5-r18", page, components, attr, noTables, params(1.5, 18), 1, 8);
    ST_PARAM_DETECT_PICT loose = params(2, 5);
    loose.iMinWidth = loose.iMinHeight = loose.iMinArea = 0;
    loose.dMinFillRatio = 0;
    loose.dMaxHighAttrRatio = 1;
    driver("page-loose", page, components, attr, noTables, loose, 0, 8);
    Gray grayFull{page.w, page.h, std::vector<uint8_t>(size_t(page.w) * page.h)};
    for (size_t i = 0; i < grayFull.px.size(); ++i) grayFull.px[i] = page.px[i * components];
    driver("page-gray", grayFull, 1, attr, noTables, params(2, 5), 0, 8);
    const int pageSizes[][2] = {{4, 8}, {5, 8}, {9, 9}, {40, 30}, {333, 517}, {2480, 1754}, {5248, 900}};
    for (auto& sz : pageSizes)
        for (int kind = 0; kind < 3; ++kind) {
            Gray g = randomGray(sz[0], sz[1], kind);
            Gray a = plainAttr(g, 1);
            const std::string n = std::to_string(sz[0]) + "x" + std::to_string(sz[1]) + "k" + std::to_string(kind);
            driver(n, g, 1, a, noTables, params(2, 5), 1, 8);
            driver(n + "-loose", g, 1, a, noTables, loose, 0, 3);
        }
    return 0;
}
