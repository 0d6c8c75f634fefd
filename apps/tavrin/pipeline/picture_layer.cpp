#include "pipeline/picture_layer.h"

#include <jpeglib.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstring>
#include <functional>
#include <vector>

#include "pipeline/app_error.h"
#include "pipeline/run_each.h"

namespace tavrin {

namespace {

constexpr double kStandardDpis[] = {200, 150};  // tried between the page's and the minimum
constexpr int kMinQuality = 10;
constexpr int kQualityStep = 3;  // the search stops this close to the lowest good quality
constexpr int kSmallPicturePixels = 64 * 64;  // below this no search: a fixed, safe quality
constexpr int kSmallPictureQuality = 80;
// A picture that needs more than this to reach the target (a halftone
// screen kept dot for dot) gets no more: the closest it can come within it.
constexpr double kMaxBytesPerSquareInch = 5000;
constexpr int kErrorRowStep = 2;  // every second row is enough to measure a reduction's error
constexpr int kErrorPiece = 65536;  // squared errors (at most 255^2) whose sum fits in 32 bits

struct JumpError {
    jpeg_error_mgr pub;
    std::jmp_buf jump;
};

void jumpOnError(j_common_ptr cinfo) { std::longjmp(reinterpret_cast<JumpError*>(cinfo->err)->jump, 1); }

// Free of objects with destructors, because of longjmp.
bool decodeInto(const std::string& jpeg, Page* out) {
    jpeg_decompress_struct cinfo;
    JumpError err;
    std::memset(&cinfo, 0, sizeof cinfo);
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = jumpOnError;
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, reinterpret_cast<const unsigned char*>(jpeg.data()), jpeg.size());
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = cinfo.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_start_decompress(&cinfo);
    out->width = int(cinfo.output_width);
    out->height = int(cinfo.output_height);
    out->channels = int(cinfo.output_components);
    out->pixels.resize(out->pixelCount() * out->channels);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = out->row(int(cinfo.output_scanline));
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}


// The JPEG of `small` at `quality` and its error against `small`.
Trial encodeAndMeasure(const Page& small, int quality, const JpegSettings& jpeg, const std::string& what) {
    JpegSettings plain = jpeg;
    plain.flate = false;  // measured on the JPEG itself; wrapped at the end
    Trial t;
    t.image = encodeImage(small, quality, plain, what);
    const Page back = decodeJpeg(t.image.data);
    t.mse = back.width == small.width && back.height == small.height ? meanSquaredError(back, small) : 0;
    return t;
}

}  // namespace

Page decodeJpeg(const std::string& jpeg) {
    Page p;
    if (!decodeInto(jpeg, &p)) throw AppError(kExitFailure, "a JPEG stream of the library could not be read back");
    return p;
}

// Each row of `small` is enlarged across once, into 16-bit sums that keep
// the horizontal weights (at most 255 * 256); a row of the page then blends
// the two such rows above and below it. The same integer arithmetic as
// blending the four neighbours of each pixel at once, at a fraction of the
// reads.
double reductionError(const Page& small, const Page& full, int rowStep) {
    const int ch = full.channels, width = full.width, values = width * ch;
    const BilinearTaps across(width, small.width), down(full.height, small.height);
    // Per channel value: the offsets of its two neighbours in a small row.
    std::vector<int> left(values), right(values), rightWeight(values);
    for (int x = 0; x < width; ++x)
        for (int c = 0; c < ch; ++c) {
            left[x * ch + c] = across.first[x] * ch + c;
            right[x * ch + c] = across.second[x] * ch + c;
            rightWeight[x * ch + c] = across.weight[x];
        }
    uint64_t sum = 0, count = 0;
#pragma omp parallel reduction(+ : sum, count)
    {
        // Two enlarged rows, by the small row they hold (-1: none yet).
        std::vector<uint16_t> rows[2] = {std::vector<uint16_t>(values), std::vector<uint16_t>(values)};
        int held[2] = {-1, -1};
        const auto enlarged = [&](int smallRow, int keep) -> const uint16_t* {
            for (int k = 0; k < 2; ++k)
                if (held[k] == smallRow) return rows[k].data();
            const int slot = held[0] == keep ? 1 : 0;
            const uint8_t* a = small.row(smallRow);
            uint16_t* out = rows[slot].data();
            for (int i = 0; i < values; ++i)
                out[i] = uint16_t(a[left[i]] * (256 - rightWeight[i]) + a[right[i]] * rightWeight[i]);
            held[slot] = smallRow;
            return out;
        };
#pragma omp for schedule(static)
        for (int y = 0; y < full.height; y += rowStep) {
            const int wy = down.weight[y];
            const uint16_t* top = enlarged(down.first[y], -1);
            const uint16_t* bottom = enlarged(down.second[y], down.first[y]);
            const uint8_t* o = full.row(y);
            // 32-bit sums over pieces short enough not to overflow.
            for (int from = 0; from < values; from += kErrorPiece) {
                const int to = std::min(values, from + kErrorPiece);
                uint32_t pieceSum = 0;
                for (int i = from; i < to; ++i) {
                    const int d = int((top[i] * uint32_t(256 - wy) + bottom[i] * uint32_t(wy) + (1u << 15)) >> 16) - o[i];
                    pieceSum += uint32_t(d * d);
                }
                sum += pieceSum;
            }
            count += uint64_t(values);
        }
    }
    return count ? double(sum) / double(count) : 0.0;
}

double meanSquaredError(const Page& a, const Page& b) {
    const size_t n = std::min(a.pixels.size(), b.pixels.size());
    if (n == 0) return 0;
    uint64_t sum = 0;
    const uint8_t* p = a.pixels.data();
    const uint8_t* q = b.pixels.data();
#pragma omp parallel for reduction(+ : sum) schedule(static)
    for (size_t i = 0; i < n; ++i) {
        const int d = int(p[i]) - int(q[i]);
        sum += uint32_t(d * d);
    }
    return double(sum) / double(n);
}

PictureSearch::PictureSearch(const Page& page, const Rect& box, double pageDpi, const PictureSettings& s,
                             const JpegSettings& jpeg, std::string what)
    : crop_(cropPage(page, box)), box_(box), pageDpi_(pageDpi), settings_(s), jpeg_(jpeg), what_(std::move(what)) {
    if (s.quality > 0 || crop_.pixelCount() < size_t(kSmallPicturePixels)) return;  // no search
    dpis_ = {pageDpi};
    for (double d : kStandardDpis)
        if (d < pageDpi && d > s.minDpi) dpis_.push_back(d);
    if (s.minDpi < pageDpi) dpis_.push_back(s.minDpi);
    targetMse_ = 255.0 * 255.0 / std::pow(10.0, s.targetPsnr / 10);
    smalls_.resize(dpis_.size());
    downMses_.resize(dpis_.size());
    good_.resize(dpis_.size());
    reached_.assign(dpis_.size(), 0);
}

Page PictureSearch::reduced(double dpi) const {
    const double scale = std::min(1.0, dpi / pageDpi_);
    return resizePage(crop_, std::max(1, int(std::lround(crop_.width * scale))),
                      std::max(1, int(std::lround(crop_.height * scale))));
}

EncodedImage PictureSearch::finished(EncodedImage image) const {
    if (jpeg_.flate) {
        image.data = wrapFlate(image.data, what_);
        image.flate = true;
    }
    image.box = box_;
    return image;
}

void PictureSearch::measure(size_t k) {
    smalls_[k] = reduced(dpis_[k]);
    downMses_[k] = smalls_[k].width == crop_.width && smalls_[k].height == crop_.height
                       ? 0
                       : reductionError(smalls_[k], crop_, kErrorRowStep);
}

// The lowest quality within kQualityStep of reaching the target, if any does.
void PictureSearch::search(size_t k) {
    const Page& small = smalls_[k];
    const double downMse = downMses_[k];
    if (downMse >= targetMse_) return;
    // Bisection within [lo, hi]; the top quality is tried only when nothing
    // below it was good enough.
    int lo = kMinQuality, hi = settings_.maxQuality;
    while (hi - lo > kQualityStep) {
        const int mid = (lo + hi) / 2;
        Trial t = encodeAndMeasure(small, mid, jpeg_, what_);
        if (downMse + t.mse <= targetMse_)
            hi = mid, good_[k] = std::move(t), reached_[k] = 1;
        else
            lo = mid;
    }
    if (!reached_[k]) {
        good_[k] = encodeAndMeasure(small, settings_.maxQuality, jpeg_, what_);
        reached_[k] = downMse + good_[k].mse <= targetMse_;
    }
}

EncodedImage PictureSearch::result() {
    const EncodedImage image = choose();
    // The page's other pictures are still to be chosen: this one's crops
    // and candidates go now.
    crop_ = Page(), smalls_.clear(), good_.clear();
    return image;
}

EncodedImage PictureSearch::choose() {
    if (dpis_.empty()) {
        JpegSettings plain = jpeg_;
        plain.flate = false;
        const int quality = settings_.quality > 0 ? settings_.quality : kSmallPictureQuality;
        return finished(encodeImage(reduced(settings_.minDpi), quality, plain, what_));
    }
    const double budget = kMaxBytesPerSquareInch * crop_.pixelCount() / (pageDpi_ * pageDpi_);
    Trial best;
    bool found = false;
    // Lowest resolution first: on a tie in size it wins. The choice is made
    // in a fixed order, so it does not depend on the threads.
    for (size_t k = dpis_.size(); k-- > 0;)
        if (reached_[k] && (!found || good_[k].image.data.size() < best.image.data.size()))
            best = std::move(good_[k]), found = true;
    if (found && best.image.data.size() <= budget) return finished(std::move(best.image));
    // Out of reach at a sensible size (a halftone screen, grain finer than
    // JPEG keeps cheaply): the closest to the target within the budget, the
    // highest quality that fits at each resolution.
    std::vector<Trial> fits(dpis_.size());
    runEach(dpis_.size(), [&](size_t k) {
        int lo = kMinQuality, hi = settings_.maxQuality;
        Trial& fit = fits[k];
        fit = encodeAndMeasure(smalls_[k], lo, jpeg_, what_);
        if (fit.image.data.size() > budget) return;
        while (hi - lo > 2) {
            const int mid = (lo + hi) / 2;
            Trial t = encodeAndMeasure(smalls_[k], mid, jpeg_, what_);
            if (t.image.data.size() <= budget)
                lo = mid, fit = std::move(t);
            else
                hi = mid;
        }
    });
    Trial closest;
    double closestMse = 1e300;
    for (size_t k = 0; k < dpis_.size(); ++k)
        if (downMses_[k] + fits[k].mse < closestMse) closestMse = downMses_[k] + fits[k].mse, closest = std::move(fits[k]);
    return finished(std::move(closest.image));
}

void searchPictures(std::vector<PictureSearch*>& searches, const std::vector<std::function<void()>>& besides) {
    // Jobs of all the pictures at once, the largest resolutions first, so
    // that the threads finish close together.
    std::vector<std::pair<PictureSearch*, size_t>> jobs;
    for (size_t k = 0;; ++k) {
        const size_t before = jobs.size();
        for (PictureSearch* p : searches)
            if (k < p->resolutions()) jobs.push_back({p, k});
        if (jobs.size() == before) break;
    }
    runEach(jobs.size(), [&](size_t j) { jobs[j].first->measure(jobs[j].second); });
    runEach(jobs.size() + besides.size(), [&](size_t j) {
        if (j < jobs.size())
            jobs[j].first->search(jobs[j].second);
        else
            besides[j - jobs.size()]();
    });
}

}  // namespace tavrin
