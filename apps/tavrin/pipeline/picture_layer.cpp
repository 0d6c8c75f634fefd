#include "pipeline/picture_layer.h"

#include <jpeglib.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstring>
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


struct Trial {
    EncodedImage image;
    double mse = 0;
};

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

double reductionError(const Page& small, const Page& full, int rowStep) {
    const int ch = full.channels, width = full.width;
    const BilinearTaps across(width, small.width), down(full.height, small.height);
    const std::vector<int>& x0 = across.first;
    const std::vector<int>& x1 = across.second;
    const std::vector<int>& wx = across.weight;
    uint64_t sum = 0, count = 0;
#pragma omp parallel for reduction(+ : sum, count) schedule(static)
    for (int y = 0; y < full.height; y += rowStep) {
        const int wy = down.weight[y];
        const uint8_t* a = small.row(down.first[y]);
        const uint8_t* b = small.row(down.second[y]);
        const uint8_t* o = full.row(y);
        uint64_t rowSum = 0;
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < ch; ++c) {
                const int top = a[x0[x] * ch + c] * (256 - wx[x]) + a[x1[x] * ch + c] * wx[x];
                const int bottom = b[x0[x] * ch + c] * (256 - wx[x]) + b[x1[x] * ch + c] * wx[x];
                const int d = ((top * (256 - wy) + bottom * wy + (1 << 15)) >> 16) - o[size_t(x) * ch + c];
                rowSum += uint32_t(d * d);
            }
        sum += rowSum, count += uint64_t(width) * ch;
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

EncodedImage encodePicture(const Page& page, const Rect& box, double pageDpi, const PictureSettings& s,
                           const JpegSettings& jpeg, const std::string& what) {
    const Page crop = cropPage(page, box);
    const auto reduced = [&](double dpi) {
        const double scale = std::min(1.0, dpi / pageDpi);
        return resizePage(crop, std::max(1, int(std::lround(crop.width * scale))),
                          std::max(1, int(std::lround(crop.height * scale))));
    };
    const auto finish = [&](EncodedImage image) {
        if (jpeg.flate) {
            image.data = wrapFlate(image.data, what);
            image.flate = true;
        }
        image.box = box;
        return image;
    };
    if (s.quality > 0 || crop.pixelCount() < size_t(kSmallPicturePixels)) {
        JpegSettings plain = jpeg;
        plain.flate = false;
        return finish(encodeImage(reduced(s.minDpi), s.quality > 0 ? s.quality : kSmallPictureQuality, plain, what));
    }

    std::vector<double> dpis = {pageDpi};
    for (double d : kStandardDpis)
        if (d < pageDpi && d > s.minDpi) dpis.push_back(d);
    if (s.minDpi < pageDpi) dpis.push_back(s.minDpi);
    const double targetMse = 255.0 * 255.0 / std::pow(10.0, s.targetPsnr / 10);
    const double budget = kMaxBytesPerSquareInch * crop.pixelCount() / (pageDpi * pageDpi);

    // The resolutions are searched side by side; the choice among them is
    // made in a fixed order, so the result does not depend on the threads.
    std::vector<Page> smalls(dpis.size());
    std::vector<double> downMses(dpis.size());
    runEach(dpis.size(), [&](size_t k) {
        smalls[k] = reduced(dpis[k]);
        downMses[k] = smalls[k].width == crop.width && smalls[k].height == crop.height
                          ? 0
                          : reductionError(smalls[k], crop, kErrorRowStep);
    });
    // Per resolution: the lowest quality within kQualityStep of reaching the
    // target, if any does.
    std::vector<Trial> good(dpis.size());
    std::vector<char> reached(dpis.size(), 0);
    runEach(dpis.size(), [&](size_t k) {
        const Page& small = smalls[k];
        const double downMse = downMses[k];
        if (downMse >= targetMse) return;
        // Bisection within [lo, hi]; the top quality is tried only when
        // nothing below it was good enough.
        int lo = kMinQuality, hi = s.maxQuality;
        while (hi - lo > kQualityStep) {
            const int mid = (lo + hi) / 2;
            Trial t = encodeAndMeasure(small, mid, jpeg, what);
            if (downMse + t.mse <= targetMse)
                hi = mid, good[k] = std::move(t), reached[k] = 1;
            else
                lo = mid;
        }
        if (!reached[k]) {
            good[k] = encodeAndMeasure(small, s.maxQuality, jpeg, what);
            reached[k] = downMse + good[k].mse <= targetMse;
        }
    });
    Trial best;
    bool found = false;
    // Lowest resolution first: on a tie in size it wins.
    for (size_t k = dpis.size(); k-- > 0;)
        if (reached[k] && (!found || good[k].image.data.size() < best.image.data.size()))
            best = std::move(good[k]), found = true;
    if (found && best.image.data.size() <= budget) return finish(std::move(best.image));
    // Out of reach at a sensible size (a halftone screen, grain finer than
    // JPEG keeps cheaply): the closest to the target within the budget, the
    // highest quality that fits at each resolution.
    std::vector<Trial> fits(dpis.size());
    runEach(dpis.size(), [&](size_t k) {
        int lo = kMinQuality, hi = s.maxQuality;
        Trial& fit = fits[k];
        fit = encodeAndMeasure(smalls[k], lo, jpeg, what);
        if (fit.image.data.size() > budget) return;
        while (hi - lo > 2) {
            const int mid = (lo + hi) / 2;
            Trial t = encodeAndMeasure(smalls[k], mid, jpeg, what);
            if (t.image.data.size() <= budget)
                lo = mid, fit = std::move(t);
            else
                hi = mid;
        }
    });
    Trial closest;
    double closestMse = 1e300;
    for (size_t k = 0; k < dpis.size(); ++k)
        if (downMses[k] + fits[k].mse < closestMse) closestMse = downMses[k] + fits[k].mse, closest = std::move(fits[k]);
    return finish(std::move(closest.image));
}

}  // namespace tavrin
