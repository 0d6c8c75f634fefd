// Detection filter stages on a quarter-resolution A4 plane at 300 dpi
// (620 x 877): smoothing, masked entropy and morphology, each serial
// (parallel = 0) and on the runtime's default OpenMP team (parallel = 1).
// Wall-clock time is reported, since the parallel runs use several threads.
#include <TavrinDetect.h>
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

namespace {

constexpr int kWidth = 620;
constexpr int kHeight = 877;

// A synthetic page: light background, lines of dark "text" strokes, a noisy
// photo-like area and a smooth gradient area; the high-attribute mask marks
// a few scattered boxes, the candidate mask a few blobs with specks.
struct Page {
    std::vector<uint8_t> gray, highAttr, smoothed, entropy, candidate, scratch, out;
    std::vector<uint8_t> work;
    ImgTavrin grayImg{}, highAttrImg{}, smoothedImg{}, entropyImg{}, candidateImg{}, scratchImg{},
        outImg{};

    Page()
        : gray(kWidth * kHeight),
          highAttr(kWidth * kHeight),
          smoothed(kWidth * kHeight),
          entropy(kWidth * kHeight),
          candidate(kWidth * kHeight),
          scratch(kWidth * kHeight),
          out(kWidth * kHeight),
          work(TAVRIN_DETECT_WORK_SIZE) {
        std::mt19937 rng(2024);
        std::uniform_int_distribution<int> noise(0, 255);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                int v = 235 + noise(rng) % 8;
                if (y % 24 < 9 && x % 7 < 3 && x > 40 && x < 580) v = 30 + noise(rng) % 20;
                if (x >= 300 && x < 560 && y >= 100 && y < 400) v = noise(rng);
                if (x >= 60 && x < 280 && y >= 500 && y < 800) v = (x + y) % 256;
                gray[y * kWidth + x] = static_cast<uint8_t>(v);
                const bool high = (x / 40 + y / 40) % 9 == 0;
                highAttr[y * kWidth + x] = high ? 1 : 0;
                const bool blob = (x >= 300 && x < 560 && y >= 100 && y < 400) ||
                                  (x >= 60 && x < 280 && y >= 500 && y < 800);
                candidate[y * kWidth + x] = blob || noise(rng) < 3 ? 1 : 0;
            }
        }
        place(grayImg, gray);
        place(highAttrImg, highAttr);
        place(smoothedImg, smoothed);
        place(entropyImg, entropy);
        place(candidateImg, candidate);
        place(scratchImg, scratch);
        place(outImg, out);
    }

    static void place(ImgTavrin& img, std::vector<uint8_t>& px) {
        img.pucImage = px.data();
        img.usWidth = kWidth;
        img.usHeight = kHeight;
        img.usXReso = 7500;
        img.usYReso = 7500;
        img.ucType = 0;
    }
};

Page& page() {
    static Page p;
    return p;
}

ST_PARAM_DETECT_PICT detectParams() {
    ST_PARAM_DETECT_PICT p{};
    p.dSpaceSigma = 1.5;
    p.dRangeSigma = 18.0;
    return p;
}

void BM_Smoothing(benchmark::State& state) {
    Page& p = page();
    ST_PARAM_DETECT_PICT params = detectParams();
    const int parallel = static_cast<int>(state.range(0));
    for (auto _ : state) {
        const int status = smoothFilter(&p.grayImg, &p.highAttrImg, &p.smoothedImg, p.work.data(),
                                        &params, parallel);
        benchmark::DoNotOptimize(status);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_Smoothing)
    ->ArgName("parallel")
    ->Arg(0)
    ->Arg(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void BM_Entropy(benchmark::State& state) {
    Page& p = page();
    ST_PARAM_DETECT_PICT params = detectParams();
    smoothFilter(&p.grayImg, &p.highAttrImg, &p.smoothedImg, p.work.data(), &params, 0);
    const int parallel = static_cast<int>(state.range(0));
    for (auto _ : state) {
        const int status = maskedEntropy(&p.smoothedImg, &p.highAttrImg, &p.entropyImg, parallel);
        benchmark::DoNotOptimize(status);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_Entropy)
    ->ArgName("parallel")
    ->Arg(0)
    ->Arg(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// The driver's cleaning of the candidate mask: isolated-pixel removal, one
// dilation and two erosions (a closing and one more erosion).
void BM_Morphology(benchmark::State& state) {
    Page& p = page();
    const int parallel = static_cast<int>(state.range(0));
    for (auto _ : state) {
        remove_SoloPoint(p.candidateImg);
        morphologyTrans(p.candidateImg, p.scratchImg, 0, parallel);
        morphologyTrans(p.scratchImg, p.entropyImg, 1, parallel);
        const int status = morphologyTrans(p.entropyImg, p.outImg, 1, parallel);
        benchmark::DoNotOptimize(status);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_Morphology)
    ->ArgName("parallel")
    ->Arg(0)
    ->Arg(1)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

// One 3x3 step alone (mode 0 dilation, 1 erosion).
void BM_MorphologyStep(benchmark::State& state) {
    Page& p = page();
    const int mode = static_cast<int>(state.range(0));
    const int parallel = static_cast<int>(state.range(1));
    for (auto _ : state) {
        const int status = morphologyTrans(p.candidateImg, p.scratchImg, mode, parallel);
        benchmark::DoNotOptimize(status);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_MorphologyStep)
    ->ArgNames({"mode", "parallel"})
    ->Args({0, 0})
    ->Args({0, 1})
    ->Args({1, 0})
    ->Args({1, 1})
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
