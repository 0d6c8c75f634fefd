// Helpers shared by the smoothing, entropy and morphology tests.
#ifndef TAVRIN_TESTS_DETECT_FILTER_SUPPORT_H
#define TAVRIN_TESTS_DETECT_FILTER_SUPPORT_H

#include <TavrinDetect.h>
#include <omp.h>

#include <cstdint>
#include <random>
#include <vector>

namespace filter_test {

// A one-byte-per-pixel plane with its own storage.
struct Plane {
    std::vector<uint8_t> px;
    ImgTavrin img{};
    Plane(int w, int h, uint8_t fill = 0) : px(static_cast<size_t>(w) * h, fill) {
        img.pucImage = px.empty() ? nullptr : px.data();
        img.usWidth = static_cast<uint16_t>(w);
        img.usHeight = static_cast<uint16_t>(h);
    }
    Plane(const Plane& o) : px(o.px), img(o.img) {
        img.pucImage = px.empty() ? nullptr : px.data();
    }
    Plane& operator=(const Plane&) = delete;
    int w() const { return img.usWidth; }
    int h() const { return img.usHeight; }
    uint8_t& at(int x, int y) { return px[static_cast<size_t>(y) * img.usWidth + x]; }
    uint8_t at(int x, int y) const { return px[static_cast<size_t>(y) * img.usWidth + x]; }
};

// Random bytes; with maxValue 1 a binary mask.
inline Plane randomPlane(int w, int h, unsigned seed, int maxValue = 255) {
    Plane p(w, h);
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> dist(0, maxValue);
    for (auto& v : p.px) v = static_cast<uint8_t>(dist(rng));
    return p;
}

// A mask with roughly `percent` % of its pixels set to 1.
inline Plane randomMask(int w, int h, unsigned seed, int percent) {
    Plane p(w, h);
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> dist(0, 99);
    for (auto& v : p.px) v = dist(rng) < percent ? 1 : 0;
    return p;
}

// Sets the OpenMP default team size for the scope.
class TeamSize {
public:
    explicit TeamSize(int n) : saved_(omp_get_max_threads()) { omp_set_num_threads(n); }
    ~TeamSize() { omp_set_num_threads(saved_); }
    TeamSize(const TeamSize&) = delete;
    TeamSize& operator=(const TeamSize&) = delete;

private:
    int saved_;
};

constexpr int kTeamSizes[] = {1, 2, 3};

}  // namespace filter_test

#endif
