// Detection calls with distinct work buffers run at the same time from
// several threads, each with its filters' own parallel bands, and every one
// gives the bytes of a serial call made alone. Under ThreadSanitizer
// (scripts/check.sh) this is also the proof that the calls share nothing.
#include <gtest/gtest.h>

#include <TavrinDetect.h>

#include <cstring>
#include <thread>
#include <vector>

namespace {

// A 480 x 400 page: a noisy photograph whose place depends on `seed`, dark
// strokes marked as text in the attribute map, paper elsewhere.
struct TestPage {
    std::vector<uint8_t> px = std::vector<uint8_t>(480 * 400, 235), attr = std::vector<uint8_t>(240 * 200, 0);
    structFGInfos fg{};
    explicit TestPage(uint32_t seed) {
        uint32_t state = seed * 2654435761u + 1;
        const int x0 = 40 + int(seed % 5) * 40, y0 = 40 + int(seed % 3) * 50;
        for (int y = y0; y < y0 + 200; ++y)
            for (int x = x0; x < x0 + 200; ++x) {
                state = state * 1103515245u + 12345u;
                px[y * 480 + x] = uint8_t(60 + (state >> 24) % 140);
            }
        for (int y = 330; y < 350; ++y)
            for (int x = 20; x < 460; x += 12) {
                px[y * 480 + x] = px[y * 480 + x + 1] = 15;
                attr[(y / 2) * 240 + x / 2] = 0x80;
            }
        fg.stPageImg = ImgTavrin{px.data(), 480, 400, 30000, 30000, 0};
        fg.stAttrImg = ImgTavrin{attr.data(), 240, 200, 15000, 15000, 0};
    }
};

struct Outcome {
    int result = 0, pixels = 0;
    std::vector<uint8_t> mask;
    bool operator==(const Outcome& o) const { return result == o.result && pixels == o.pixels && mask == o.mask; }
};

Outcome detect(TestPage& page, std::vector<uint8_t>& work, int parallel) {
    ST_PARAM_DETECT_PICT param{2.0, 5.0, 8, 8, 100, 0.2, {}, 0.3, 0.05, -1};
    char noDump[] = "";
    Outcome o;
    o.result = runDetectPict(&page.fg, work.data(), 1, 8, &param, parallel, noDump);
    o.pixels = param.iPictPixelNum;
    const uint8_t* mask = work.data() + TAVRIN_DETECT_PICT_OFFSET;
    o.mask.assign(mask, mask + 120 * 100);
    return o;
}

TEST(DetectionThreads, ConcurrentCallsOnDistinctBuffersMatchSerialCalls) {
    constexpr int kThreads = 4, kRounds = 3;
    std::vector<TestPage> pages;
    pages.reserve(kThreads);  // the records point into each page's pixels
    std::vector<Outcome> expected;
    std::vector<uint8_t> serialWork(TAVRIN_DETECT_WORK_SIZE);
    for (int t = 0; t < kThreads; ++t) {
        pages.emplace_back(t);
        expected.push_back(detect(pages.back(), serialWork, 0));
        ASSERT_EQ(expected.back().result, 1) << "page " << t << " must hold a picture";
    }
    std::vector<std::vector<Outcome>> got(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            std::vector<uint8_t> work(TAVRIN_DETECT_WORK_SIZE);
            for (int round = 0; round < kRounds; ++round) got[t].push_back(detect(pages[t], work, round % 2));
        });
    for (std::thread& th : threads) th.join();
    for (int t = 0; t < kThreads; ++t)
        for (int round = 0; round < kRounds; ++round)
            EXPECT_TRUE(got[t][round] == expected[t]) << "thread " << t << ", round " << round;
}

}  // namespace
