// Picture-region detection on an A4 page at 300 dpi (2480 x 3508): the whole
// driver, gray and colour, serial and with the filters' two OpenMP bands;
// and the labelling, box and table-splitting stages on the quarter plane
// (620 x 877) that the driver leaves behind.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include <TavrinDetect.h>

namespace {

constexpr int kPageW = 2480, kPageH = 3508;
constexpr int kQuarterW = (kPageW + 3) / 4, kQuarterH = (kPageH + 3) / 4;

uint32_t noise(uint32_t x) {
    x ^= x >> 16;
    x *= 0x7feb352dU;
    x ^= x >> 15;
    x *= 0x846ca68bU;
    x ^= x >> 16;
    return x;
}

// A page of text lines with two textured photos and a ruled table.
struct A4Page {
    int bpp;
    std::vector<uint8_t> px;
    std::vector<uint8_t> attr = std::vector<uint8_t>(static_cast<size_t>(kPageW / 2) * (kPageH / 2), 0);
    std::vector<ST_TABLERECT> tables = std::vector<ST_TABLERECT>(2);
    structFGInfos fg{};

    explicit A4Page(bool colour) : bpp(colour ? 3 : 1), px(static_cast<size_t>(kPageW) * kPageH * bpp, 235) {
        auto set = [&](int x, int y, uint8_t v) {
            uint8_t* p = &px[(static_cast<size_t>(y) * kPageW + x) * bpp];
            for (int c = 0; c < bpp; ++c) p[c] = v;
        };
        for (int y = 0; y < kPageH; ++y)
            for (int x = 0; x < kPageW; ++x) {
                const bool photo = (x >= 300 && x < 1500 && y >= 300 && y < 1200) ||
                                   (x >= 1700 && x < 2200 && y >= 2700 && y < 3300);
                const bool table = x >= 300 && x < 1500 && y >= 2700 && y < 3300;
                const int line = (y - 1400) % 70;
                if (photo) {
                    set(x, y, static_cast<uint8_t>(70 + (x + y) / 40 % 60 + noise(x * 7919U + y * 104729U) % 50));
                } else if (table) {
                    if ((x - 300) % 60 < 3 || (y - 2700) % 50 < 3) set(x, y, 15);
                } else if (y >= 1400 && y < 2600 && x >= 300 && x < 2200 && line < 36) {
                    const int s = x % 18;
                    if (s < 4 || (line < 5 && (x / 18) % 3 == 0)) set(x, y, 25);
                    else if (s == 4) set(x, y, 140);
                }
            }
        tables[1].sRect0 = 150;  // half resolution: left, top, right, bottom
        tables[1].sRect1 = 1350;
        tables[1].sRect2 = 750;
        tables[1].sRect3 = 1650;
        fg.stPageImg = ImgTavrin{px.data(), kPageW, kPageH, 30000, 30000, static_cast<uint8_t>(colour ? 1 : 0)};
        fg.stAttrImg = ImgTavrin{attr.data(), kPageW / 2, kPageH / 2, 15000, 15000, 0};
        fg.stTableData = ST_TABLEDATA{1, tables.data()};
    }
};

ST_PARAM_DETECT_PICT detectParam() {
    ST_PARAM_DETECT_PICT p{};
    p.dSpaceSigma = 1.5;
    p.dRangeSigma = 10.0;
    p.iMinWidth = 8;
    p.iMinHeight = 8;
    p.iMinArea = 100;
    p.dMinFillRatio = 0.5;
    p.dMaxHighAttrRatio = 0.3;
    p.dPictPageRatio = 0.1;
    return p;
}

A4Page& page(bool colour) {
    static A4Page gray(false), rgb(true);
    return colour ? rgb : gray;
}

void BM_runDetectPict(benchmark::State& state) {
    const bool colour = state.range(0) != 0;
    const int parallel = static_cast<int>(state.range(1));
    A4Page& pg = page(colour);
    std::vector<uint8_t> work(TAVRIN_DETECT_WORK_SIZE);
    ST_PARAM_DETECT_PICT param = detectParam();
    char none[] = "";
    int result = 0;
    for (auto _ : state) {
        result = runDetectPict(&pg.fg, work.data(), 1, 8, &param, parallel, none);
        benchmark::DoNotOptimize(result);
    }
    state.counters["result"] = result;
    state.counters["pict_px"] = param.iPictPixelNum;
    state.SetLabel(std::string(colour ? "colour" : "gray") + (parallel ? ", parallel" : ", serial"));
}
BENCHMARK(BM_runDetectPict)
    ->ArgNames({"colour", "parallel"})
    ->Args({0, 0})
    ->Args({0, 1})
    ->Args({1, 0})
    ->Args({1, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The picture mask and the cleaned planes of one driver run on the gray page.
struct QuarterPlanes {
    std::vector<uint8_t> work = std::vector<uint8_t>(TAVRIN_DETECT_WORK_SIZE);
    std::vector<uint8_t> mask;
    QuarterPlanes() {
        A4Page& pg = page(false);
        ST_PARAM_DETECT_PICT param = detectParam();
        char none[] = "";
        // No labelling pass: the mask is the cleaned candidate mask.
        runDetectPict(&pg.fg, work.data(), 1, -1, &param, 0, none);
        mask.assign(work.begin() + TAVRIN_DETECT_PICT_OFFSET,
                    work.begin() + TAVRIN_DETECT_PICT_OFFSET + kQuarterW * kQuarterH);
    }
    ImgTavrin plane(uint8_t* px) { return ImgTavrin{px, kQuarterW, kQuarterH, 7500, 7500, 0}; }
};

QuarterPlanes& quarter() {
    static QuarterPlanes q;
    return q;
}

void BM_entLabeling(benchmark::State& state) {
    QuarterPlanes& q = quarter();
    std::vector<uint8_t> mask = q.mask, labels(mask.size());
    std::vector<PictLabel> table(4097);
    ImgTavrin in = q.plane(mask.data()), out = q.plane(labels.data());
    char none[] = "";
    int k = 0;
    for (auto _ : state) {
        k = entLabeling(table.data(), &in, &out, q.work.data(), none);
        benchmark::DoNotOptimize(k);
    }
    state.counters["labels"] = k;
}
BENCHMARK(BM_entLabeling)->Unit(benchmark::kMicrosecond);

void BM_boudingBox(benchmark::State& state) {
    QuarterPlanes& q = quarter();
    std::vector<uint8_t> mask = q.mask, labels(mask.size()), out(mask.size());
    std::vector<PictLabel> table(4097), scratch(4097);
    ImgTavrin in = q.plane(mask.data()), lab = q.plane(labels.data());
    char none[] = "";
    const int k = entLabeling(table.data(), &in, &lab, q.work.data(), none);
    ST_PARAM_DETECT_PICT param = detectParam();
    const uint8_t* highAttr = q.work.data() + TAVRIN_DETECT_PLANES_OFFSET + 2 * TAVRIN_DETECT_PLANE_LIMIT;
    std::vector<uint8_t> count(highAttr, highAttr + mask.size());
    for (auto _ : state) {
        scratch = table;
        boudingBox(scratch.data(), k, in, q.plane(count.data()), q.plane(out.data()), 1, &param);
        benchmark::ClobberMemory();
    }
    state.counters["labels"] = k;
}
BENCHMARK(BM_boudingBox)->Unit(benchmark::kMicrosecond);

void BM_splitRect_forTable(benchmark::State& state) {
    QuarterPlanes& q = quarter();
    std::vector<uint8_t> mask = q.mask, labels(mask.size()), work(mask.size());
    std::vector<PictLabel> table(4097);
    ImgTavrin in = q.plane(mask.data()), lab = q.plane(labels.data());
    char none[] = "";
    const int k = entLabeling(table.data(), &in, &lab, q.work.data(), none);
    // A table over the bottom-right corner of the upper photo; read as
    // left, right, top, bottom in half-resolution pixels.
    std::vector<ST_TABLERECT> rects(2);
    rects[1].sRect0 = 600;
    rects[1].sRect1 = 900;
    rects[1].sRect2 = 500;
    rects[1].sRect3 = 700;
    ST_TABLEDATA tables{1, rects.data()};
    for (auto _ : state) {
        std::memcpy(work.data(), mask.data(), mask.size());
        ImgTavrin m = q.plane(work.data());
        splitRect_forTable(table.data(), &m, &tables, k);
        benchmark::ClobberMemory();
    }
    state.counters["labels"] = k;
}
BENCHMARK(BM_splitRect_forTable)->Unit(benchmark::kMicrosecond);

}  // namespace
