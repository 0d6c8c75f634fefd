// The request record check (fields addressed by byte offset, so the test
// does not lean on the member declarations) and the simulation parameter
// checks, each field at its limits.
#include <cstring>

#include "support.h"

namespace {

using tt::Ints;

// The checked fields in check order; UseManyCore is the low nibble of byte 294.
struct Field { const char* name; size_t offset; int minimum, maximum; };
const Field kChecked[] = {
    {"ucModelID", 0, 0, 21},        {"ucModeCicFunc", 1, 0, 1},     {"ucModeIdxColFunc", 2, 0, 1},
    {"ucModeEditFunc", 3, 0, 1},    {"ucModeResEstFunc", 4, 0, 1},  {"ucModeSkewEstFunc", 7, 0, 1},
    {"ucModeCropEstFunc", 8, 0, 1}, {"ucModeAdvAcsFunc", 6, 0, 1},  {"ucCicModeSwitch", 9, 0, 1},
    {"ucModeIq", 10, 0, 6},         {"ucMview", 11, 1, 7},          {"ucResEstCompMode", 14, 0, 3},
    {"ucFreqInfo", 12, 0, 2},       {"ucAeLevel", 13, 12, 36},      {"ucFeeder", 15, 0, 4},
    {"ucFeedDirection", 16, 0, 1},  {"ucBacking", 17, 0, 1},        {"ucRotated", 18, 0, 3}, {"UseManyCore", 294, 0, 2},
};

struct Request {  // the default row, and the 64-byte message buffer ('Z' before each check)
    StructInputParams p;
    std::string buffer;
    Request() { std::memcpy(&p, &strInputParams_Limit[1], sizeof p); }
    uint8_t& operator[](size_t offset) { return reinterpret_cast<uint8_t*>(&p)[offset]; }
    std::string check() {  // the status, then the message
        buffer.assign(64, 'Z');
        const int status = Tavrin_CheckInputParams(&p, &buffer[0]);
        return std::to_string(status) + " " + buffer.substr(0, buffer.find('\0'));
    }
};
std::string rejected(const std::string& field, int v) { return "-1 Tavrin_Execute " + field + " illegal[" + std::to_string(v) + "]\n"; }

TEST(InputParams, EachFieldAtItsLimitsInCheckOrder) {
    Request r, all;
    EXPECT_TRUE(r.check() == "0 " + std::string(64, 'Z') && r.buffer == std::string(64, 'Z'));  // nothing written
    for (const Field& f : kChecked) {
        Request q;
        q[f.offset] = uint8_t(f.minimum);
        const std::string atMinimum = q.check().substr(0, 1);
        q[f.offset] = uint8_t(f.maximum);
        EXPECT_EQ(atMinimum + q.check().substr(0, 1), "00") << f.name;
        q[f.offset] = uint8_t(f.maximum + 1);
        EXPECT_EQ(q.check(), rejected(f.name, f.maximum + 1));
        all[f.offset] = f.offset == 294 ? 0x0F : 200;  // every field illegal
    }
    for (const Field& f : kChecked) {  // the reported field is repaired each time: the check order
        const StructInputParams before = all.p;
        EXPECT_EQ(all.check(), rejected(f.name, f.offset == 294 ? 15 : 200));
        EXPECT_EQ(std::memcmp(&before, &all.p, sizeof before), 0);  // the check changes nothing
        all[f.offset] = uint8_t(f.minimum);
    }
    EXPECT_EQ(all.check().substr(0, 2), "0 ");
}

TEST(InputParams, SpecialValuesAndTheMessageBuffer) {
    Request r;
    r.p.ucMview = r.p.ucAeLevel = 0;  // 0 means "not given" for two fields; unchecked bytes are ignored
    r[294] = 0xF2;                     // UseManyCore reads the low nibble
    r[5] = r[295] = 0xFF;
    std::fill(&r[19], &r[294], 0xFF);  // angle, extents, reserved
    EXPECT_EQ(r.check().substr(0, 2), "0 ");
    r.p.ucAeLevel = 11;
    EXPECT_EQ(r.check(), "-1 Tavrin_Execute ucAeLevel illegal[11]\n");
    r = Request();  // the longest message and its zero fill 47 bytes; nothing after them is written
    r.p.ucModeSkewEstFunc = 255;
    r.check();
    EXPECT_EQ(r.buffer, std::string("Tavrin_Execute ucModeSkewEstFunc illegal[255]\n") + '\0' + std::string(17, 'Z'));
    char text[47] = "untouched";
    EXPECT_EQ((Ints{Tavrin_CheckInputParams(&r.p, nullptr), Tavrin_CheckInputParams(nullptr, text)}), (Ints{-1, -1}));
    EXPECT_STREQ(text, "untouched");
}

// The five stage records, poisoned and then given their defaults.
struct Stages {
    simCIC cic;
    simResEst resEst;
    simCompEst compEst;
    simAACS aacs;
    simSkewCropEst skewCrop;
    SimParams params{&cic, &resEst, &compEst, &aacs, &skewCrop};
    Stages(const Stages&) = delete;  // params points into the object
    Stages() {
        std::memset(static_cast<void*>(this), 0xAA, offsetof(Stages, params));
        EXPECT_EQ(Tavrin_InitSimParams(&params), 0);
    }
    int cic2(uint8_t simCIC::*a, uint8_t simCIC::*b) {  // two fields illegal
        cic.*a = cic.*b = 9;
        return checkSimParams_CIC(&cic);
    }
};

TEST(SimParams, DefaultsLimitsAndTheFirstFailingStage) {
    Stages s, t;
    EXPECT_EQ((Ints{s.skewCrop.usField1, s.skewCrop.usField2, s.skewCrop.ucField3, Tavrin_CheckSimParams(&s.params)}),
              (Ints{300, 20, 10, 0}));
    // CIC: three groups; a later one is only looked at when the earlier are clean.
    EXPECT_EQ((Ints{Stages().cic2(&simCIC::ucField2, &simCIC::ucField5), Stages().cic2(&simCIC::ucField2, &simCIC::ucField9),
                    Stages().cic2(&simCIC::ucField9, &simCIC::ucField11), Stages().cic2(&simCIC::ucField9, &simCIC::ucField10),
                    Stages().cic2(&simCIC::ucField11, &simCIC::ucField11)}), (Ints{-2, -1, -1, -2, -1}));
    std::memcpy(&s.cic, &strSimCICParams_Limit[2], sizeof s.cic);  // the maxima pass
    s.resEst.ucField1 = 4;
    s.resEst.ucField7 = 3;
    s.compEst = {2, 4};
    s.aacs = {5};
    EXPECT_EQ((Ints{checkSimParams_CIC(&s.cic), checkSimParams_ResEst(&s.resEst), checkSimParams_CompEst(&s.compEst),
                    checkSimParams_AACS(&s.aacs), Tavrin_CheckSimParams(&s.params)}),
              (Ints{0, -2, -2, -1, -2}));  // the first failing stage's count
    // Inclusive limits; the alignment byte is not checked; signed fields compare signed.
    const std::pair<simSkewCropEst, int> skewCrop[] = {{{4501, 4501, 101, 0, 51, -4}, -5}, {{4500, 4500, 100, 0xFF, 50, 3}, 0},
                                                       {{0, 0, 0, 0, -50, -3}, 0},        {{0, 0, 0, 0, -51, 0}, -1},
                                                       {{0, 0, 0, 0, 0, 4}, -1}};
    for (auto [record, status] : skewCrop) EXPECT_EQ(checkSimParams_SkewCrop(&record), status) << record.sField4;
    t.compEst = {1, 3};
    t.aacs = {4};
    t.skewCrop.usField1 = t.skewCrop.usField2 = 5000;
    EXPECT_EQ(Tavrin_CheckSimParams(&t.params), -2);
    t.params.simCompEst = nullptr;
    EXPECT_EQ((Ints{Tavrin_InitSimParams(&t.params), Tavrin_CheckSimParams(&t.params), Tavrin_InitSimParams(nullptr),
                    Tavrin_CheckSimParams(nullptr), checkSimParams_CIC(nullptr), checkSimParams_SkewCrop(nullptr)}),
              (Ints{0, -1, 0, -1, -1, -1}));  // missing records fail, and are not filled
}

}  // namespace
