// File helpers shared by the test programs: a scratch directory per test and
// process, whole-file reads, existence checks.
#ifndef TAVRIN_TESTS_TEST_FILES_H
#define TAVRIN_TESTS_TEST_FILES_H

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tavrin_test {

// TAVRIN_TEST_TMP/<prefix>_<test name>_<pid> (TAVRIN_TEST_TMP falls back to
// /tmp), created if missing. The pid keeps test programs running in parallel
// apart; the test name keeps the tests of one program apart. Calls with the
// same prefix inside one test return the same directory.
inline std::string scratchDir(const std::string& prefix) {
    const char* base = std::getenv("TAVRIN_TEST_TMP");
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string test = info ? info->name() : "global";
    for (char& c : test)
        if (c == '/') c = '_';  // parameterised tests are named "Name/Param"
    std::string dir = std::string(base && *base ? base : "/tmp") + "/" + prefix + "_" + test +
                      "_" + std::to_string(getpid());
    mkdir(dir.c_str(), 0777);
    return dir;
}

// The whole file; empty when it cannot be opened.
inline std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                                std::istreambuf_iterator<char>());
}

// True for any existing path, directories included.
inline bool fileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

// The debug API takes paths and names as char*; it does not write to them.
inline char* mut(std::string& s) { return &s[0]; }

}  // namespace tavrin_test

#endif
