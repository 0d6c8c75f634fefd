// Picture-region detection of one page through the library's detector:
// builds its quarter-resolution input (work buffer, attribute map, table
// rectangles), runs it, and turns the picture mask into rectangles in page
// pixels.
#ifndef TAVRIN_APP_PICTURE_DETECTOR_H
#define TAVRIN_APP_PICTURE_DETECTOR_H

#include <string>
#include <vector>

#include "TavrinCommon.h"
#include "pipeline/page.h"

namespace tavrin {

// Inclusive rectangle in page pixels.
struct Rect {
    int x0 = 0, y0 = 0, x1 = -1, y1 = -1;
    int width() const { return x1 - x0 + 1; }
    int height() const { return y1 - y0 + 1; }
};

// Settings of a detection run. `record` holds the detector's parameters for
// a 300-dpi page (sizes in quarter-resolution pixels, i.e. 75 per inch);
// they are scaled to the resolution the detector actually works at.
struct DetectSettings {
    ST_PARAM_DETECT_PICT record{};
    int labelPassMax = 8;     // at most labelPassMax + 1 labelling passes
    bool attributes = true;   // false: empty attribute map (--no-attr)
    bool parallel = true;     // let the filters use two threads
    std::string dumpDir;      // "" = no library dumps
};

// The defaults, tuned on the bundled sample pages and on generated text,
// photograph, halftone, table and blank pages.
DetectSettings defaultDetectSettings();

struct DetectResult {
    int status = 0;             // runDetectPict's result (1 or 0 here)
    bool picturePage = false;
    int pictPixelNum = 0;       // pixels of the final mask (quarter grid)
    int planePixels = 0;        // W4 * H4
    double coverage = 0;        // pictPixelNum / planePixels
    int reduction = 1;          // page reduced by this factor before detection
    bool reducedForLimits = false;  // the reduction was forced by the detector's limits
    int planeWidth = 0, planeHeight = 0;
    std::vector<Rect> regions;  // connected areas of the final mask, page pixels
};

class PictureDetector {
public:
    PictureDetector();
    // `gray` is the page at `dpi`; `tables` are rectangles in page pixels.
    // Throws AppError (kExitFailure) naming `pageLabel` when the detector
    // fails.
    DetectResult run(const Plane& gray, double dpi, const DetectSettings& settings,
                     const std::vector<Rect>& tables, const std::string& pageLabel);
    // The picture mask of the last run() that reached the library's
    // detector (one with picture pixels always does): planeWidth x
    // planeHeight bytes, 1 = picture.
    const uint8_t* pictureMask() const { return work_.data() + TAVRIN_DETECT_PICT_OFFSET; }

private:
    Bytes work_;  // every plane is written before it is read
};

// Reduction factor that brings a page within the detector's limits (a
// quarter plane of at most TAVRIN_DETECT_PLANE_LIMIT pixels and 1312 pixels
// per row) and near 300 dpi. Sets `forLimits` when the limits alone demand it.
int detectionReduction(int width, int height, double dpi, bool& forLimits);

}  // namespace tavrin

#endif
