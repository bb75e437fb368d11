#include "Base/Memory.h"

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "TestHelp.h"

TEST(Memory, MallocGivesABlockThatFreeReleases) {
    long held = BlocksHeld();
    uint8_t *block = static_cast<uint8_t *>(Malloc(4096));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(BlocksHeld(), held + 1);
    Memset(block, 0x5A, 4096);
    EXPECT_EQ(block[4095], 0x5A);
    Free(block);
    EXPECT_EQ(BlocksHeld(), held);

    void *runtime = RTMalloc(16);
    ASSERT_NE(runtime, nullptr);
    Memset(runtime, 0, 16);
    Free(runtime);
    EXPECT_EQ(BlocksHeld(), held);
}

TEST(Memory, MallocAndRTMallocGiveNullWithoutMemory) {
    FailMalloc(1);
    EXPECT_EQ(Malloc(16), nullptr);
    FailMalloc(1);
    EXPECT_EQ(RTMalloc(16), nullptr);
}

TEST(Memory, FreeIgnoresNull) {
    uint8_t *block = static_cast<uint8_t *>(Malloc(16));
    ASSERT_NE(block, nullptr);
    Memset(block, 0x5A, 16);
    long held = BlocksHeld();
    Free(nullptr);
    EXPECT_EQ(BlocksHeld(), held);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(block), 16), std::string(16, 0x5A));
    Free(block);
}

TEST(Memory, MemcmpIsZeroForEqualRunsOfAnyLength) {
    const std::string left(64, 'a');
    const std::string right(64, 'a');
    for (size_t size = 0; size <= 64; ++size)
        EXPECT_EQ(Memcmp(left.data(), right.data(), size), 0) << size;
}

TEST(Memory, MemcmpGivesTheDifferenceOfTheFirstPairThatDiffers) {
    for (size_t at = 0; at < 24; ++at) {
        std::string left(24, 'a');
        std::string right(24, 'a');
        left[at] = 'd';
        if (at + 1 < 24)
            right[at + 1] = 'z'; // a later difference does not count
        EXPECT_EQ(Memcmp(left.data(), right.data(), 24), 'd' - 'a') << at;
        EXPECT_EQ(Memcmp(right.data(), left.data(), 24), 'a' - 'd') << at;
        EXPECT_EQ(Memcmp(left.data(), right.data(), at), 0) << at;
    }
}

TEST(Memory, MemcmpLooksAtNothingInFrontOfTheRuns) {
    const std::string left = "equal...unlike..different";
    const std::string right = "unlike..equal...";
    EXPECT_NE(Memcmp(left.data() + 8, right.data(), 16), 0);
    EXPECT_NE(Memcmp(right.data(), left.data() + 8, 16), 0);
}

TEST(Memory, MemcmpTakesBytesAsSigned) {
    EXPECT_EQ(Memcmp("\x80", "\x01", 1), -129);
    EXPECT_EQ(Memcmp("\xFF", "\x7F", 1), -128);
    EXPECT_EQ(Memcmp("........\x7F", "........\x80", 9), 255);
}

TEST(Memory, MemcmpReadsNothingBeyondTheSize) {
    // Heap blocks of exactly the size, at odd addresses: a sanitized build sees a read outside of them.
    for (size_t size = 1; size < 20; ++size) {
        char *left = new char[size];
        char *right = new char[size];
        Memset(left, 1, size);
        Memset(right, 1, size);
        EXPECT_EQ(Memcmp(left, right, size), 0);
        EXPECT_EQ(Memcmp(left + 1, right + 1, size - 1), 0);
        delete[] left;
        delete[] right;
    }
}

TEST(Memory, MemsetFillsWithTheLowByteOfTheValue) {
    char place[] = "........";
    EXPECT_EQ(Memset(place + 1, 0x141, 3), place + 1);
    EXPECT_STREQ(place, ".AAA....");
    EXPECT_EQ(Memset(place, 'x', 0), place);
    EXPECT_STREQ(place, ".AAA....");
}

TEST(Memory, MemcpyCopiesExactlyTheSize) {
    char place[] = "........";
    EXPECT_EQ(Memcpy(place + 2, "PCI0", 3), place + 2);
    EXPECT_STREQ(place, "..PCI...");
}

TEST(Memory, ASizeOfZeroMayComeWithNullPointers) {
    EXPECT_EQ(Memcpy(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(Memset(nullptr, 0xFF, 0), nullptr);
}

TEST(Memory, NothingBehindWhatIsAskedForIsLookedAt) {
    EXPECT_EQ(Memcmp(AtTheEndOfMemory("PCI"), AtTheEndOfMemory("PCI"), 3), 0);
    EXPECT_LT(Memcmp(AtTheEndOfMemory("12345678A"), AtTheEndOfMemory("12345678B"), 9), 0);
    EXPECT_EQ(Load16(AtTheEndOfMemory("\x34\x12")), 0x1234u);
    EXPECT_EQ(Load32(AtTheEndOfMemory("\x78\x56\x34\x12")), 0x12345678u);
}
