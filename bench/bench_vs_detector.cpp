// The whole picture detector against what a user would reach for instead,
// on the same page in the same process, for pages made from the bundled A4
// page (300 dpi, a text column with two inset photographs): A5, A4, A3 and
// the A4 page at 600 dpi (see sample_inputs.h). Peers:
//  - leptonica's page segmentation, pixGetRegionsBinary, on the page
//    binarised beforehand (the binarisation is not timed);
//  - OpenCV's pieces alone: area reduction to a quarter of 300 dpi,
//    bilateral filter (d = 7, our sigmas), a threshold and connected
//    components with their statistics, on 1 and on 2 threads.
// Ours is runDetectPict as the tavrin program calls it, serial and with the
// parallel flag (two OpenMP bands); its attribute map is built beforehand,
// as the peers' binarisation is. Every contender takes the 600-dpi page as
// it is and reduces it itself: ours and leptonica by 2 to 300 dpi first (as
// the tavrin program does), OpenCV straight to the quarter of 300 dpi.
// Comparisons are named after the page: --benchmark_filter=A4/ runs one.
#include <omp.h>

#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include <leptonica/allheaders.h>

#include "compare_main.h"
#include "sample_inputs.h"

namespace {

using bench_inputs::PageSize;

// A page at its own resolution, its detector input at 300 dpi and its
// binarised form for leptonica.
struct SizedPage {
    tavrin::Plane gray;
    std::unique_ptr<bench_inputs::DetectorInput> input;
    PIX* binary = nullptr;
    int reduction = 1;  // to 300 dpi

    explicit SizedPage(PageSize s) : gray(bench_inputs::grayOfSize(s)) {
        reduction = bench_inputs::sizeDpi(s) > 300 ? 2 : 1;
        input = std::make_unique<bench_inputs::DetectorInput>(tavrin::reducePlane(gray, reduction));
        PIX* pix8 = pixCreate(gray.width, gray.height, 8);
        l_uint32* data = pixGetData(pix8);
        const int wpl = pixGetWpl(pix8);
        for (int y = 0; y < gray.height; ++y)
            for (int x = 0; x < gray.width; ++x) SET_DATA_BYTE(data + y * wpl, x, gray.row(y)[x]);
        binary = pixThresholdToBinary(pix8, 128);
        pixDestroy(&pix8);
    }
};

SizedPage& page(PageSize s) {
    static std::map<PageSize, std::unique_ptr<SizedPage>> pages;
    std::unique_ptr<SizedPage>& p = pages[s];
    if (!p) p = std::make_unique<SizedPage>(s);
    return *p;
}

void oursDetector(benchmark::State& state, PageSize s, int parallel) {
    omp_set_num_threads(parallel ? 2 : 1);  // the program's reduction uses the team too
    SizedPage& p = page(s);
    std::vector<uint8_t> work(TAVRIN_DETECT_WORK_SIZE);
    int result = 0;
    for (auto _ : state) {
        if (p.reduction > 1) {  // the program's reduction, then its detector input
            const tavrin::Plane reduced = tavrin::reducePlane(p.gray, p.reduction);
            benchmark::DoNotOptimize(reduced.data.data());
        }
        result = p.input->run(work.data(), parallel);
        benchmark::DoNotOptimize(result);
    }
    if (result < 0) state.SkipWithError("runDetectPict failed");
}

// Area reduction, bilateral filter, threshold, labelling with statistics.
void opencvPieces(benchmark::State& state, PageSize s, int threads) {
    cv::setNumThreads(threads);
    SizedPage& p = page(s);
    const cv::Mat gray(p.gray.height, p.gray.width, CV_8UC1, p.gray.data.data());
    const int factor = 4 * p.reduction;
    const cv::Size quarterSize((p.gray.width + factor - 1) / factor,
                               (p.gray.height + factor - 1) / factor);
    const ST_PARAM_DETECT_PICT& param = p.input->param;
    cv::Mat quarter, smooth, binary, labels, stats, centroids;
    int regions = 0;
    for (auto _ : state) {
        cv::resize(gray, quarter, quarterSize, 0, 0, cv::INTER_AREA);
        cv::bilateralFilter(quarter, smooth, 7, param.dRangeSigma, param.dSpaceSigma);
        cv::threshold(smooth, binary, 128, 255, cv::THRESH_BINARY_INV);
        regions = cv::connectedComponentsWithStats(binary, labels, stats, centroids, 8, CV_32S);
        benchmark::DoNotOptimize(regions);
    }
    state.counters["regions"] = regions;
}

void leptonicaSegmentation(benchmark::State& state, PageSize s) {
    setMsgSeverity(L_SEVERITY_NONE);
    SizedPage& p = page(s);
    for (auto _ : state) {
        PIX* binary = p.reduction > 1 ? pixReduceRankBinary2(p.binary, 1, nullptr) : p.binary;
        PIX *halftone = nullptr, *textlines = nullptr, *textblocks = nullptr;
        pixGetRegionsBinary(binary, &halftone, &textlines, &textblocks, nullptr);
        benchmark::DoNotOptimize(halftone);
        pixDestroy(&halftone);
        pixDestroy(&textlines);
        pixDestroy(&textblocks);
        if (binary != p.binary) pixDestroy(&binary);
    }
}

}  // namespace

void registerContenders() {
    using bench_compare::contender;
    using S = benchmark::State;
    for (PageSize s : {PageSize::A5, PageSize::A4, PageSize::A3, PageSize::A4at600}) {
        const std::string name = bench_inputs::sizeName(s);
        contender(name, "ours_serial", [s](S& st) { oursDetector(st, s, 0); });
        contender(name, "ours_parallel", [s](S& st) { oursDetector(st, s, 1); });
        contender(name, "opencv_1thread", [s](S& st) { opencvPieces(st, s, 1); });
        contender(name, "opencv_2threads", [s](S& st) { opencvPieces(st, s, 2); });
        contender(name, "leptonica", [s](S& st) { leptonicaSegmentation(st, s); });
    }
}
