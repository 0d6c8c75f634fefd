// Helpers shared by the labelling, box, table-splitting and driver tests.
#ifndef TAVRIN_TESTS_DETECT_REGIONS_SUPPORT_H
#define TAVRIN_TESTS_DETECT_REGIONS_SUPPORT_H

#include <unistd.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <TavrinDetect.h>

#include "test_files.h"

namespace regions_test {

// A gray plane with its own pixel storage.
struct Plane {
    std::vector<uint8_t> px;
    ImgTavrin img{};
    Plane(int w, int h, uint8_t fill = 0) : px(static_cast<size_t>(w) * h, fill) {
        img.pucImage = px.data();
        img.usWidth = static_cast<uint16_t>(w);
        img.usHeight = static_cast<uint16_t>(h);
    }
    uint8_t& at(int x, int y) { return px[static_cast<size_t>(y) * img.usWidth + x]; }
    void set(std::initializer_list<std::pair<int, int>> pts, uint8_t v = 1) {
        for (auto [x, y] : pts) at(x, y) = v;
    }
    void fillRect(int x0, int y0, int x1, int y1, uint8_t v = 1) {
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) at(x, y) = v;
    }
};

// A zeroed work buffer of the detector's smallest size.
inline std::vector<uint8_t> workBuffer() {
    return std::vector<uint8_t>(TAVRIN_DETECT_WORK_SIZE, 0);
}

// A directory of this test and process for dump files, without the dumps a
// reused pid may have left there: tests check that some are not written.
inline std::string scratchDir(const std::string& name) {
    const std::string dir = tavrin_test::scratchDir("regions_" + name);
    for (const char* f : {"init_table.txt", "corr_table.txt", "label_table.txt", "pict_count.csv"})
        unlink((dir + "/" + f).c_str());
    return dir;
}

// A text dump as one string.
inline std::string readText(const std::string& path) {
    const std::vector<uint8_t> bytes = tavrin_test::readFile(path);
    return std::string(bytes.begin(), bytes.end());
}

// A table rectangle from its four values sRect0..sRect3 (half-resolution
// pixels), the caller's bytes zeroed.
inline ST_TABLERECT tableRect(int s0, int s1, int s2, int s3) {
    ST_TABLERECT r{};
    r.sRect0 = static_cast<int16_t>(s0);
    r.sRect1 = static_cast<int16_t>(s1);
    r.sRect2 = static_cast<int16_t>(s2);
    r.sRect3 = static_cast<int16_t>(s3);
    return r;
}

}  // namespace regions_test

#endif
