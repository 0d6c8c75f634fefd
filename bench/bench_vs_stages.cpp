// The detector's stages against the library calls a user would pick
// instead, on the quarter-resolution planes that runDetectPict builds from
// the bundled A4 page (620 x 877), in the same process:
//  - smoothFilter against cv::bilateralFilter (d = 7, the same sigmas);
//  - entLabeling (labels and per-label statistics) against
//    cv::connectedComponentsWithStats (8-connectivity);
//  - one 3x3 dilation and one 3x3 erosion (morphologyTrans) against
//    cv::dilate and cv::erode;
//  - maskedEntropy against a plain loop that builds each block's histogram
//    of the 11 x 11 neighbourhood and takes its entropy with log2.
// Ours runs serial and with the parallel flag, OpenCV on 1 and 2 threads.
#include <omp.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "compare_main.h"
#include "sample_inputs.h"

namespace {

// The planes of one driver run without labelling: the picture mask is then
// the cleaned candidate mask that the first labelling pass receives.
struct Planes {
    int w = 0, h = 0;
    std::vector<uint8_t> work = std::vector<uint8_t>(TAVRIN_DETECT_WORK_SIZE);
    std::vector<uint8_t> gray, highAttr, smoothed, candidate, out, labels;
    std::vector<PictLabel> table = std::vector<PictLabel>(4097);
    ST_PARAM_DETECT_PICT param{};

    Planes() {
        bench_inputs::DetectorInput& in = bench_inputs::sampleInput();
        w = (in.gray.width + 3) / 4;
        h = (in.gray.height + 3) / 4;
        param = in.param;
        char noDump[] = "";
        runDetectPict(&in.fg, work.data(), 0, -1, &param, 0, noDump);
        gray = copy(0);
        highAttr = copy(TAVRIN_DETECT_PLANES_OFFSET);
        smoothed = copy(TAVRIN_DETECT_PLANES_OFFSET + 4 * TAVRIN_DETECT_PLANE_LIMIT);
        candidate = copy(TAVRIN_DETECT_PICT_OFFSET);
        out.resize(gray.size());
        labels.resize(gray.size());
    }
    std::vector<uint8_t> copy(size_t offset) const {
        return std::vector<uint8_t>(work.begin() + offset, work.begin() + offset + size_t(w) * h);
    }
    ImgTavrin img(std::vector<uint8_t>& px) const {
        return ImgTavrin{px.data(), uint16_t(w), uint16_t(h), 7500, 7500, 0};
    }
    cv::Mat mat(std::vector<uint8_t>& px) const { return cv::Mat(h, w, CV_8UC1, px.data()); }
};

Planes& planes() {
    static Planes p;
    return p;
}

void oursSmoothing(benchmark::State& state, int parallel) {
    omp_set_num_threads(2);
    Planes& p = planes();
    ImgTavrin src = p.img(p.gray), mask = p.img(p.highAttr), dst = p.img(p.out);
    for (auto _ : state)
        benchmark::DoNotOptimize(smoothFilter(&src, &mask, &dst, p.work.data(), &p.param, parallel));
}

void opencvBilateral(benchmark::State& state, int threads) {
    cv::setNumThreads(threads);
    Planes& p = planes();
    cv::Mat dst;
    for (auto _ : state) {
        cv::bilateralFilter(p.mat(p.gray), dst, 7, p.param.dRangeSigma, p.param.dSpaceSigma);
        benchmark::DoNotOptimize(dst.data);
    }
}

void oursLabelling(benchmark::State& state) {
    Planes& p = planes();
    ImgTavrin mask = p.img(p.candidate), labels = p.img(p.labels);
    char noDump[] = "";
    int regions = 0;
    for (auto _ : state) {
        regions = entLabeling(p.table.data(), &mask, &labels, p.work.data(), noDump);
        benchmark::DoNotOptimize(regions);
    }
    state.counters["regions"] = regions;
}

void opencvComponents(benchmark::State& state, int threads) {
    cv::setNumThreads(threads);
    Planes& p = planes();
    cv::Mat labels, stats, centroids;
    int regions = 0;
    for (auto _ : state) {
        regions = cv::connectedComponentsWithStats(p.mat(p.candidate), labels, stats, centroids, 8,
                                                   CV_32S);
        benchmark::DoNotOptimize(regions);
    }
    state.counters["regions"] = regions - 1;
}

void oursMorphology(benchmark::State& state, int mode, int parallel) {
    omp_set_num_threads(2);
    Planes& p = planes();
    for (auto _ : state)
        benchmark::DoNotOptimize(morphologyTrans(p.img(p.candidate), p.img(p.out), mode, parallel));
}

void opencvMorphology(benchmark::State& state, int mode, int threads) {
    cv::setNumThreads(threads);
    Planes& p = planes();
    const cv::Mat square = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
    cv::Mat dst;
    for (auto _ : state) {
        if (mode == 0)
            cv::dilate(p.mat(p.candidate), dst, square);
        else
            cv::erode(p.mat(p.candidate), dst, square);
        benchmark::DoNotOptimize(dst.data);
    }
}

void oursEntropy(benchmark::State& state, int parallel) {
    omp_set_num_threads(2);
    Planes& p = planes();
    ImgTavrin src = p.img(p.smoothed), mask = p.img(p.highAttr), dst = p.img(p.out);
    for (auto _ : state) benchmark::DoNotOptimize(maskedEntropy(&src, &mask, &dst, parallel));
}

// What a user would write: for every 3x3 block, count the unmasked
// differences of the clamped 11 x 11 neighbourhood into ten classes, drop
// weak classes and take the base-9 entropy with log2.
void plainEntropy(const uint8_t* src, const uint8_t* mask, uint8_t* dst, int w, int h) {
    std::fill(dst, dst + size_t(w) * h, uint8_t{0});
    for (int y = 2; y < h - 2; y += 3)
        for (int x = 2; x < w - 2; x += 3) {
            const int c = src[y * w + x];
            int hist[10] = {};
            for (int dy = -5; dy <= 5; ++dy) {
                const int r = std::min(std::max(y + dy, 0), h - 1);
                for (int dx = -5; dx <= 5; ++dx) {
                    const int s = std::min(std::max(x + dx, 0), w - 1);
                    if (mask[r * w + s] != 0) continue;
                    const int d = src[r * w + s] - c;
                    ++hist[d >= -35 && d <= 35 ? (35 - d) / 8 : 9];
                }
            }
            const int strongest = *std::max_element(hist, hist + 9);
            int total = 0;
            for (int k = 0; k < 9; ++k) total += hist[k] * 512 < strongest * 51 ? 0 : hist[k];
            double e = 0;
            for (int k = 0; k < 9; ++k)
                if (hist[k] * 512 >= strongest * 51 && hist[k] > 0) {
                    const double q = double(hist[k]) / std::max(total, 17);
                    e -= q * std::log2(q);
                }
            const uint8_t v = uint8_t(std::min(255.0, 255.0 * e / std::log2(9.0)));
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) dst[(y + dy) * w + x + dx] = v;
        }
}

void plainEntropyLoop(benchmark::State& state) {
    Planes& p = planes();
    for (auto _ : state) {
        plainEntropy(p.smoothed.data(), p.highAttr.data(), p.out.data(), p.w, p.h);
        benchmark::DoNotOptimize(p.out.data());
    }
}

}  // namespace

void registerContenders() {
    using bench_compare::contender;
    using S = benchmark::State;
    contender("smoothing", "ours_serial", [](S& s) { oursSmoothing(s, 0); });
    contender("smoothing", "ours_parallel", [](S& s) { oursSmoothing(s, 1); });
    contender("smoothing", "opencv_1thread", [](S& s) { opencvBilateral(s, 1); });
    contender("smoothing", "opencv_2threads", [](S& s) { opencvBilateral(s, 2); });
    contender("labelling", "ours", oursLabelling);
    contender("labelling", "opencv_1thread", [](S& s) { opencvComponents(s, 1); });
    contender("labelling", "opencv_2threads", [](S& s) { opencvComponents(s, 2); });
    contender("dilation", "ours_serial", [](S& s) { oursMorphology(s, 0, 0); });
    contender("dilation", "ours_parallel", [](S& s) { oursMorphology(s, 0, 1); });
    contender("dilation", "opencv_1thread", [](S& s) { opencvMorphology(s, 0, 1); });
    contender("dilation", "opencv_2threads", [](S& s) { opencvMorphology(s, 0, 2); });
    contender("erosion", "ours_serial", [](S& s) { oursMorphology(s, 1, 0); });
    contender("erosion", "ours_parallel", [](S& s) { oursMorphology(s, 1, 1); });
    contender("erosion", "opencv_1thread", [](S& s) { opencvMorphology(s, 1, 1); });
    contender("erosion", "opencv_2threads", [](S& s) { opencvMorphology(s, 1, 2); });
    contender("entropy", "ours_serial", [](S& s) { oursEntropy(s, 0); });
    contender("entropy", "ours_parallel", [](S& s) { oursEntropy(s, 1); });
    contender("entropy", "plain_loop", plainEntropyLoop);
}
