// The tavrin compress run on an A4 page at 300 dpi, step by step: reading
// the file, gray conversion, picture detection (attribute map and the
// library's detector), ink bands, background, band colours, MMR masks,
// background JPEG, PDF assembly; then the whole run in-process and as the
// command a user types.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "cli/commands.h"
#include "formats/page_reader.h"
#include "pipeline/attribute_map.h"
#include "pipeline/background.h"
#include "pipeline/ink_levels.h"
#include "pipeline/layer_encoders.h"
#include "pipeline/page_compressor.h"
#include "pipeline/pdf_writer.h"

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
    std::vector<Rect> pictures = detector.run(gray, page.dpiX, settings.detect, {}, "bench").regions;
    InkBands ink = splitInk(gray, page.dpiX, settings.inkLevels, settings.minContrast, pictures);
    Page background = buildBackground(page, ink, backgroundFactor(page.dpiX, settings.backgroundDpi));
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
void BM_3a_AttributeMap(benchmark::State& s) {
    Fixture& f = fixture();
    for (auto _ : s) benchmark::DoNotOptimize(buildAttributeMap(f.gray, f.page.dpiX));
}
void BM_3b_PictureDetection(benchmark::State& s) {  // attribute map included
    Fixture& f = fixture();
    for (auto _ : s) benchmark::DoNotOptimize(f.detector.run(f.gray, f.page.dpiX, f.settings.detect, {}, "bench"));
}
void BM_4_InkBands(benchmark::State& s) {
    Fixture& f = fixture();
    for (auto _ : s)
        benchmark::DoNotOptimize(splitInk(f.gray, f.page.dpiX, f.settings.inkLevels, f.settings.minContrast, f.pictures));
}
void BM_5_Background(benchmark::State& s) {
    Fixture& f = fixture();
    const int factor = backgroundFactor(f.page.dpiX, f.settings.backgroundDpi);
    for (auto _ : s) benchmark::DoNotOptimize(buildBackground(f.page, f.ink, factor));
}
void BM_6_BandColours(benchmark::State& s) {
    Fixture& f = fixture();
    for (auto _ : s) benchmark::DoNotOptimize(measureBandColours(f.page, f.ink));
}
void BM_7_MmrMasks(benchmark::State& s) {  // packing and Tavrin_bwToMmr, three masks
    Fixture& f = fixture();
    size_t bytes = 0;
    for (auto _ : s) {
        bytes = 0;
        for (int i = 0; i < f.ink.count; ++i) {
            std::vector<uint8_t> packed = packLayer(f.ink.band, i);
            bytes += encodeMmr(packed, f.page.width, f.page.height, 30000, 30000, "bench").size();
        }
    }
    s.counters["bytes"] = double(bytes);
}
void BM_8_BackgroundJpeg(benchmark::State& s) {
    Fixture& f = fixture();
    for (auto _ : s) benchmark::DoNotOptimize(encodeJpeg(f.background, kQualityWithPictures, 0, 0, "bench", nullptr));
}
void BM_9_PdfAssembly(benchmark::State& s) {
    Fixture& f = fixture();
    const EncodedPage enc = compressPage(f.page, f.settings, f.detector, {}, "bench", nullptr);
    for (auto _ : s) {
        PdfWriter w;
        w.addPage(enc);
        benchmark::DoNotOptimize(w.toBytes());
    }
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
BENCHMARK(BM_3a_AttributeMap)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_3b_PictureDetection)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_4_InkBands)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_5_Background)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_6_BandColours)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_7_MmrMasks)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_8_BackgroundJpeg)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_9_PdfAssembly)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WholeRun_SamplePage)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WholeRun_TextPage)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Command_SamplePage)->Unit(benchmark::kMillisecond)->UseRealTime();
