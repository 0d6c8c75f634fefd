// The tavrin compress run on an A4 page at 300 dpi, step by step: reading
// the file, gray conversion, paper and local levels, the classifier, picture
// detection (classifier and the library's detector), the text layer, the
// background, then the whole run in-process and as the command a user types.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "cli/commands.h"
#include "formats/page_reader.h"
#include "pipeline/background.h"
#include "pipeline/classifier.h"
#include "pipeline/page_compressor.h"
#include "pipeline/page_measures.h"
#include "pipeline/pdf_writer.h"
#include "pipeline/text_layer.h"

using namespace tavrin;

namespace {

const std::string kSample = std::string(TAVRIN_SAMPLES_DIR) + "/sample-page.jpg";
const std::string kText = std::string(TAVRIN_SAMPLES_DIR) + "/text-page.jpg";

Page load(const std::string& path) {
    auto reader = PageReader::open(path);
    Page p;
    reader->next(p);
    settleResolution(p, 0);
    return p;
}

// Everything one page needs, computed once for the later steps.
struct Fixture {
    Page page = load(kSample);
    Plane gray = grayOf(page);
    CompressSettings settings;
    PictureDetector detector;
    PageMeasures measures = measurePage(page, gray);
    std::vector<Rect> pictures = detector.run(page, gray, page.dpiX, settings.detect, {}, "bench").regions;
    TextLayer text = buildTextLayer(page, gray, measures.levels, pictures, settings.text);
};

Fixture& fixture() {
    static Fixture f;
    return f;
}

void BM_1_ReadJpegPage(benchmark::State& s) {
    for (auto _ : s) benchmark::DoNotOptimize(load(kSample));
}
void BM_2_GrayConversion(benchmark::State& s) {
    Fixture& f = fixture();
    for (auto _ : s) benchmark::DoNotOptimize(grayOf(f.page));
}
void BM_3_PaperAndLevels(benchmark::State& s) {
    Fixture& f = fixture();
    for (auto _ : s) {
        benchmark::DoNotOptimize(measurePage(f.page, f.gray));
    }
}
void BM_4a_Classifier(benchmark::State& s) {
    Fixture& f = fixture();
    for (auto _ : s) benchmark::DoNotOptimize(classifyPage(f.page, f.gray, f.measures, f.page.dpiX));
}
void BM_4b_PictureDetection(benchmark::State& s) {  // classifier included
    Fixture& f = fixture();
    for (auto _ : s)
        benchmark::DoNotOptimize(f.detector.run(f.page, f.gray, f.page.dpiX, f.settings.detect, {}, "bench"));
}
void BM_5_TextLayer(benchmark::State& s) {
    Fixture& f = fixture();
    for (auto _ : s) benchmark::DoNotOptimize(buildTextLayer(f.page, f.gray, f.measures.levels, f.pictures, f.settings.text));
}
void BM_6_Background(benchmark::State& s) {
    Fixture& f = fixture();
    const int factor = backgroundFactor(f.page.dpiX, f.settings.backgroundDpi);
    for (auto _ : s)
        benchmark::DoNotOptimize(buildBackground(f.page, f.text.pageInk, f.pictures, {0, 0, f.page.width - 1, f.page.height - 1}, factor, f.measures.paper, f.settings.flatten));
}
void wholeRun(benchmark::State& s, const std::string& path) {
    PictureDetector detector;
    const CompressSettings settings;
    for (auto _ : s) {
        const Page page = load(path);
        PdfWriter w;
        w.addPage(compressPage(page, settings, detector, {}, "bench", nullptr));
        benchmark::DoNotOptimize(w.toBytes());
    }
}
void BM_WholeRun_SamplePage(benchmark::State& s) { wholeRun(s, kSample); }
void BM_WholeRun_TextPage(benchmark::State& s) { wholeRun(s, kText); }
void BM_Command_SamplePage(benchmark::State& s) {  // process start, work buffer, file written
    const std::string cmd = std::string("'") + TAVRIN_BINARY + "' compress '" + kSample +
                            "' -o /tmp/bench_tavrin_compress.pdf -q";
    for (auto _ : s)
        if (std::system(cmd.c_str()) != 0) s.SkipWithError("tavrin compress failed");
    std::remove("/tmp/bench_tavrin_compress.pdf");
}

}  // namespace

BENCHMARK(BM_1_ReadJpegPage)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_2_GrayConversion)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_3_PaperAndLevels)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_4a_Classifier)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_4b_PictureDetection)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_5_TextLayer)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_6_Background)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WholeRun_SamplePage)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WholeRun_TextPage)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Command_SamplePage)->Unit(benchmark::kMillisecond)->UseRealTime();
