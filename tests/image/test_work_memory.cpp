// Work-buffer placement, status merging and the version text.
#include <gtest/gtest.h>

#include <TavrinImage.h>

#include <cstring>

namespace {

TEST(WorkMemory, VersionText) {
    EXPECT_STREQ(LibTavrinCommonGetVersion(), "libTavrinCommon API for e-Tavrin API, Ver. 5.5.0.1");
}

TEST(WorkMemory, MemAllocComparesSigned) {
    uint8_t block[32];
    EXPECT_EQ(TavrinApp_MemAlloc(block, 16, 16, 4), block + 4);
    EXPECT_EQ(TavrinApp_MemAlloc(block, 17, 16, 4), nullptr);
    EXPECT_EQ(TavrinApp_MemAlloc(block, -1, 16, 0), block);
    EXPECT_EQ(TavrinApp_MemCheck(block, 16, 16), 0);
    EXPECT_EQ(TavrinApp_MemCheck(block, 17, 16), 2);
    EXPECT_EQ(TavrinApp_MemCheck(nullptr, 1, 16), 2);
    EXPECT_EQ(TavrinApp_MemCheck(block, -5, 0), 0);
}

TEST(WorkMemory, HeadPointerOfTheFreeRest) {
    uint8_t block[32];
    EXPECT_EQ(TavrinApp_MemSetHeadPointer(block, 32, 10), block + 10);
    EXPECT_EQ(TavrinApp_MemSetHeadPointer(block, 32, 32), block + 32);
    EXPECT_EQ(TavrinApp_MemSetHeadPointer(block, 32, 33), nullptr);
}

TEST(WorkMemory, ParallelStatusMerge) {
    EXPECT_EQ(set_ErrorCode_forParallel(0, 0, 0, 3), 0);
    EXPECT_EQ(set_ErrorCode_forParallel(0, 5, 0, 3), 5);
    EXPECT_EQ(set_ErrorCode_forParallel(5, 0, 0, 3), 5);
    EXPECT_EQ(set_ErrorCode_forParallel(5, 5, 0, 3), 5);
    EXPECT_EQ(set_ErrorCode_forParallel(5, 6, 0, 3), 3);
}

}  // namespace
