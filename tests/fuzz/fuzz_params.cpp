// The request and simulation checks on arbitrary records. The records must
// come back unchanged; a refused request names, in a message that fits the
// caller's 47 bytes, a field that lies outside row 0 and row 2 of the limit
// table; a stage check counts at most its fields; after
// Tavrin_InitSimParams every check passes.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "TavrinImage.h"
#include "TavrinParams.h"

namespace {

template <class T>
void take(T& record, const uint8_t*& data, size_t& size) {
    const size_t n = std::min(size, sizeof record);
    std::memcpy(&record, data, n);
    data += n, size -= n;
}

void expect(bool ok) {
    if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    StructInputParams request{};
    simCIC cic{};
    simResEst res{};
    simCompEst comp{};
    simAACS aacs{};
    simSkewCropEst skew{};
    take(request, data, size), take(cic, data, size), take(res, data, size);
    take(comp, data, size), take(aacs, data, size), take(skew, data, size);

    const StructInputParams before = request;
    char message[47 + 16];
    std::memset(message, 0x7F, sizeof message);
    const int status = Tavrin_CheckInputParams(&request, message);
    expect(std::memcmp(&before, &request, sizeof request) == 0);
    if (status == 0) {
        expect(message[0] == 0x7F);
    } else {
        expect(status == -1);
        const size_t length = strnlen(message, sizeof message);
        expect(length <= 46 && std::all_of(message + 47, message + sizeof message, [](char c) { return c == 0x7F; }));
        // "Tavrin_Execute NAME illegal[VALUE]\n": the value must be outside
        // the limits of some byte field of that value.
        int value = -1;
        expect(std::sscanf(message, "Tavrin_Execute %*s illegal[%d]", &value) == 1 && value >= 0 && value < 256);
        const uint8_t* row0 = reinterpret_cast<const uint8_t*>(&strInputParams_Limit[0]);
        const uint8_t* row2 = reinterpret_cast<const uint8_t*>(&strInputParams_Limit[2]);
        const uint8_t* bytes = reinterpret_cast<const uint8_t*>(&request);
        bool found = false;
        for (size_t i = 0; i < sizeof request; ++i) {
            const int v = i == 294 ? bytes[i] & 15 : bytes[i];
            found |= v == value && (v < row0[i] || v > row2[i]);
        }
        expect(found);
    }
    (void)TavrinApp_GetCaseNumber(request);

    SimParams sim{&cic, &res, &comp, &aacs, &skew};
    const simCIC cicBefore = cic;
    const simSkewCropEst skewBefore = skew;
    const int stages[] = {checkSimParams_CIC(&cic), checkSimParams_ResEst(&res), checkSimParams_CompEst(&comp),
                          checkSimParams_AACS(&aacs), checkSimParams_SkewCrop(&skew)};
    const int fields[] = {11, 7, 2, 1, 5};
    int first = 0;
    for (int k = 0; k < 5; ++k) {
        expect(stages[k] <= 0 && stages[k] >= -fields[k]);
        if (first == 0) first = stages[k];
    }
    expect(Tavrin_CheckSimParams(&sim) == first);
    expect(std::memcmp(&cic, &cicBefore, sizeof cic) == 0 && std::memcmp(&skew, &skewBefore, sizeof skew) == 0);
    expect(Tavrin_InitSimParams(&sim) == 0 && Tavrin_CheckSimParams(&sim) == 0);
    return 0;
}
