// Skew-and-crop result limiting and rescaling. Expected values are worked by
// hand from the limits (5102 x 3508, legal 4205 x 2551), the half-shrinks
// and the rotation with 0.017453 rad per degree.
#include <TavrinImage.h>
#include <gtest/gtest.h>

namespace {

struct SC {
    int w, h, x, y;
};
bool operator==(const SC& a, const SC& b) {
    return a.w == b.w && a.h == b.h && a.x == b.x && a.y == b.y;
}
std::ostream& operator<<(std::ostream& os, const SC& r) {
    return os << r.w << "x" << r.h << " at (" << r.x << ", " << r.y << ")";
}

SC limit300(SC in, int16_t angle, float mx = 0, float my = 0, bool legal = false) {
    uint16_t w = static_cast<uint16_t>(in.w), h = static_cast<uint16_t>(in.h);
    int16_t x = static_cast<int16_t>(in.x), y = static_cast<int16_t>(in.y);
    TavrinApp_LimitSCResult300(w, h, x, y, angle, mx, my, legal);
    return {w, h, x, y};
}

SC limit075(SC in, int16_t angle) {
    int16_t w = static_cast<int16_t>(in.w), h = static_cast<int16_t>(in.h);
    int16_t x = static_cast<int16_t>(in.x), y = static_cast<int16_t>(in.y);
    TavrinApp_LimitSCResult075(w, h, x, y, angle);
    return {w, h, x, y};
}

SC scaleUp(SC in, int16_t angle, float scale, float mx = 0, float my = 0, bool legal = false) {
    uint16_t w = static_cast<uint16_t>(in.w), h = static_cast<uint16_t>(in.h);
    int16_t x = static_cast<int16_t>(in.x), y = static_cast<int16_t>(in.y);
    TavrinApp_ScaleUpSCResult(w, h, x, y, angle, mx, my, scale, legal);
    return {w, h, x, y};
}

SC scaleDown(SC in, int16_t angle) {
    uint16_t w = static_cast<uint16_t>(in.w), h = static_cast<uint16_t>(in.h);
    int16_t x = static_cast<int16_t>(in.x), y = static_cast<int16_t>(in.y);
    TavrinApp_ScaleDownSCResult(w, h, x, y, angle);
    return {w, h, x, y};
}

TEST(LimitSCResult300, WorkedExamples) {
    // dx = (6000 - 5102) / 2 = 449.
    EXPECT_EQ((SC{5102, 3000, 449, 0}), limit300({6000, 3000, 0, 0}, 0));
    // At 90 degrees the width's shrink moves the origin along y:
    // y = trunc(-449 * sin + 0.5) = trunc(-448.5).
    EXPECT_EQ((SC{5102, 3000, 0, -448}), limit300({6000, 3000, 0, 0}, 9000));
}

TEST(LimitSCResult300, LongerSideGetsTheLongLimit) {
    EXPECT_EQ((SC{3000, 5102, 0, 449}), limit300({3000, 6000, 0, 0}, 0));
    // Equal sides count as landscape: dx = 449, dy = (6000 - 3508) / 2 = 1246.
    EXPECT_EQ((SC{5102, 3508, 449, 1246}), limit300({6000, 6000, 0, 0}, 0));
    // Legal size: dx = 397.5, dy = 224.5, each rounded up by the + 0.5.
    EXPECT_EQ((SC{4205, 2551, 398, 225}), limit300({5000, 3000, 0, 0}, 0, 0, 0, true));
}

TEST(LimitSCResult300, OriginIsTruncatedTowardZeroAfterAddingHalf) {
    // Nothing to limit, yet trunc(-5 + 0.5) = -4.
    EXPECT_EQ((SC{1000, 500, -4, 7}), limit300({1000, 500, -5, 7}, 0));
}

TEST(LimitSCResult300, MarginsShrinkBothSides) {
    // trunc(2 * 10.7) = 21: W = 979, dx = 10.5; trunc(2 * 0.4) = 0.
    EXPECT_EQ((SC{979, 800, 11, 0}), limit300({1000, 800, 0, 0}, 0, 10.7f, 0.4f));
    // A margin wider than the side wraps in 16 bits and the limit wins:
    // 100 - 120 = 65516 > 5102, dx = (100 - 5102) / 2 = -2501.
    EXPECT_EQ((SC{5102, 50, -2500, 0}), limit300({100, 50, 0, 0}, 0, 60.0f, 0.0f));
}

TEST(LimitSCResult300, PrecisionOfTheRotation) {
    // 30 degrees with 0.017453: sin = 0.4999924, y = trunc(-11 * sin + 0.5) = -4
    // (the exact pi/180 would give sin = 0.5 and y = -5).
    EXPECT_EQ((SC{5102, 3000, 10, -4}), limit300({5124, 3000, 0, 0}, 3000));
    // cos(0.02 degree) rounds to the float 1 - 2^-24, so 0.5 * cos = 0.5 - 2^-25;
    // adding 0.5 in double keeps it below 1 (in float it would round up to 1).
    EXPECT_EQ((SC{5102, 3000, 0, 0}), limit300({5103, 3000, 0, 0}, 2));
    // 0.5 * cos(-0.21 degree) + 100 rounds to 100.5 in float, so x = 101
    // (summed in double it would stay below 100.5 and give 100).
    EXPECT_EQ((SC{5102, 3000, 101, 0}), limit300({5103, 3000, 100, 0}, -21));
    // cos(37.9 degrees) = 0.7890908951 rounds to the float 0.7890908718;
    // 137.5 times it is 108.5 - 2^-17, one float step below 108.5, so x = 108
    // (with cos kept in double the product would round to 108.5 and give 109).
    EXPECT_EQ((SC{5102, 3000, 108, -83}), limit300({5377, 3000, 0, 0}, 3790));
}

TEST(LimitSCResult075, ScalesByFourAroundTheLimit) {
    // 6000 x 3000 at 300 dpi, origin 449 -> 112 at 75 dpi.
    EXPECT_EQ((SC{1275, 750, 112, 0}), limit075({1500, 750, 0, 0}, 0));
    // y300 = trunc(-51 + 0.5) = -50; -50 >> 2 = -13, not -12.
    EXPECT_EQ((SC{1275, 100, 0, -13}), limit075({1301, 100, 0, 0}, 9000));
    // A width of 0xFFFF is 65535 (x4 wraps to 65532): dx = 30215 -> 7553.
    EXPECT_EQ((SC{1275, 100, 7553, 0}), limit075({-1, 100, 0, 0}, 0));
}

TEST(ScaleUpSCResult, TruncatesTheProductsThenLimits) {
    EXPECT_EQ((SC{5102, 3000, 489, -39}), scaleUp({1500, 750, 10, -10}, 0, 4.0f));
    // 252.5 -> 252, -7.5 -> -7, 7.5 -> 7; then trunc(-7 + 0.5) = -6.
    EXPECT_EQ((SC{252, 100, -6, 7}), scaleUp({101, 40, -3, 3}, 0, 2.5f));
    // Margins and the legal flag are passed on: 5000 - 3 -> 4205, dx = 397.5.
    EXPECT_EQ((SC{4205, 2551, 398, 225}), scaleUp({1250, 750, 0, 0}, 0, 4.0f, 1.5f, 0.0f, true));
}

TEST(ScaleDownSCResult, LimitsThenShiftsByTwo) {
    EXPECT_EQ((SC{1275, 750, 0, -112}), scaleDown({6000, 3000, 0, 0}, 9000));
    // x300 = trunc(0.5 - 10 + 0.5) = -9; -9 >> 2 = -3.
    EXPECT_EQ((SC{1275, 25, -3, 0}), scaleDown({5103, 100, -10, 0}, 0));
}

}  // namespace
