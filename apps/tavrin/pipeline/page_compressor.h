// Compression of one page into its layers: picture detection, ink bands
// (local threshold), background, and the library's encoders.
#ifndef TAVRIN_APP_PAGE_COMPRESSOR_H
#define TAVRIN_APP_PAGE_COMPRESSOR_H

#include <string>
#include <vector>

#include "pipeline/encoded_page.h"
#include "pipeline/page.h"
#include "pipeline/picture_detector.h"

namespace tavrin {

struct CompressSettings {
    DetectSettings detect = defaultDetectSettings();
    bool detectPictures = true;  // false: no picture regions (--no-detect)
    double backgroundDpi = 100;  // reduced resolution of the background
    int quality = 0;             // background JPEG quality; 0 = automatic (see below)
    int chromaOffset = 0;        // chrominance quality = quality + offset
    int sampling = 0;            // Tavrin_MakeJPGStream sampling mode (0: 4:2:0)
    bool flate = false;          // wrap the background JPEG in Flate
    int inkLevels = 3;           // foreground masks (gray levels of ink)
    int minContrast = 50;        // paper-to-ink contrast below which a block holds no ink
};

struct PageReport {
    DetectResult detection;
    bool detectionRan = false;
    int backgroundFactor = 1;
    size_t rawBytes = 0;          // width * height * channels of the page
};

// Automatic background quality: a page with picture regions gets 50 (the
// background then carries photographs), any other page 30 (paper and the
// soft fringe of the text only).
constexpr int kQualityWithPictures = 50;
constexpr int kQualityPaperOnly = 30;

// Background reduction factor: the integer nearest to page dpi /
// background dpi, at least 1.
int backgroundFactor(double pageDpi, double backgroundDpi);

// `label` names the page in error messages ("page 2 of scan.tif").
EncodedPage compressPage(const Page& page, const CompressSettings& settings, PictureDetector& detector,
                         const std::vector<Rect>& tables, const std::string& label, PageReport* report);

}  // namespace tavrin

#endif
