// Helpers shared by the labelling, box, table-splitting and driver tests.
#ifndef TAVRIN_TESTS_DETECT_REGIONS_SUPPORT_H
#define TAVRIN_TESTS_DETECT_REGIONS_SUPPORT_H

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <TavrinDetect.h>

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

// A fresh directory below TAVRIN_TEST_TMP (or /tmp) for dump files.
inline std::string scratchDir(const std::string& name) {
    const char* base = std::getenv("TAVRIN_TEST_TMP");
    std::string dir = std::string(base && *base ? base : "/tmp") + "/regions_" + name + "_" +
                      std::to_string(getpid());
    mkdir(dir.c_str(), 0777);
    for (const char* f : {"init_table.txt", "corr_table.txt", "label_table.txt", "pict_count.csv"})
        unlink((dir + "/" + f).c_str());
    return dir;
}

inline bool fileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace regions_test

#endif
