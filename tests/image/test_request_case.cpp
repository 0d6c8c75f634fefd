// Processing case of a request and the page-size limit of each case.
#include <TavrinImage.h>
#include <gtest/gtest.h>

namespace {

StructInputParams request(uint8_t cic, uint8_t idxCol, uint8_t edit) {
    StructInputParams p{};
    p.ucModeCicFunc = cic;
    p.ucModeIdxColFunc = idxCol;
    p.ucModeEditFunc = edit;
    return p;
}

bool fits(const StructInputParams& p, uint16_t width, uint16_t height, uint8_t sizeFlag = 0) {
    ImgTavrin img{};
    img.usWidth = width;
    img.usHeight = height;
    return TavrinApp_CheckInSize(p, img, sizeFlag);
}

// Both orientations of a page short x long.
void expectLimit(const StructInputParams& p, uint8_t sizeFlag, uint16_t shortSide,
                 uint16_t longSide) {
    EXPECT_TRUE(fits(p, shortSide, longSide, sizeFlag));
    EXPECT_TRUE(fits(p, longSide, shortSide, sizeFlag));
    EXPECT_FALSE(fits(p, shortSide + 1, longSide, sizeFlag));
    EXPECT_FALSE(fits(p, longSide, shortSide + 1, sizeFlag));
    EXPECT_FALSE(fits(p, shortSide, longSide + 1, sizeFlag));
    EXPECT_FALSE(fits(p, longSide + 1, shortSide, sizeFlag));
}

TEST(GetCaseNumber, FirstMatchingRuleWins) {
    EXPECT_EQ(1, TavrinApp_GetCaseNumber(request(1, 1, 1)));
    EXPECT_EQ(1, TavrinApp_GetCaseNumber(request(7, 0, 0)));
    EXPECT_EQ(2, TavrinApp_GetCaseNumber(request(0, 1, 0)));
    EXPECT_EQ(2, TavrinApp_GetCaseNumber(request(0, 1, 1)));
    EXPECT_EQ(3, TavrinApp_GetCaseNumber(request(0, 0, 0)));
    EXPECT_EQ(0, TavrinApp_GetCaseNumber(request(0, 0, 1)));
}

TEST(CheckInSize, LimitsPerCaseWithEqualityPassing) {
    {
        SCOPED_TRACE("case 1");
        expectLimit(request(1, 0, 0), 1, 3626, 5220);
    }
    {
        SCOPED_TRACE("case 2");
        expectLimit(request(0, 1, 0), 1, 7252, 10441);
    }
    {
        SCOPED_TRACE("case 0");
        expectLimit(request(0, 0, 1), 1, 7252, 10441);
    }
}

TEST(CheckInSize, SquarePageOfTheLongLimit) {
    EXPECT_FALSE(fits(request(1, 0, 0), 5220, 5220));  // short side too large
    EXPECT_TRUE(fits(request(0, 1, 0), 5220, 5220));
}

TEST(CheckInSize, CaseThreeDependsOnSizeFlagAndSkewCropFeeder) {
    StructInputParams p = request(0, 0, 0);
    {
        SCOPED_TRACE("size flag 0");
        expectLimit(p, 0, 3626, 5220);
    }
    {
        SCOPED_TRACE("size flag set");
        expectLimit(p, 1, 3508, 5102);
    }
    p.ucModeSkewEstFunc = 1;
    p.ucModeCropEstFunc = 1;
    p.ucFeeder = 4;
    {
        SCOPED_TRACE("skew and crop on feeder 4");
        expectLimit(p, 2, 3626, 5220);
    }
    p.ucFeeder = 3;
    {
        SCOPED_TRACE("other feeder");
        expectLimit(p, 1, 3508, 5102);
    }
    p.ucFeeder = 4;
    p.ucModeCropEstFunc = 0;
    {
        SCOPED_TRACE("no crop estimation");
        expectLimit(p, 1, 3508, 5102);
    }
}

TEST(CheckA4Type, OnlyModel21) {
    EXPECT_TRUE(TavrinApp_CheckA4Type(21));
    EXPECT_FALSE(TavrinApp_CheckA4Type(20));
    EXPECT_FALSE(TavrinApp_CheckA4Type(22));
    EXPECT_FALSE(TavrinApp_CheckA4Type(0));
    EXPECT_FALSE(TavrinApp_CheckA4Type(15));  // the default model
}

}  // namespace
