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

#include <functional>
#include <string>
#include <vector>

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

// A candidate JPEG and its error against the picture it codes.
struct Trial {
    EncodedImage image;
    double mse = 0;
};

// One picture's search in steps that may run side by side with those of
// other pictures: measure(k), then search(k), for each resolution k, then
// result(). `page` at `pageDpi`; `box` in page pixels.
class PictureSearch {
public:
    PictureSearch(const Page& page, const Rect& box, double pageDpi, const PictureSettings& settings,
                  const JpegSettings& jpeg, std::string what);
    // 0 when there is nothing to search (a fixed quality, a small picture).
    size_t resolutions() const { return dpis_.size(); }
    void measure(size_t k);  // the reduction to resolution k and its error
    void search(size_t k);   // the lowest quality that reaches the target there
    EncodedImage result();   // the choice among the resolutions (or the closest within budget); once

private:
    EncodedImage choose();
    Page reduced(double dpi) const;
    EncodedImage finished(EncodedImage image) const;

    Page crop_;
    Rect box_;
    double pageDpi_;
    PictureSettings settings_;
    JpegSettings jpeg_;
    std::string what_;
    std::vector<double> dpis_;  // the page's resolution first, then lower ones
    double targetMse_ = 0;
    std::vector<Page> smalls_;
    std::vector<double> downMses_;
    std::vector<Trial> good_;
    std::vector<char> reached_;
};

// The measuring and searching steps of all `searches` on the team, the
// largest resolutions first; `besides` are further jobs run among them.
void searchPictures(std::vector<PictureSearch*>& searches, const std::vector<std::function<void()>>& besides);


// Decodes a baseline JPEG of the library into pixels (gray or RGB).
Page decodeJpeg(const std::string& jpeg);

// Mean squared error of `small` enlarged bilinearly (pixel centres
// aligned) to the size of `full`, against `full`, over every rowStep-th row.
double reductionError(const Page& small, const Page& full, int rowStep);

// Mean squared error over all samples of two pages of one size.
double meanSquaredError(const Page& a, const Page& b);

}  // namespace tavrin

#endif
