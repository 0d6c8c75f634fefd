// Simulation parameter tables, defaults and the grouped range checks.
#include <TavrinParams.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

template <class Table>
std::vector<uint8_t> rawBytes(const Table& table) {
    const auto* p = reinterpret_cast<const uint8_t*>(&table);
    return std::vector<uint8_t>(p, p + sizeof table);
}

TEST(SimParamsTables, BytesAreMinimumDefaultMaximumRows) {
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                    0, 0, 0, 0, 2, 1, 1, 1, 0, 0, 0,  //
                                    1, 1, 1, 1, 4, 2, 2, 2, 1, 1, 1}),
              rawBytes(strSimCICParams_Limit));
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0,  //
                                    3, 2, 1, 1, 1, 0, 1,  //
                                    3, 3, 3, 3, 3, 1, 2}),
              rawBytes(strSimResEstParams_Limit));
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0, 1, 1, 3}), rawBytes(strSimCompEstParams_Limit));
    EXPECT_EQ((std::vector<uint8_t>{0, 2, 4}), rawBytes(strSimAACSParams_Limit));
    // 300 = 0x012C, 20 = 0x0014, 4500 = 0x1194, -50 = 0xFFCE, -3 = 0xFFFD, 50 = 0x0032.
    EXPECT_EQ((std::vector<uint8_t>{0x00, 0x00, 0x00, 0x00, 0, 0, 0xCE, 0xFF, 0xFD, 0xFF,  //
                                    0x2C, 0x01, 0x14, 0x00, 10, 0, 0x00, 0x00, 0x00, 0x00,  //
                                    0x94, 0x11, 0x94, 0x11, 100, 0, 0x32, 0x00, 0x03, 0x00}),
              rawBytes(strSimSkewCropParams_Limit));
}

struct Stages {
    simCIC cic;
    simResEst resEst;
    simCompEst compEst;
    simAACS aacs;
    simSkewCropEst skewCrop;
    SimParams params{&cic, &resEst, &compEst, &aacs, &skewCrop};

    Stages() { reset(); }
    Stages(const Stages&) = delete;  // params points into this object
    Stages& operator=(const Stages&) = delete;

    // Poisons every record, then fills in the defaults.
    void reset() {
        std::memset(&cic, 0xAA, sizeof cic);
        std::memset(&resEst, 0xAA, sizeof resEst);
        std::memset(&compEst, 0xAA, sizeof compEst);
        std::memset(&aacs, 0xAA, sizeof aacs);
        std::memset(&skewCrop, 0xAA, sizeof skewCrop);
        EXPECT_EQ(0, Tavrin_InitSimParams(&params));
    }
};

TEST(InitSimParams, CopiesTheDefaultRowsWhichPass) {
    Stages s;
    EXPECT_EQ(rawBytes(strSimCICParams_Limit[1]), rawBytes(s.cic));
    EXPECT_EQ(rawBytes(strSimResEstParams_Limit[1]), rawBytes(s.resEst));
    EXPECT_EQ(rawBytes(strSimCompEstParams_Limit[1]), rawBytes(s.compEst));
    EXPECT_EQ(rawBytes(strSimAACSParams_Limit[1]), rawBytes(s.aacs));
    // Defaults as values, alignment byte included.
    EXPECT_EQ((std::vector<uint8_t>{0x2C, 0x01, 0x14, 0x00, 10, 0, 0, 0, 0, 0}),
              rawBytes(s.skewCrop));
    EXPECT_EQ(0, Tavrin_CheckSimParams(&s.params));
}

TEST(CheckSimCIC, CountsTheFirstGroupWithFailuresOnly) {
    Stages s;
    s.cic.ucField2 = 2;
    s.cic.ucField5 = 5;
    s.cic.ucField11 = 2;
    EXPECT_EQ(-2, checkSimParams_CIC(&s.cic));  // field 11 not examined

    s.reset();
    s.cic.ucField9 = 2;
    s.cic.ucField11 = 2;
    EXPECT_EQ(-1, checkSimParams_CIC(&s.cic));

    s.reset();
    s.cic.ucField9 = 2;
    s.cic.ucField10 = 2;
    EXPECT_EQ(-2, checkSimParams_CIC(&s.cic));

    s.reset();
    s.cic.ucField11 = 2;
    EXPECT_EQ(-1, checkSimParams_CIC(&s.cic));

    s.reset();
    std::memset(&s.cic, 9, sizeof s.cic);
    EXPECT_EQ(-8, checkSimParams_CIC(&s.cic));
    EXPECT_EQ(-8, Tavrin_CheckSimParams(&s.params));
}

TEST(CheckSimCIC, LimitsAreInclusive) {
    Stages s;
    std::memcpy(&s.cic, &strSimCICParams_Limit[2], sizeof s.cic);
    EXPECT_EQ(0, checkSimParams_CIC(&s.cic));
    s.cic.ucField5 = 5;
    EXPECT_EQ(-1, checkSimParams_CIC(&s.cic));
}

TEST(CheckSimStages, OtherStagesCountEveryFailure) {
    Stages s;
    s.resEst.ucField1 = 4;
    s.resEst.ucField7 = 3;
    EXPECT_EQ(-2, checkSimParams_ResEst(&s.resEst));
    std::memset(&s.resEst, 4, sizeof s.resEst);
    EXPECT_EQ(-7, checkSimParams_ResEst(&s.resEst));

    s.compEst = {2, 4};
    EXPECT_EQ(-2, checkSimParams_CompEst(&s.compEst));
    s.compEst = {1, 3};
    EXPECT_EQ(0, checkSimParams_CompEst(&s.compEst));

    s.aacs = {5};
    EXPECT_EQ(-1, checkSimParams_AACS(&s.aacs));
    s.aacs = {4};
    EXPECT_EQ(0, checkSimParams_AACS(&s.aacs));

    s.skewCrop = {4501, 4501, 101, 0, 51, -4};
    EXPECT_EQ(-5, checkSimParams_SkewCrop(&s.skewCrop));
    s.skewCrop = {4500, 4500, 100, 0xFF, 50, 3};  // alignment byte not checked
    EXPECT_EQ(0, checkSimParams_SkewCrop(&s.skewCrop));
}

TEST(CheckSimSkewCrop, SignedFieldsCompareSigned) {
    Stages s;
    s.skewCrop.sField4 = -50;  // 0xFFCE: would exceed 50 if compared unsigned
    s.skewCrop.sField5 = -3;
    EXPECT_EQ(0, checkSimParams_SkewCrop(&s.skewCrop));
    s.skewCrop.sField4 = -51;
    EXPECT_EQ(-1, checkSimParams_SkewCrop(&s.skewCrop));
    s.skewCrop.sField4 = 50;
    s.skewCrop.sField5 = -4;
    EXPECT_EQ(-1, checkSimParams_SkewCrop(&s.skewCrop));
    s.skewCrop.sField5 = 4;
    EXPECT_EQ(-1, checkSimParams_SkewCrop(&s.skewCrop));
}

TEST(CheckSimParams, ReturnsTheFirstFailingStageInOrder) {
    Stages s;
    s.resEst.ucField2 = 4;
    s.skewCrop.sField4 = 99;
    s.skewCrop.sField5 = 99;
    s.skewCrop.ucField3 = 200;
    EXPECT_EQ(-1, Tavrin_CheckSimParams(&s.params));

    s.reset();
    s.compEst.ucField1 = 2;
    s.aacs.ucField1 = 9;
    EXPECT_EQ(-1, Tavrin_CheckSimParams(&s.params));
    s.compEst.ucField1 = 0;
    EXPECT_EQ(-1, Tavrin_CheckSimParams(&s.params));
    s.aacs.ucField1 = 0;
    s.skewCrop.usField1 = 5000;
    s.skewCrop.usField2 = 5000;
    EXPECT_EQ(-2, Tavrin_CheckSimParams(&s.params));
}

TEST(CheckSimParams, MissingRecordsDoNotCrash) {
    EXPECT_EQ(0, Tavrin_InitSimParams(nullptr));
    Stages s;
    s.params.simCompEst = nullptr;
    EXPECT_EQ(0, Tavrin_InitSimParams(&s.params));  // fills the others
    EXPECT_EQ(-1, Tavrin_CheckSimParams(&s.params));
    EXPECT_EQ(-1, Tavrin_CheckSimParams(nullptr));
    EXPECT_EQ(-1, checkSimParams_CIC(nullptr));
    EXPECT_EQ(-1, checkSimParams_SkewCrop(nullptr));
}

}  // namespace
