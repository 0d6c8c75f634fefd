// Layout dump: fourteen signed fields per entry, constant zeros in columns
// 7 and 13, and no file without both arrays.
#include <gtest/gtest.h>

#include <TavrinDebug.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "test_files.h"

namespace {

using tavrin_test::fileExists;
using tavrin_test::mut;

std::string scratchDir() { return tavrin_test::scratchDir("layout_dump"); }

std::vector<std::string> readLines(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> split(const std::string& line) {
    std::vector<std::string> fields;
    std::stringstream ss(line);
    for (std::string f; std::getline(ss, f, ',');) fields.push_back(f);
    return fields;
}

ST_LAYOUTRECT rect(int16_t a, int16_t b, int16_t c, int16_t d, int32_t e, int8_t f) {
    ST_LAYOUTRECT r{};
    r.sItem0 = a;
    r.sItem1 = b;
    r.sItem2 = c;
    r.sItem3 = d;
    r.iItem4 = e;
    r.cItem5 = f;
    return r;
}

TEST(LayoutDump, FourteenSignedFieldsPerEntry) {
    std::string dir = scratchDir(), name = "layout.csv";
    ST_LAYOUTRECT a[2] = {rect(1, 2, 3, 4, 5, 99), rect(-1, -32768, 32767, 0, -70000, 7)};
    ST_LAYOUTRECT b[2] = {rect(10, 20, 30, 40, 50, static_cast<int8_t>(0xFF)),
                          rect(-10, 0, 0, -4, 2147483647, 127)};
    ST_LAYOUT layout{2, a, b};
    EXPECT_EQ(Tavrin_Debug_LayoutData(mut(dir), mut(name), &layout), 0);

    const auto lines = readLines(dir + "/layout.csv");
    ASSERT_EQ(lines.size(), 2u);
    // A's cItem5 is not part of the line; B's is the last field.
    EXPECT_EQ(lines[0], "0,1,2,3,4,5,0,10,20,30,40,50,0,-1");
    EXPECT_EQ(lines[1], "1,-1,-32768,32767,0,-70000,0,-10,0,0,-4,2147483647,0,127");
    for (const auto& line : lines) {
        const auto fields = split(line);
        ASSERT_EQ(fields.size(), 14u);
        EXPECT_EQ(fields[6], "0");
        EXPECT_EQ(fields[12], "0");
    }
}

TEST(LayoutDump, NoEntriesGiveAnEmptyFile) {
    std::string dir = scratchDir();
    ST_LAYOUTRECT a[1] = {}, b[1] = {};
    for (int32_t n : {0, -3}) {
        std::string name = "empty" + std::to_string(n) + ".csv";
        ST_LAYOUT layout{n, a, b};
        EXPECT_EQ(Tavrin_Debug_LayoutData(mut(dir), mut(name), &layout), 0);
        EXPECT_TRUE(fileExists(dir + "/" + name));
        EXPECT_TRUE(readLines(dir + "/" + name).empty());
    }
}

TEST(LayoutDump, MissingArrayCreatesNoFile) {
    std::string dir = scratchDir(), name = "none.csv";
    ST_LAYOUTRECT a[1] = {};
    ST_LAYOUT onlyA{1, a, nullptr}, onlyB{1, nullptr, a};
    EXPECT_EQ(Tavrin_Debug_LayoutData(mut(dir), mut(name), &onlyA), 0);
    EXPECT_EQ(Tavrin_Debug_LayoutData(mut(dir), mut(name), &onlyB), 0);
    EXPECT_EQ(Tavrin_Debug_LayoutData(mut(dir), mut(name), nullptr), 0);
    EXPECT_FALSE(fileExists(dir + "/" + name));
    std::string unopenable = "missing/none.csv";
    ST_LAYOUT both{1, a, a};
    EXPECT_EQ(Tavrin_Debug_LayoutData(mut(dir), mut(unopenable), &both), 0);
}

}  // namespace
