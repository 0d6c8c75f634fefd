// Fixtures shared by the test programs: scratch directories and whole-file
// reads, buffers with a guard region behind them, planes that own their
// pixels, deterministic noise, and the OpenMP team size of a scope.
#ifndef TAVRIN_TESTS_SUPPORT_H
#define TAVRIN_TESTS_SUPPORT_H

#include <TavrinCommon.h>
#include <gtest/gtest.h>
#include <omp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tt {

using Bytes = std::vector<uint8_t>;
// Several results compared at once: EXPECT_EQ((Ints{f(), g()}), (Ints{1, 2})).
// A braced list runs its calls left to right.
using Ints = std::vector<long>;

// TAVRIN_TEST_TMP/<prefix>_<test>_<pid>, created if missing: test programs
// run in parallel, and tests check that some files are not written.
inline std::string scratchDir(const std::string& prefix) {
    const char* base = std::getenv("TAVRIN_TEST_TMP");
    std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    std::replace(test.begin(), test.end(), '/', '_');  // "Name/Param"
    const std::string dir = std::string(base && *base ? base : "/tmp") + "/" + prefix + "_" + test + "_" + std::to_string(getpid());
    mkdir(dir.c_str(), 0777);
    return dir;
}

inline Bytes readFile(const std::string& path) {  // empty when unreadable
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
inline std::string readText(const std::string& path) { const Bytes b = readFile(path); return {b.begin(), b.end()}; }
inline bool fileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }
inline char* mut(std::string& s) { return &s[0]; }  // the C API takes char* it does not write

// `size` bytes of `fill`, then a guard region of kGuardFill bytes.
struct Guarded {
    static constexpr uint8_t kGuardFill = 0xA5;
    Bytes bytes;
    size_t size;
    explicit Guarded(size_t n, uint8_t fill = kGuardFill, size_t guard = 4096) : bytes(n + guard, fill), size(n) {
        std::fill(bytes.begin() + n, bytes.end(), kGuardFill);
    }
    uint8_t* data() { return bytes.data(); }
    bool intact() const { return std::count(bytes.begin() + size, bytes.end(), kGuardFill) == long(bytes.size() - size); }
};

// A one-byte-per-pixel plane that owns its pixels.
struct Plane {
    Bytes px;
    ImgTavrin img{};
    Plane(int w, int h, uint8_t fill = 0) : px(size_t(w) * h, fill) {
        img = ImgTavrin{px.empty() ? nullptr : px.data(), uint16_t(w), uint16_t(h), 0, 0, 0};
    }
    Plane(const Plane& o) : px(o.px), img(o.img) { img.pucImage = px.empty() ? nullptr : px.data(); }
    Plane& operator=(const Plane&) = delete;
    int w() const { return img.usWidth; }
    int h() const { return img.usHeight; }
    uint8_t& at(int x, int y) { return px[size_t(y) * img.usWidth + x]; }
    uint8_t at(int x, int y) const { return px[size_t(y) * img.usWidth + x]; }
    void fill(int x0, int y0, int x1, int y1, uint8_t v = 1) {  // inclusive
        for (int y = y0; y <= y1; ++y) std::fill_n(&at(x0, y), x1 - x0 + 1, v);
    }
};

inline uint32_t hash(uint32_t x) {  // well mixed: noise without a generator object
    x = (x ^ (x >> 16)) * 0x7feb352dU;
    x = (x ^ (x >> 15)) * 0x846ca68bU;
    return x ^ (x >> 16);
}

// Values 0..maxValue; with `percent` > 0 a 0/1 mask with that share of ones.
inline Plane noise(int w, int h, uint32_t seed, int maxValue = 255, int percent = 0) {
    Plane p(w, h);
    for (size_t i = 0; i < p.px.size(); ++i) {
        const uint32_t r = hash(uint32_t(i) * 2654435761U + seed * 40503U + 1);
        p.px[i] = uint8_t(percent > 0 ? r % 100 < uint32_t(percent) : r % (uint32_t(maxValue) + 1));
    }
    return p;
}

struct TeamSize {  // the OpenMP default team size for the scope
    int saved = omp_get_max_threads();
    explicit TeamSize(int n) { omp_set_num_threads(n); }
    ~TeamSize() { omp_set_num_threads(saved); }
};

}  // namespace tt

#endif
