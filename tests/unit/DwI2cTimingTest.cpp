#include "Platform/DwI2cTiming.h"

#include <gtest/gtest.h>

TEST(DwI2cTiming, TimingCountsFollowTheFormulas) {
    EXPECT_EQ(i2c_dw_scl_hcnt(150000, 40, 3, 0, 0), 642u);
    EXPECT_EQ(i2c_dw_scl_lcnt(150000, 47, 3, 0), 749u);
    EXPECT_EQ(i2c_dw_scl_hcnt(150000, 6, 3, 0, 0), 132u);
    EXPECT_EQ(i2c_dw_scl_lcnt(150000, 13, 3, 0), 239u);
}

TEST(DwI2cTiming, TheConditionLeavesTheFallTimeOutAndTakesEightOff) {
    EXPECT_EQ(i2c_dw_scl_hcnt(150000, 40, 3, 1, 0), 592u);
    EXPECT_EQ(i2c_dw_scl_hcnt(150000, 40, 3, -1, 0), 592u);
    EXPECT_EQ(i2c_dw_scl_hcnt(150000, 40, 99, 1, 0), 592u);
}

TEST(DwI2cTiming, HalfTheDivisorIsAddedBeforeDividing) {
    EXPECT_EQ(i2c_dw_scl_hcnt(1000, 34, 0, 0, 10), 10u); // 3.9 -> 3, - 3 + 10
    EXPECT_EQ(i2c_dw_scl_hcnt(1000, 35, 0, 0, 10), 11u); // 4.0
    EXPECT_EQ(i2c_dw_scl_lcnt(1000, 34, 0, 10), 12u);
    EXPECT_EQ(i2c_dw_scl_lcnt(1000, 30, 5, 10), 13u);
}

TEST(DwI2cTiming, TheOffsetIsAdded) {
    EXPECT_EQ(i2c_dw_scl_hcnt(150000, 40, 3, 0, 5), 647u);
    EXPECT_EQ(i2c_dw_scl_hcnt(150000, 40, 3, 1, -2), 590u);
    EXPECT_EQ(i2c_dw_scl_lcnt(150000, 47, 3, -9), 740u);
}
