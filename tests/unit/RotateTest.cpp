#include "Common/ComFunc/Rotate.h"

#include <gtest/gtest.h>

// The value rotated in the size code; the bytes beyond its width stay.
static uint32_t Right(uint32_t value, uint8_t size, uint32_t count) {
    EXPECT_EQ(LoopShiftRight(&value, size, count), 1);
    return value;
}

static uint32_t Left(uint32_t value, uint8_t size, uint32_t count) {
    EXPECT_EQ(LoopShiftLeft(&value, size, count), 1);
    return value;
}

TEST(Rotate, BitsThatFallOutComeInAtTheOtherEnd) {
    EXPECT_EQ(Right(0x01, 1, 1), 0x80u);
    EXPECT_EQ(Left(0x80, 1, 1), 0x01u);
    EXPECT_EQ(Right(0x0001, 2, 1), 0x8000u);
    EXPECT_EQ(Left(0x8000, 2, 1), 0x0001u);
    EXPECT_EQ(Right(0x00000001, 3, 1), 0x80000000u);
    EXPECT_EQ(Left(0x80000000, 3, 1), 0x00000001u);
    EXPECT_EQ(Right(0x12345678, 3, 8), 0x78123456u);
    EXPECT_EQ(Left(0x12345678, 3, 8), 0x34567812u);
    EXPECT_EQ(Right(0x1234, 2, 4), 0x4123u);
    EXPECT_EQ(Left(0x1234, 2, 4), 0x2341u);
}

TEST(Rotate, OnlyTheBytesOfTheWidthChange) {
    EXPECT_EQ(Right(0xAABBCC01, 1, 1), 0xAABBCC80u);
    EXPECT_EQ(Left(0xAABBCC80, 1, 1), 0xAABBCC01u);
    EXPECT_EQ(Right(0xAABB0001, 2, 1), 0xAABB8000u);
    EXPECT_EQ(Left(0xAABB8000, 2, 1), 0xAABB0001u);
}

TEST(Rotate, TheCountIsTakenModuloTheWidth) {
    for (uint32_t count : {0u, 8u, 16u, 32u, 64u})
        EXPECT_EQ(Right(0xA5, 1, count), 0xA5u) << count;
    for (uint32_t count : {0u, 16u, 32u, 160u})
        EXPECT_EQ(Left(0xA55A, 2, count), 0xA55Au) << count;
    for (uint32_t count : {0u, 32u, 0xFFFFFFE0u})
        EXPECT_EQ(Left(0x12345678, 3, count), 0x12345678u) << count;
    EXPECT_EQ(Right(0x01, 1, 9), 0x80u);
    EXPECT_EQ(Left(0x12345678, 3, 40), 0x34567812u);
    EXPECT_EQ(Left(0x01, 1, 0xFFFFFFFF), 0x80u);
}

TEST(Rotate, LeftAndRightAreInverse) {
    for (uint8_t size = 1; size <= 3; ++size) {
        for (uint32_t count = 0; count < 70; ++count)
            EXPECT_EQ(Left(Right(0x1234ABCD, size, count), size, count), 0x1234ABCDu)
                << static_cast<int>(size) << " " << count;
    }
}

TEST(Rotate, AnotherSizeCodeOrNullChangesNothing) {
    uint32_t value = 0x12345678;
    for (uint8_t size : {uint8_t{0}, uint8_t{4}, uint8_t{255}}) {
        EXPECT_EQ(LoopShiftRight(&value, size, 4), 0);
        EXPECT_EQ(LoopShiftLeft(&value, size, 4), 0);
    }
    EXPECT_EQ(value, 0x12345678u);
    EXPECT_EQ(LoopShiftRight(nullptr, 3, 4), 0);
    EXPECT_EQ(LoopShiftLeft(nullptr, 3, 4), 0);
}
