#include "pipeline/page_compressor.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>

#include "pipeline/background.h"
#include "pipeline/layer_encoders.h"
#include "pipeline/local_levels.h"
#include "pipeline/page_measures.h"
#include "pipeline/run_each.h"
#include "pipeline/tints.h"

namespace tavrin {

namespace {

// Darker than the local background by more than this: part of a letter's
// soft edge, not background.
constexpr int kMinSoftEdge = 10;
constexpr double kSoftEdgeNoises = 3;
// Plain paper goes down to a quarter of the background resolution when that
// changes no level by more than this; its JPEG then costs a quarter or less.
constexpr int kBackgroundTolerance = 3;
constexpr int kMaxBackgroundHalvings = 2;
// Stains and dust up to this size (inches) may blur in a coarser background.
constexpr double kMaxBlurredSpotInches = 0.5;
// Levels off the paper from which a flat area is a tint of its own (and at
// least the flattening, below which the background is paper anyway).
constexpr int kMinTintContrast = 8;
constexpr int kTintEdge = 3;  // page pixels of a tint's soft edge
// The background's colour is coded at a higher quality than its shades: a
// page of paper is a few flat blocks, and at quality 30 the coarse steps of
// their colour turned a cream paper pink by 3 levels, while 20 more cost
// a few bytes.
constexpr int kBackgroundChromaBoost = 20;

// A drawing kept in layers: its lines in the masks over its fills.
bool layered(PictureKind kind, const CompressSettings& s) { return kind == kGraphic && s.layeredGraphics; }

}  // namespace

int backgroundFactor(double pageDpi, double backgroundDpi) {
    return std::max(1, int(std::lround(pageDpi / backgroundDpi)));
}

EncodedPage compressPage(const Page& page, const CompressSettings& s, PictureDetector& detector,
                         const std::vector<Rect>& tables, const std::string& label, PageReport* report) {
    PageReport local;
    PageReport& rep = report ? *report : local;
    rep.rawBytes = page.pixelCount() * page.channels;
    const double dpi = page.dpiX > 0 ? page.dpiX : 300;
    const Plane gray = grayOf(page);
    const PageMeasures measures = measurePage(page, gray);
    const PaperMap& paper = measures.paper;
    const LocalLevels& levels = measures.levels;
    std::vector<Rect> pictures, photos;
    if (s.detectPictures) {
        rep.detection = detector.run(page, gray, dpi, s.detect, tables, label, &measures);
        rep.detectionRan = true;
        pictures = rep.detection.regions;
        for (size_t i = 0; i < pictures.size(); ++i)
            if (!layered(rep.detection.kinds[i], s)) photos.push_back(pictures[i]);
    }
    // The ink of a drawing stays on as text masks; a photograph keeps all of itself.
    const TextLayer text = buildTextLayer(page, gray, levels, paper.globalGray, photos, s.text);

    EncodedPage out;
    out.width = page.width;
    out.height = page.height;
    out.dpiX = page.dpiX;
    out.dpiY = page.dpiY;
    const JpegSettings jpeg{s.chromaOffset, s.sampling, s.flate};

    rep.backgroundFactor = backgroundFactor(dpi, s.backgroundDpi);
    const Rect wholePage{0, 0, page.width - 1, page.height - 1};
    const Plane usable =
        backgroundPixels(gray, text.pageInk, levels, std::max(kMinSoftEdge, int(std::lround(kSoftEdgeNoises * paper.noise))));
    BlockMeans blocks;
    Page bg = buildBackground(page, usable, pictures, wholePage, rep.backgroundFactor, paper, s.flatten, &blocks);
    out.fills = findTints(blocks, rep.backgroundFactor, page.width, page.height, paper, pictures,
                          std::max(kMinTintContrast, s.flatten));
    std::vector<Rect> tints, covers = pictures;  // covers: drawn over the background
    for (const Fill& f : out.fills) tints.push_back(f.box), covers.push_back(f.box);
    if (!tints.empty()) {
        // Tints are drawn as fills: the background under them, soft edges
        // included, becomes the paper around them, and the paper estimate,
        // which took a large box for paper of another colour, is made again
        // without them.
        std::vector<Rect> left = pictures;
        for (const Rect& t : tints) left.push_back({t.x0 - kTintEdge, t.y0 - kTintEdge, t.x1 + kTintEdge, t.y1 + kTintEdge});
        const PaperMap tintFree = estimatePaper(page, gray, tints);
        bg = buildBackground(page, usable, left, wholePage, rep.backgroundFactor, tintFree, s.flatten);
    }
    // Stains may blur; what pictures and fills cover need not survive at all.
    const int spot = int(kMaxBlurredSpotInches * dpi / rep.backgroundFactor);
    const Plane hidden = coveredPixels(bg.width, bg.height, rep.backgroundFactor, covers);
    rep.backgroundFactor <<= coarsenWhileFaithful(bg, kBackgroundTolerance, kMaxBackgroundHalvings, spot, &hidden);
    JpegSettings backgroundJpeg = jpeg;
    backgroundJpeg.chromaOffset += kBackgroundChromaBoost;
    out.background = encodeImage(bg, s.backgroundQuality, backgroundJpeg, label + ": background");
    out.background.box = wholePage;

    // The pictures' searches share the team, each resolution of each picture
    // a job; drawings kept in layers and the text masks' MMR streams (the
    // encoder works on one thread: its file store is not shared) are jobs
    // among them.
    out.pictures.resize(pictures.size());
    std::vector<std::unique_ptr<PictureSearch>> searches(pictures.size());
    std::vector<PictureSearch*> searching;
    std::vector<std::function<void()>> besides;
    for (size_t i = 0; i < pictures.size(); ++i) {
        const Rect& box = pictures[i];
        const std::string what = label + ": picture " + std::to_string(i + 1);
        if (layered(rep.detection.kinds[i], s)) {
            besides.push_back([&, i, box, what] {
                // The drawing's paper and fills; its lines are in the masks.
                const int factor = backgroundFactor(dpi, std::max(s.picture.minDpi, 1.0));
                EncodedImage image = encodeImage(buildBackground(page, usable, {}, box, factor, paper, s.flatten),
                                                 s.graphicQuality, jpeg, what);
                image.box = box;
                out.pictures[i] = std::move(image);
            });
        } else {
            searches[i] = std::make_unique<PictureSearch>(page, box, dpi, s.picture, jpeg, what);
            if (searches[i]->resolutions() > 0)
                searching.push_back(searches[i].get());
            else  // a fixed quality: one encoding, a job of its own
                besides.push_back([&, i] { out.pictures[i] = searches[i]->result(); });
        }
    }
    const uint16_t xr = resolutionField100(text.dpiX), yr = resolutionField100(text.dpiY);
    besides.push_back([&] {
        for (size_t i = 0; i < text.masks.size(); ++i) {
            TextMask m = text.masks[i];
            EncodedLayer layer;
            layer.mmr = encodeMmr(m.packed, text.width, text.height, xr, yr,
                                  label + ": text mask " + std::to_string(i + 1));
            layer.width = text.width;
            layer.height = text.height;
            layer.colour = m.colour;
            layer.pixels = m.pixels;
            out.layers.push_back(std::move(layer));
        }
    });
    searchPictures(searching, besides);
    for (size_t i = 0; i < pictures.size(); ++i)
        if (searches[i] && searches[i]->resolutions() > 0) out.pictures[i] = searches[i]->result();
    return out;
}

}  // namespace tavrin
