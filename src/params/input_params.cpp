// Request record limits and the request check.
#include <TavrinParams.h>

#include <cstdio>

namespace {

// Builds one row of the limit table: column 0 the minimum, 1 the default,
// 2 the maximum of every field. Bytes without a limit stay 0.
constexpr StructInputParams limitRow(int column) {
    auto pick = [column](int minimum, int byDefault, int maximum) {
        return column == 0 ? minimum : column == 1 ? byDefault : maximum;
    };
    StructInputParams row{};
    row.ucModelID = pick(0, 15, 21);
    row.ucModeCicFunc = pick(0, 1, 1);
    row.ucModeIdxColFunc = pick(0, 0, 1);
    row.ucModeEditFunc = pick(0, 0, 1);
    row.ucModeResEstFunc = pick(0, 0, 1);
    row.ucModeFurtherFunc = pick(0, 0, 1);
    row.ucModeAdvAcsFunc = pick(0, 0, 1);
    row.ucModeSkewEstFunc = pick(0, 0, 1);
    row.ucModeCropEstFunc = pick(0, 0, 1);
    row.ucCicModeSwitch = pick(0, 0, 1);
    row.ucModeIq = pick(0, 0, 6);
    row.ucMview = pick(1, 1, 7);
    row.ucFreqInfo = pick(0, 0, 2);
    row.ucAeLevel = pick(12, 32, 36);
    row.ucResEstCompMode = pick(0, 1, 3);
    row.ucFeeder = pick(0, 0, 4);
    row.ucFeedDirection = pick(0, 0, 1);
    row.ucBacking = pick(0, 0, 1);
    row.ucRotated = pick(0, 0, 3);
    row.sAngle = pick(-4500, 0, 4500);      // 1/100 degree
    row.usCosAngle = pick(7071, 10000, 10000);  // 10000 * cos(45 deg) .. 10000
    row.sSinAngle = pick(-7071, 0, 7071);
    row.usExtent1 = pick(0, 0, 9960);
    row.usExtent2 = pick(0, 0, 9960);
    row.usExtent3 = pick(0, 0, 4960);
    row.usExtent4 = pick(0, 0, 4960);
    row.UseManyCore = pick(0, 0, 2);
    return row;
}

struct CheckedField {
    uint8_t StructInputParams::*member;
    const char* name;
    bool zeroAlsoAccepted;  // 0 means "not given" for these fields
};

// Check order of the byte fields; UseManyCore (a bit-field) follows them.
constexpr CheckedField kCheckedFields[] = {
    {&StructInputParams::ucModelID, "ucModelID", false},
    {&StructInputParams::ucModeCicFunc, "ucModeCicFunc", false},
    {&StructInputParams::ucModeIdxColFunc, "ucModeIdxColFunc", false},
    {&StructInputParams::ucModeEditFunc, "ucModeEditFunc", false},
    {&StructInputParams::ucModeResEstFunc, "ucModeResEstFunc", false},
    {&StructInputParams::ucModeSkewEstFunc, "ucModeSkewEstFunc", false},
    {&StructInputParams::ucModeCropEstFunc, "ucModeCropEstFunc", false},
    {&StructInputParams::ucModeAdvAcsFunc, "ucModeAdvAcsFunc", false},
    {&StructInputParams::ucCicModeSwitch, "ucCicModeSwitch", false},
    {&StructInputParams::ucModeIq, "ucModeIq", false},
    {&StructInputParams::ucMview, "ucMview", true},
    {&StructInputParams::ucResEstCompMode, "ucResEstCompMode", false},
    {&StructInputParams::ucFreqInfo, "ucFreqInfo", false},
    {&StructInputParams::ucAeLevel, "ucAeLevel", true},
    {&StructInputParams::ucFeeder, "ucFeeder", false},
    {&StructInputParams::ucFeedDirection, "ucFeedDirection", false},
    {&StructInputParams::ucBacking, "ucBacking", false},
    {&StructInputParams::ucRotated, "ucRotated", false},
};

// The longest message ("Tavrin_Execute ucModeSkewEstFunc illegal[255]\n",
// 46 characters) and its terminating zero.
constexpr size_t kMessageCapacity = 47;

[[noreturn]] void rejectField(char* message, const char* name, int value) {
    if (message != nullptr) {
        std::snprintf(message, kMessageCapacity, "Tavrin_Execute %s illegal[%d]\n", name, value);
    }
    throw -1;
}

}  // namespace

const StructInputParams strInputParams_Limit[3] = {limitRow(0), limitRow(1), limitRow(2)};

int Tavrin_CheckInputParams(StructInputParams* params, char* message) {
    // A missing record cannot name a field: it fails without a message.
    if (params == nullptr) return -1;
    const StructInputParams& minimum = strInputParams_Limit[0];
    const StructInputParams& maximum = strInputParams_Limit[2];
    try {
        for (const CheckedField& field : kCheckedFields) {
            const uint8_t value = params->*field.member;
            if (field.zeroAlsoAccepted && value == 0) continue;
            if (value < minimum.*field.member || value > maximum.*field.member) {
                rejectField(message, field.name, value);
            }
        }
        const uint8_t cores = params->UseManyCore;  // low 4 bits only
        if (cores < minimum.UseManyCore || cores > maximum.UseManyCore) {
            rejectField(message, "UseManyCore", cores);
        }
    } catch (int status) {
        return status;
    }
    return 0;
}
