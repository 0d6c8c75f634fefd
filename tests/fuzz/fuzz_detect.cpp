// runDetectPict on small pages with arbitrary pixels, attribute maps, table
// rectangles, parameters (NaN and infinities included), attribute modes and
// pass counts, run serially and in parallel on two work buffers that start
// out equal: result, pixel count and every plane and table the detector
// writes must be byte-identical, and nothing may be written past the work
// buffer's size.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "TavrinDetect.h"

namespace {

constexpr size_t kGuard = 64;

struct Run {
    std::vector<uint8_t> work = std::vector<uint8_t>(TAVRIN_DETECT_WORK_SIZE + kGuard, 0x3C);
    ST_PARAM_DETECT_PICT param{};
    int result = 0;
};

double anyDouble(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange(0, 3)) {
        case 0: return in.ConsumeFloatingPoint<double>();  // may be NaN or infinite
        case 1: return in.ConsumeIntegralInRange(0, 20);
        default: return in.ConsumeProbability<double>();
    }
}

// Regions of the work buffer that hold W4 x H4 planes (or 2/4 bytes per
// pixel for the labelling's tables), with their bytes per pixel.
const std::pair<uint32_t, int> kPlanes[] = {
    {TAVRIN_DETECT_GRAY_OFFSET, 1}, {TAVRIN_DETECT_ATTR_OFFSET, 1},   {TAVRIN_DETECT_PICT_OFFSET, 1},
    {TAVRIN_DETECT_EQUIV_OFFSET, 4}, {TAVRIN_DETECT_PROV_OFFSET, 2},
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Run serial, parallel;  // 22 MB each: kept across inputs, equal before every call
    FuzzedDataProvider in(data, size);
    const uint16_t width = in.ConsumeIntegralInRange<uint16_t>(0, 96), height = in.ConsumeIntegralInRange<uint16_t>(0, 96);
    const uint8_t type = in.ConsumeIntegral<uint8_t>();
    const int attrMode = in.ConsumeIntegralInRange(0, 2), passMax = in.ConsumeIntegralInRange(-2, 12);
    const int attrShort = in.ConsumeIntegralInRange(0, 1);  // a map one pixel short must be refused
    ST_PARAM_DETECT_PICT param{};
    param.dSpaceSigma = anyDouble(in);
    param.dRangeSigma = anyDouble(in);
    param.iMinWidth = in.ConsumeIntegralInRange(-2, 40);
    param.iMinHeight = in.ConsumeIntegralInRange(-2, 40);
    param.iMinArea = in.ConsumeIntegralInRange(-2, 1600);
    param.dMinFillRatio = anyDouble(in);
    param.dMaxHighAttrRatio = anyDouble(in);
    param.dPictPageRatio = anyDouble(in);
    std::vector<ST_TABLERECT> tables(in.ConsumeIntegralInRange(1, 5));
    for (ST_TABLERECT& t : tables) {
        t = ST_TABLERECT{};
        t.sRect0 = in.ConsumeIntegral<int16_t>(), t.sRect1 = in.ConsumeIntegral<int16_t>();
        t.sRect2 = in.ConsumeIntegral<int16_t>(), t.sRect3 = in.ConsumeIntegral<int16_t>();
    }
    // Page and attribute map from the rest: pixel values often repeat, so
    // textures, flat areas and the attribute codes 112 and >= 128 all occur.
    const std::vector<uint8_t> rest = in.ConsumeRemainingBytes<uint8_t>();
    const size_t pageBytes = size_t(width) * height * (type == 0 ? 1 : 3);
    const uint16_t attrWidth = std::max((width + 1) / 2 - attrShort, 0);
    const uint16_t attrHeight = std::max((height + 1) / 2 - attrShort, 0);
    std::vector<uint8_t> page(pageBytes), attr(size_t(attrWidth) * attrHeight);
    for (size_t i = 0; i < page.size() && !rest.empty(); ++i) page[i] = rest[(i / 7) % rest.size()];
    for (size_t i = 0; i < attr.size() && !rest.empty(); ++i) attr[i] = rest[(rest.size() - 1 - i % rest.size())];

    structFGInfos fg{};
    fg.stPageImg = ImgTavrin{page.data(), width, height, 30000, 30000, type};
    fg.stAttrImg = ImgTavrin{attr.data(), attrWidth, attrHeight, 15000, 15000, 0};
    fg.stTableData.iTableNum = int32_t(tables.size()) - 1;  // entry 0 is not read
    fg.stTableData.pstTableRect = tables.data();
    char noDump[] = "";
    for (Run* r : {&serial, &parallel}) {
        r->param = param;
        r->result = runDetectPict(&fg, r->work.data(), attrMode, passMax, &r->param, r == &parallel, noDump);
    }
    const int result = serial.result;
    if (result != parallel.result || std::memcmp(&serial.param, &parallel.param, sizeof param) != 0) std::abort();
    if (result < -4 - std::max(passMax, 0) || result > 1 || result == -2) std::abort();
    const size_t n = size_t((width + 3) / 4) * ((height + 3) / 4);
    auto same = [&](uint32_t offset, size_t bytes) {
        if (std::memcmp(&serial.work[offset], &parallel.work[offset], bytes) != 0) std::abort();
    };
    for (const auto& plane : kPlanes) same(plane.first, n * plane.second);
    for (int k = 0; k < 10; ++k) same(TAVRIN_DETECT_PLANES_OFFSET + k * TAVRIN_DETECT_PLANE_LIMIT, n);
    same(TAVRIN_DETECT_LABEL_OFFSET, 4097 * sizeof(PictLabel));
    same(TAVRIN_DETECT_CORR_OFFSET, TAVRIN_DETECT_CORR_LIMIT);
    same(TAVRIN_DETECT_WORK_SIZE, kGuard);
    for (size_t i = TAVRIN_DETECT_WORK_SIZE; i < serial.work.size(); ++i)
        if (serial.work[i] != 0x3C) std::abort();
    // A finished detection reports the mask's pixel count.
    if (result >= 0) {
        long sum = 0;
        for (size_t i = 0; i < n; ++i) sum += serial.work[TAVRIN_DETECT_PICT_OFFSET + i];
        if (sum != serial.param.iPictPixelNum) std::abort();
    }
    same(TAVRIN_DETECT_ZEROROW_OFFSET, TAVRIN_DETECT_ZEROROW_LIMIT);
    // Now and then the whole buffers: a write outside the regions above
    // would show here (and they must stay equal for the inputs to come).
    static unsigned calls = 0;
    if (++calls % 256 == 0) same(0, serial.work.size());
    return 0;
}
