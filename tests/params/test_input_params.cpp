// Request record check and its limit table, addressed by byte offset so that
// the tests do not depend on the record's member declarations.
#include <TavrinParams.h>
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr size_t kRecordSize = 296;

struct FieldLimits {
    const char* name;
    size_t offset;
    int minimum, byDefault, maximum;
};

// Checked byte fields in check order.
const FieldLimits kChecked[] = {
    {"ucModelID", 0, 0, 15, 21},        {"ucModeCicFunc", 1, 0, 1, 1},
    {"ucModeIdxColFunc", 2, 0, 0, 1},   {"ucModeEditFunc", 3, 0, 0, 1},
    {"ucModeResEstFunc", 4, 0, 0, 1},   {"ucModeSkewEstFunc", 7, 0, 0, 1},
    {"ucModeCropEstFunc", 8, 0, 0, 1},  {"ucModeAdvAcsFunc", 6, 0, 0, 1},
    {"ucCicModeSwitch", 9, 0, 0, 1},    {"ucModeIq", 10, 0, 0, 6},
    {"ucMview", 11, 1, 1, 7},           {"ucResEstCompMode", 14, 0, 1, 3},
    {"ucFreqInfo", 12, 0, 0, 2},        {"ucAeLevel", 13, 12, 32, 36},
    {"ucFeeder", 15, 0, 0, 4},          {"ucFeedDirection", 16, 0, 0, 1},
    {"ucBacking", 17, 0, 0, 1},         {"ucRotated", 18, 0, 0, 3},
    {"UseManyCore", 294, 0, 0, 2},
};

StructInputParams defaults() {
    StructInputParams p;
    std::memcpy(&p, &strInputParams_Limit[1], sizeof p);
    return p;
}

uint8_t* bytesOf(StructInputParams& p) { return reinterpret_cast<uint8_t*>(&p); }

// Runs the check with a 64-byte message buffer pre-filled with 'Z'.
struct CheckResult {
    int status;
    std::string message;
    std::string buffer;
};
CheckResult check(StructInputParams p) {
    char buffer[64];
    std::memset(buffer, 'Z', sizeof buffer);
    const int status = Tavrin_CheckInputParams(&p, buffer);
    std::string raw(buffer, sizeof buffer);
    return {status, raw.substr(0, raw.find('\0')), raw};
}

std::string expectedMessage(const char* name, int value) {
    return std::string("Tavrin_Execute ") + name + " illegal[" + std::to_string(value) + "]\n";
}

TEST(InputParamsLimitTable, BytesAreTheThreeRowsLittleEndian) {
    static_assert(sizeof(strInputParams_Limit) == 3 * kRecordSize, "three rows");
    std::vector<uint8_t> expected(3 * kRecordSize, 0);
    auto put8 = [&](int row, size_t offset, int value) {
        expected[row * kRecordSize + offset] = static_cast<uint8_t>(value);
    };
    auto put16 = [&](int row, size_t offset, uint8_t low, uint8_t high) {
        expected[row * kRecordSize + offset] = low;
        expected[row * kRecordSize + offset + 1] = high;
    };
    for (const FieldLimits& f : kChecked) {
        put8(0, f.offset, f.minimum);
        put8(1, f.offset, f.byDefault);
        put8(2, f.offset, f.maximum);
    }
    put8(2, 5, 1);  // the unchecked further switch: 0, 0, 1
    // angle -4500 / 0 / 4500 (0xEE6C, 0x1194)
    put16(0, 20, 0x6C, 0xEE);
    put16(2, 20, 0x94, 0x11);
    // 10000 * cos: 7071 / 10000 / 10000 (0x1B9F, 0x2710)
    put16(0, 22, 0x9F, 0x1B);
    put16(1, 22, 0x10, 0x27);
    put16(2, 22, 0x10, 0x27);
    // 10000 * sin: -7071 / 0 / 7071 (0xE461, 0x1B9F)
    put16(0, 24, 0x61, 0xE4);
    put16(2, 24, 0x9F, 0x1B);
    // extents: maxima 9960, 9960, 4960, 4960 (0x26E8, 0x1360)
    put16(2, 26, 0xE8, 0x26);
    put16(2, 28, 0xE8, 0x26);
    put16(2, 30, 0x60, 0x13);
    put16(2, 32, 0x60, 0x13);

    const auto* actual = reinterpret_cast<const uint8_t*>(strInputParams_Limit);
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(expected[i], actual[i]) << "row " << i / kRecordSize << " offset "
                                          << i % kRecordSize;
    }
}

TEST(CheckInputParams, DefaultRowPassesAndLeavesTheMessageAlone) {
    const CheckResult r = check(defaults());
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(std::string(64, 'Z'), r.buffer);
}

TEST(CheckInputParams, EachFieldAcceptsItsLimitsAndRejectsBeyond) {
    for (const FieldLimits& f : kChecked) {
        SCOPED_TRACE(f.name);
        StructInputParams p = defaults();
        bytesOf(p)[f.offset] = static_cast<uint8_t>(f.minimum);
        EXPECT_EQ(0, check(p).status);
        bytesOf(p)[f.offset] = static_cast<uint8_t>(f.maximum);
        EXPECT_EQ(0, check(p).status);
        bytesOf(p)[f.offset] = static_cast<uint8_t>(f.maximum + 1);
        const CheckResult above = check(p);
        EXPECT_EQ(-1, above.status);
        EXPECT_EQ(expectedMessage(f.name, f.maximum + 1), above.message);
    }
}

TEST(CheckInputParams, HandCheckedMessages) {
    StructInputParams p = defaults();
    p.ucModelID = 22;
    EXPECT_EQ("Tavrin_Execute ucModelID illegal[22]\n", check(p).message);

    p = defaults();
    p.ucAeLevel = 11;
    const CheckResult r = check(p);
    EXPECT_EQ(-1, r.status);
    EXPECT_EQ("Tavrin_Execute ucAeLevel illegal[11]\n", r.message);
}

TEST(CheckInputParams, ZeroIsAlsoAcceptedForMviewAndAeLevelOnly) {
    StructInputParams p = defaults();
    p.ucMview = 0;
    p.ucAeLevel = 0;
    EXPECT_EQ(0, check(p).status);
    p.ucAeLevel = 1;
    EXPECT_EQ("Tavrin_Execute ucAeLevel illegal[1]\n", check(p).message);
}

TEST(CheckInputParams, LongestMessageFitsFortySevenBytes) {
    StructInputParams p = defaults();
    p.ucModeSkewEstFunc = 255;
    const CheckResult r = check(p);
    EXPECT_EQ("Tavrin_Execute ucModeSkewEstFunc illegal[255]\n", r.message);
    EXPECT_EQ(46u, r.message.size());
    // Nothing after the terminating zero is written.
    EXPECT_EQ(std::string(64 - 47, 'Z'), r.buffer.substr(47));
}

TEST(CheckInputParams, FirstFailingFieldInCheckOrderIsReported) {
    StructInputParams p = defaults();
    p.ucModeAdvAcsFunc = 2;
    p.ucModeSkewEstFunc = 2;
    EXPECT_EQ("Tavrin_Execute ucModeSkewEstFunc illegal[2]\n", check(p).message);

    // Make every checked field illegal, then repair them one by one in the
    // order they are reported: that order is the check order.
    p = defaults();
    for (const FieldLimits& f : kChecked) bytesOf(p)[f.offset] = 200;
    bytesOf(p)[294] = 0x0F;
    std::vector<std::string> reported;
    for (size_t guard = 0; guard < std::size(kChecked); ++guard) {
        const CheckResult r = check(p);
        if (r.status == 0) break;
        for (const FieldLimits& f : kChecked) {
            if (r.message.find(std::string(" ") + f.name + " ") != std::string::npos) {
                reported.push_back(f.name);
                bytesOf(p)[f.offset] = static_cast<uint8_t>(f.byDefault);
            }
        }
    }
    EXPECT_EQ(0, check(p).status);
    std::vector<std::string> expected;
    for (const FieldLimits& f : kChecked) expected.push_back(f.name);
    EXPECT_EQ(expected, reported);
}

TEST(CheckInputParams, UseManyCoreIsTheLowNibble) {
    StructInputParams p = defaults();
    bytesOf(p)[294] = 0x12;
    EXPECT_EQ(0, check(p).status);
    bytesOf(p)[294] = 0xF0;
    EXPECT_EQ(0, check(p).status);
    bytesOf(p)[294] = 0x03;
    EXPECT_EQ("Tavrin_Execute UseManyCore illegal[3]\n", check(p).message);
}

TEST(CheckInputParams, UncheckedBytesAreIgnored) {
    StructInputParams p = defaults();
    bytesOf(p)[5] = 0xFF;
    for (size_t i = 19; i < 294; ++i) bytesOf(p)[i] = 0xFF;  // alignment, angle..extents, reserved
    bytesOf(p)[295] = 0xFF;
    EXPECT_EQ(0, check(p).status);
}

TEST(CheckInputParams, RecordIsNotChangedOnFailure) {
    StructInputParams p = defaults();
    p.ucFeeder = 9;
    p.ucRotated = 9;
    StructInputParams before = p;
    char message[47];
    EXPECT_EQ(-1, Tavrin_CheckInputParams(&p, message));
    EXPECT_EQ(0, std::memcmp(&before, &p, sizeof p));
    EXPECT_STREQ("Tavrin_Execute ucFeeder illegal[9]\n", message);
}

TEST(CheckInputParams, NullArgumentsDoNotCrash) {
    StructInputParams p = defaults();
    p.ucModelID = 99;
    EXPECT_EQ(-1, Tavrin_CheckInputParams(&p, nullptr));
    char message[47] = "untouched";
    EXPECT_EQ(-1, Tavrin_CheckInputParams(nullptr, message));
    EXPECT_STREQ("untouched", message);
}

}  // namespace
