// The labelling writes nothing in the work buffer beyond its three areas:
// the equivalence table T[0..N), the provisional plane [0..N) and the
// correlation table. Every other byte keeps the caller's pattern, in
// particular the entry T[N] just past the table.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include <TavrinDetect.h>

namespace {

constexpr uint8_t kPattern = 0xA5;

struct Case {
    int w, h;
    int every;  // a pixel is set when its index is a multiple of this (0: none)
};

class WorkContract : public ::testing::TestWithParam<Case> {};

TEST_P(WorkContract, LabellingLeavesEveryOtherByteAlone) {
    const Case c = GetParam();
    const size_t n = static_cast<size_t>(c.w) * c.h;
    std::vector<uint8_t> mask(n, 0), labels(n), work(TAVRIN_DETECT_WORK_SIZE, kPattern);
    for (size_t i = 0; c.every > 0 && i < n; i += c.every) mask[i] = 1;
    ImgTavrin in{mask.data(), uint16_t(c.w), uint16_t(c.h), 7500, 7500, 0};
    ImgTavrin out{labels.data(), uint16_t(c.w), uint16_t(c.h), 7500, 7500, 0};
    std::vector<PictLabel> table(4097);
    char noDump[] = "";
    ASSERT_GE(entLabeling(table.data(), &in, &out, work.data(), noDump), 0);

    // Areas it may write; the correlation table has at most N + 1 entries.
    auto inside = [&](size_t i) {
        return (i >= TAVRIN_DETECT_EQUIV_OFFSET && i < TAVRIN_DETECT_EQUIV_OFFSET + 4 * n) ||
               (i >= TAVRIN_DETECT_PROV_OFFSET && i < TAVRIN_DETECT_PROV_OFFSET + 2 * n) ||
               (i >= TAVRIN_DETECT_CORR_OFFSET && i < TAVRIN_DETECT_CORR_OFFSET + 4 * (n + 1));
    };
    size_t changed = 0;
    for (size_t i = 0; i < work.size(); ++i) changed += !inside(i) && work[i] != kPattern;
    EXPECT_EQ(changed, 0u);
}

INSTANTIATE_TEST_SUITE_P(Masks, WorkContract,
                         ::testing::Values(Case{2, 1, 1}, Case{1, 2, 1}, Case{3, 2, 2},
                                           Case{7, 5, 0}, Case{7, 5, 1}, Case{9, 4, 2},
                                           Case{620, 877, 3}));

}  // namespace
