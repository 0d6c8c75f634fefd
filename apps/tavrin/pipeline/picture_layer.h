// Photographs as JPEG images of their own, each at the resolution and
// quality that reach the wanted fidelity in the fewest bytes.
//
// Method: for each resolution from the page's own down to `minDpi` (the
// page's, 200 and 150 dpi by default), the error of reducing the picture and
// drawing it back at page size (bilinear, as a reader smooths it) is
// measured once; a resolution whose reduction alone misses the target is
// passed over. At each remaining resolution the lowest JPEG quality whose
// own error, added to the reduction's, stays within the target is found by
// bisection on the reduced picture (the two errors add up closely, being
// unrelated); the resolution giving the fewest bytes wins. When the target
// costs more than a budget per square inch, or is out of reach (a halftone
// screen), the picture gets the resolution and quality that come closest
// within the budget. A fixed quality skips the search and takes `minDpi`.
#ifndef TAVRIN_APP_PICTURE_LAYER_H
#define TAVRIN_APP_PICTURE_LAYER_H

#include <string>

#include "pipeline/encoded_page.h"
#include "pipeline/layer_encoders.h"
#include "pipeline/page.h"

namespace tavrin {

struct PictureSettings {
    double minDpi = 150;       // lowest resolution a picture may get
    double targetPsnr = 33;    // dB against the scan, inside the picture
    int quality = 0;           // a fixed JPEG quality; 0: search for the target
    int maxQuality = 92;       // the search's upper end
};

// `page` at `pageDpi`; `box` in page pixels.
EncodedImage encodePicture(const Page& page, const Rect& box, double pageDpi, const PictureSettings& settings,
                           const JpegSettings& jpeg, const std::string& what);

// Decodes a baseline JPEG of the library into pixels (gray or RGB).
Page decodeJpeg(const std::string& jpeg);

// Mean squared error of `small` enlarged bilinearly (pixel centres
// aligned) to the size of `full`, against `full`, over every rowStep-th row.
double reductionError(const Page& small, const Page& full, int rowStep);

// Mean squared error over all samples of two pages of one size.
double meanSquaredError(const Page& a, const Page& b);

}  // namespace tavrin

#endif
