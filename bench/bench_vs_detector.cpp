// The whole picture detector on the bundled A4 page (300 dpi, a text column
// with two inset photographs) against what a user would reach for instead,
// on the same page in the same process:
//  - leptonica's page segmentation, pixGetRegionsBinary, on the page
//    binarised beforehand (the binarisation is not timed);
//  - OpenCV's pieces alone: area reduction to a quarter, bilateral filter
//    (d = 7, our sigmas), a threshold and connected components with their
//    statistics, on 1 and on 2 threads.
// Ours is runDetectPict as the tavrin program calls it, serial and with the
// parallel flag (two OpenMP bands); its attribute map is built beforehand,
// as the peers' binarisation is.
#include <omp.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include <leptonica/allheaders.h>

#include "compare_main.h"
#include "sample_inputs.h"

namespace {

using bench_inputs::sampleInput;

void oursDetector(benchmark::State& state, int parallel) {
    omp_set_num_threads(2);
    std::vector<uint8_t> work(TAVRIN_DETECT_WORK_SIZE);
    int result = 0;
    for (auto _ : state) {
        result = sampleInput().run(work.data(), parallel);
        benchmark::DoNotOptimize(result);
    }
    if (result < 0) state.SkipWithError("runDetectPict failed");
}

// Area reduction, bilateral filter, threshold, labelling with statistics.
void opencvPieces(benchmark::State& state, int threads) {
    cv::setNumThreads(threads);
    bench_inputs::DetectorInput& in = sampleInput();
    const cv::Mat page(in.gray.height, in.gray.width, CV_8UC1, in.gray.data.data());
    const cv::Size quarterSize((in.gray.width + 3) / 4, (in.gray.height + 3) / 4);
    cv::Mat quarter, smooth, binary, labels, stats, centroids;
    int regions = 0;
    for (auto _ : state) {
        cv::resize(page, quarter, quarterSize, 0, 0, cv::INTER_AREA);
        cv::bilateralFilter(quarter, smooth, 7, in.param.dRangeSigma, in.param.dSpaceSigma);
        cv::threshold(smooth, binary, 128, 255, cv::THRESH_BINARY_INV);
        regions = cv::connectedComponentsWithStats(binary, labels, stats, centroids, 8, CV_32S);
        benchmark::DoNotOptimize(regions);
    }
    state.counters["regions"] = regions;
}

PIX* binarisedPage() {
    const tavrin::Plane& g = sampleInput().gray;
    PIX* gray = pixCreate(g.width, g.height, 8);
    l_uint32* data = pixGetData(gray);
    const int wpl = pixGetWpl(gray);
    for (int y = 0; y < g.height; ++y)
        for (int x = 0; x < g.width; ++x) SET_DATA_BYTE(data + y * wpl, x, g.row(y)[x]);
    PIX* binary = pixThresholdToBinary(gray, 128);
    pixDestroy(&gray);
    return binary;
}

void leptonicaSegmentation(benchmark::State& state) {
    setMsgSeverity(L_SEVERITY_NONE);
    static PIX* binary = binarisedPage();
    for (auto _ : state) {
        PIX *halftone = nullptr, *textlines = nullptr, *textblocks = nullptr;
        pixGetRegionsBinary(binary, &halftone, &textlines, &textblocks, nullptr);
        benchmark::DoNotOptimize(halftone);
        pixDestroy(&halftone);
        pixDestroy(&textlines);
        pixDestroy(&textblocks);
    }
}

}  // namespace

void registerContenders() {
    using bench_compare::contender;
    contender("detector", "ours_serial", [](benchmark::State& s) { oursDetector(s, 0); });
    contender("detector", "ours_parallel", [](benchmark::State& s) { oursDetector(s, 1); });
    contender("detector", "opencv_1thread", [](benchmark::State& s) { opencvPieces(s, 1); });
    contender("detector", "opencv_2threads", [](benchmark::State& s) { opencvPieces(s, 2); });
    contender("detector", "leptonica", leptonicaSegmentation);
}
