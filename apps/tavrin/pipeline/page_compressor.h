// Compression of one page into its layers: the classifier and the library's
// detector find the pictures; the text becomes bi-level masks, one per ink
// colour; each picture becomes a JPEG of its own; what is left (paper,
// tints, page furniture) becomes a low-resolution background with the
// paper's noise flattened.
#ifndef TAVRIN_APP_PAGE_COMPRESSOR_H
#define TAVRIN_APP_PAGE_COMPRESSOR_H

#include <string>
#include <vector>

#include "pipeline/encoded_page.h"
#include "pipeline/page.h"
#include "pipeline/picture_detector.h"
#include "pipeline/picture_layer.h"
#include "pipeline/text_layer.h"

namespace tavrin {

struct CompressSettings {
    DetectSettings detect = defaultDetectSettings();
    bool detectPictures = true;   // false: no picture regions (--no-detect)
    TextSettings text;            // masks: resolution, colours, contrast
    double backgroundDpi = 50;    // resolution of the background
    int backgroundQuality = 30;   // its JPEG quality
    int flatten = 10;             // levels from the paper that become paper
    PictureSettings picture;      // photographs: resolution and fidelity
    // Drawings, charts and screenshots as masks over their fills, or coded
    // as photographs (the default: at equal size they come closer to the
    // scan that way, and their lettering reads as well).
    bool layeredGraphics = false;
    int graphicQuality = 60;      // JPEG quality of a drawing's fills
    int chromaOffset = 0;         // chrominance quality = quality + offset
    int sampling = 0;             // Tavrin_MakeJPGStream sampling mode (0: 4:2:0)
    bool flate = false;           // wrap the JPEG streams in Flate
};

struct PageReport {
    DetectResult detection;
    bool detectionRan = false;
    int backgroundFactor = 1;
    size_t rawBytes = 0;          // width * height * channels of the page
};

// Background reduction factor: the integer nearest to page dpi /
// background dpi, at least 1.
int backgroundFactor(double pageDpi, double backgroundDpi);

// `label` names the page in error messages ("page 2 of scan.tif").
EncodedPage compressPage(const Page& page, const CompressSettings& settings, PictureDetector& detector,
                         const std::vector<Rect>& tables, const std::string& label, PageReport* report);

}  // namespace tavrin

#endif
