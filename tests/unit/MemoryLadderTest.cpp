#include "Common/ComFunc/MemoryLadder.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <vector>

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

TEST(MemoryLadder, PagesThatAreProvidedKeepWhatStandsThere) {
    for (uint32_t size : {1u, 0x1000u, 0x1FFFu, 0x5001u, 0x400000u}) {
        uint8_t *block = static_cast<uint8_t *>(Malloc(size));
        Memset(block, 0x5A, size);
        ProvidePages(block, size);
        EXPECT_EQ(std::count(block, block + size, 0x5A), static_cast<long>(size));
        Free(block);
    }
}

// Of each page of a map whether memory stands behind it.
static std::vector<bool> Present(const uint8_t *map, size_t pages) {
    std::vector<unsigned char> states(pages);
    EXPECT_EQ(mincore(const_cast<uint8_t *>(map), pages * 0x1000, states.data()), 0);
    std::vector<bool> present;
    for (unsigned char state : states)
        present.push_back((state & 1) != 0);
    return present;
}

static long PageFaults() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

TEST(MemoryLadder, PagesAreProvidedFromTheBlocksFirstByteToItsLast) {
    constexpr size_t PAGE = 0x1000, PAGES = 6;
    void *map = mmap(nullptr, PAGES * PAGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    uint8_t *block = static_cast<uint8_t *>(map);
    EXPECT_EQ(Present(block, PAGES), std::vector<bool>(PAGES, false));
    // From the last byte of the second page to the first of the last but one.
    ProvidePages(block + 2 * PAGE - 1, 2 * PAGE + 2);
    EXPECT_EQ(Present(block, PAGES), (std::vector<bool>{false, true, true, true, true, false}));
    munmap(map, PAGES * PAGE);
}

// What else the process does (a sanitizer's memory, valgrind's) may meet a few faults meanwhile.
TEST(MemoryLadder, WritesToProvidedPagesOfANewBlockMeetNoFaults) {
    constexpr size_t PAGE = 0x1000, PAGES = 256;
    void *map = mmap(nullptr, PAGES * PAGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    ProvidePages(static_cast<uint8_t *>(map), PAGES * PAGE);
    long before = PageFaults();
    for (size_t i = 0; i < PAGES; ++i)
        static_cast<volatile uint8_t *>(map)[i * PAGE] = 0x5A;
    EXPECT_LT(PageFaults() - before, 64);
    munmap(map, PAGES * PAGE);
}
