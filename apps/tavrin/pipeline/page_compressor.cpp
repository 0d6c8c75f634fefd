#include "pipeline/page_compressor.h"

#include <algorithm>
#include <cmath>

#include "pipeline/background.h"
#include "pipeline/ink_levels.h"
#include "pipeline/layer_encoders.h"

namespace tavrin {

namespace {

// The library's JPEG buffer is width * height * components bytes; below
// this the headers alone may not fit, so tiny backgrounds are enlarged.
constexpr size_t kMinBackgroundBytes = 16384;

Page enlarge(const Page& src) {
    Page d = src;
    d.width = src.width * 2;
    d.height = src.height * 2;
    d.dpiX *= 2, d.dpiY *= 2;
    d.pixels.resize(d.pixelCount() * d.channels);
    for (int y = 0; y < d.height; ++y)
        for (int x = 0; x < d.width; ++x)
            for (int c = 0; c < d.channels; ++c)
                d.row(y)[size_t(x) * d.channels + c] = src.row(y / 2)[size_t(x / 2) * d.channels + c];
    return d;
}

}  // namespace

int backgroundFactor(double pageDpi, double backgroundDpi) {
    return std::max(1, int(std::lround(pageDpi / backgroundDpi)));
}

EncodedPage compressPage(const Page& page, const CompressSettings& s, PictureDetector& detector,
                         const std::vector<Rect>& tables, const std::string& label, PageReport* report) {
    PageReport local;
    PageReport& rep = report ? *report : local;
    rep.rawBytes = page.pixelCount() * page.channels;
    const Plane gray = grayOf(page);
    std::vector<Rect> pictures;
    if (s.detectPictures) {
        rep.detection = detector.run(gray, page.dpiX, s.detect, tables, label);
        rep.detectionRan = true;
        pictures = rep.detection.regions;
    }
    const InkBands ink = splitInk(gray, page.dpiX, s.inkLevels, s.minContrast, pictures);

    EncodedPage out;
    out.width = page.width;
    out.height = page.height;
    out.dpiX = page.dpiX;
    out.dpiY = page.dpiY;

    rep.backgroundFactor = backgroundFactor(page.dpiX, s.backgroundDpi);
    Page bg = buildBackground(page, ink, rep.backgroundFactor);
    while (bg.pixelCount() * bg.channels < kMinBackgroundBytes) bg = enlarge(bg);
    out.backgroundWidth = bg.width;
    out.backgroundHeight = bg.height;
    out.backgroundChannels = bg.channels;
    const int quality = s.quality > 0 ? s.quality : pictures.empty() ? kQualityPaperOnly : kQualityWithPictures;
    out.background = encodeJpeg(bg, quality, s.chromaOffset, s.sampling, label + ": background",
                                &out.backgroundQuality);
    out.backgroundJpegBytes = out.background.size();
    if (s.flate) {
        out.background = wrapFlate(out.background, label + ": background");
        out.backgroundFlate = true;
    }

    // Nested masks, lightest first: mask i covers bands 0..i and is painted
    // in the mean colour of band i; the darker masks then cover their part.
    const BandColours colours = measureBandColours(page, ink);
    const uint16_t xr = resolutionField100(page.dpiX), yr = resolutionField100(page.dpiY);
    for (int i = ink.count - 1; i >= 0; --i) {
        if (colours.pixels[i] == 0) continue;
        std::vector<uint8_t> packed = packLayer(ink.band, i);
        EncodedLayer layer;
        layer.mmr = encodeMmr(packed, page.width, page.height, xr, yr,
                              label + ": foreground mask " + std::to_string(ink.count - i));
        layer.colour = colours.colour[i];
        layer.bandPixels = colours.pixels[i];
        out.layers.push_back(std::move(layer));
    }
    return out;
}

}  // namespace tavrin
