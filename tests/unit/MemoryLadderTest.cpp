#include "Common/ComFunc/MemoryLadder.h"

#include <gtest/gtest.h>

#include "Base/Memory.h"
#include "TestHelp.h"

// Size of the buffer obtained when blocks of more than limit bytes cannot be had; 0 without a buffer.
static uint32_t Obtained(uint32_t wanted, size_t limit) {
    uint8_t *buffer = nullptr;
    uint32_t size = 12345;
    LimitMalloc(limit);
    EFI_STATUS status = GetMaxAllocMemory(&buffer, &size, wanted);
    LimitMalloc(SIZE_MAX);
    EXPECT_EQ(status, size == 0 ? 0x80000009 : 0u);
    EXPECT_EQ(buffer == nullptr, size == 0);
    if (buffer != nullptr)
        Memset(buffer, 0xFF, size); // the whole block is there
    Free(buffer);
    return size;
}

TEST(MemoryLadder, ASmallBufferIsObtainedAtTheFirstAttempt) {
    EXPECT_EQ(Obtained(0x300, 0x300), 0x300u);
    EXPECT_EQ(Obtained(0x1400001, SIZE_MAX), 0x1400001u);
}

TEST(MemoryLadder, ALargeBufferIsCutTo40MiB) {
    EXPECT_EQ(Obtained(0x2800000, SIZE_MAX), 0x2800000u);
    EXPECT_EQ(Obtained(0x2800001, SIZE_MAX), 0x2800000u);
    EXPECT_EQ(Obtained(0xFFFFFFFF, SIZE_MAX), 0x2800000u);
}

TEST(MemoryLadder, EachStepIsTriedInTurn) {
    const uint32_t steps[] = {0x2800000, 0x1400000, 0xA00000, 0x100000, 0x80000, 0x10000, 0x4000, 0x1000};
    for (uint32_t step : steps) {
        EXPECT_EQ(Obtained(0xFFFFFFFF, step), step);
        EXPECT_EQ(Obtained(step, step), step);
    }
    for (size_t i = 0; i + 1 < sizeof(steps) / sizeof(steps[0]); ++i)
        EXPECT_EQ(Obtained(0xFFFFFFFF, steps[i] - 1), steps[i + 1]);
}

TEST(MemoryLadder, TheSizeIsNeverMoreThanWanted) {
    EXPECT_EQ(Obtained(0x5000, 0x4FFF), 0x4000u);
    EXPECT_EQ(Obtained(0x3000, 0x3000), 0x3000u);
}

TEST(MemoryLadder, WithoutEven4KiBThereIsNoBuffer) {
    EXPECT_EQ(Obtained(0xFFFFFFFF, 0xFFF), 0u);
    EXPECT_EQ(Obtained(0x300, 0x2FF), 0u);
}

TEST(MemoryLadder, AFailedAttemptIsFollowedByTheNextStep) {
    uint8_t *buffer = nullptr;
    uint32_t size = 0;
    FailMalloc(1);
    EXPECT_EQ(GetMaxAllocMemory(&buffer, &size, 0xFFFFFFFF), 0u);
    EXPECT_EQ(size, 0x1400000u);
    Free(buffer);
}
