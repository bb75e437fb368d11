#include "Common/ComFunc/Search.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "Base/Memory.h"
#include "TestHelp.h"

static const uint32_t NOT_THERE = 0xFFFFFFFF;

// Searches from the start; the end of the match, or NOT_THERE.
static uint32_t Find(const std::string &buffer, const std::string &pattern) {
    uint32_t pos = 12345;
    EFI_STATUS status = SearchFromBuffer(buffer.data(), static_cast<uint32_t>(buffer.size()), pattern.data(),
                                         static_cast<uint32_t>(pattern.size()), &pos, 1);
    EXPECT_EQ(status, pos == NOT_THERE ? 0x8000000E : 0u);
    return pos;
}

TEST(Search, ThePositionIsJustPastTheMatch) {
    EXPECT_EQ(Find("xxab", "ab"), 4u);
    EXPECT_EQ(Find("abxx", "ab"), 2u);
    EXPECT_EQ(Find("xabxab", "ab"), 3u);
    EXPECT_EQ(Find("ab", "ab"), 2u);
    EXPECT_EQ(Find("x", "x"), 1u);
}

TEST(Search, APatternThatIsNotThereSetsThePositionToAllOnes) {
    EXPECT_EQ(Find("xxab", "ba"), NOT_THERE);
    EXPECT_EQ(Find("xxa", "ab"), NOT_THERE);
    EXPECT_EQ(Find("", "a"), NOT_THERE);
    EXPECT_EQ(Find("a", "ab"), NOT_THERE);
}

TEST(Search, ASecondSearchGoesOnBehindTheFirstMatch) {
    uint32_t pos = 0;
    EXPECT_EQ(SearchFromBuffer("xxab", 4, "ab", 2, &pos, 1), 0u);
    EXPECT_EQ(pos, 4u);
    EXPECT_EQ(SearchFromBuffer("xxab", 4, "ab", 2, &pos, 0), 0x8000000Eu);
    EXPECT_EQ(pos, NOT_THERE);
}

TEST(Search, EveryOccurrenceIsFoundOnceFromOnePositionToTheNext) {
    uint32_t pos = 0;
    EXPECT_EQ(SearchFromBuffer("abxabyab", 8, "ab", 2, &pos, 0), 0u);
    EXPECT_EQ(pos, 2u);
    EXPECT_EQ(SearchFromBuffer("abxabyab", 8, "ab", 2, &pos, 0), 0u);
    EXPECT_EQ(pos, 5u);
    EXPECT_EQ(SearchFromBuffer("abxabyab", 8, "ab", 2, &pos, 0), 0u);
    EXPECT_EQ(pos, 8u);
    EXPECT_EQ(SearchFromBuffer("abxabyab", 8, "ab", 2, &pos, 0), 0x8000000Eu);
}

TEST(Search, APositionBeyondTheBufferFindsNothing) {
    uint32_t pos = 100;
    EXPECT_EQ(SearchFromBuffer("xxab", 4, "ab", 2, &pos, 0), 0x8000000Eu);
    EXPECT_EQ(pos, NOT_THERE);
    EXPECT_EQ(SearchFromBuffer("xxab", 4, "ab", 2, &pos, 0), 0x8000000Eu); // from 0xFFFFFFFF on
}

TEST(Search, AnEmptyPatternIsFoundWhereTheSearchBeginsButNotBeyondTheBuffer) {
    for (uint32_t start : {0u, 3u, 4u}) {
        uint32_t pos = start;
        EXPECT_EQ(SearchFromBuffer("xxab", 4, "", 0, &pos, 0), 0u);
        EXPECT_EQ(pos, start);
    }
    for (uint32_t start : {5u, 100u, NOT_THERE}) {
        uint32_t pos = start;
        EXPECT_EQ(SearchFromBuffer("xxab", 4, "", 0, &pos, 0), 0x8000000Eu);
        EXPECT_EQ(pos, NOT_THERE);
    }
}

TEST(Search, AnOccurrenceInsideAPartialMatchIsMissed) {
    EXPECT_EQ(Find("aaab", "aab"), NOT_THERE);
    EXPECT_EQ(Find("xaab", "aab"), 4u);
    EXPECT_EQ(Find("aaabaab", "aab"), 7u);
    EXPECT_EQ(Find("_S_SM_", "_SM_"), NOT_THERE); // the byte that breaks the match is not looked at again
    EXPECT_EQ(Find("_S__SM_", "_SM_"), 7u);
}

TEST(Search, BytesOfAnyValueAreCompared) {
    EXPECT_EQ(Find(std::string("\0\xFF\0\x80", 4), std::string("\0\x80", 2)), 4u);
    EXPECT_EQ(Find(std::string("\x01\xFF", 2), std::string("\xFF", 1)), 2u);
}

TEST(Search, NothingBehindTheBufferIsLookedAt) {
    uint32_t pos = 0;
    EXPECT_EQ(SearchFromBuffer(AtTheEndOfMemory("xxa"), 3, "ab", 2, &pos, 1), 0x8000000E);
    EXPECT_EQ(SearchFromBuffer(AtTheEndOfMemory("xab"), 3, "ab", 2, &pos, 1), 0u);
    EXPECT_EQ(pos, 3u);
}

TEST(Search, NullBufferOrPatternIsInvalid) {
    uint32_t pos = 7;
    const uint16_t wide[] = {'a', 0};
    EXPECT_EQ(SearchFromBuffer(nullptr, 4, "ab", 2, &pos, 1), 0x80000002u);
    EXPECT_EQ(SearchFromBuffer("xxab", 4, nullptr, 2, &pos, 1), 0x80000002u);
    EXPECT_EQ(SearchStringFromBuffer(nullptr, 4, "ab", &pos, 1), 0x80000002u);
    EXPECT_EQ(SearchStringFromBuffer("xxab", 4, nullptr, &pos, 1), 0x80000002u);
    EXPECT_EQ(WSearchFromBuffer(nullptr, 1, wide, &pos, 1), 0x80000002u);
    EXPECT_EQ(WSearchFromBuffer(wide, 1, nullptr, &pos, 1), 0x80000002u);
}

TEST(Search, SearchStringFromBufferTakesThePatternUpToItsNul) {
    uint32_t pos = 0;
    EXPECT_EQ(SearchStringFromBuffer("one two", 7, "two", &pos, 1), 0u);
    EXPECT_EQ(pos, 7u);
    EXPECT_EQ(SearchStringFromBuffer("two two", 7, "two", &pos, 1), 0u);
    EXPECT_EQ(pos, 3u);
    EXPECT_EQ(SearchStringFromBuffer("two two", 7, "two", &pos, 0), 0u);
    EXPECT_EQ(pos, 7u);
    EXPECT_EQ(SearchStringFromBuffer("one two", 6, "two", &pos, 1), 0x8000000Eu);
    EXPECT_EQ(pos, NOT_THERE);
    EXPECT_EQ(SearchStringFromBuffer("aaab", 4, "aab", &pos, 1), 0x8000000Eu);
}

TEST(Search, WSearchFromBufferCountsUnits) {
    const uint16_t buffer[] = {'x', 0x0161, 'a', 'b', 'a', 'b'};
    const uint16_t wanted[] = {'a', 'b', 0};
    uint32_t pos = 0;
    EXPECT_EQ(WSearchFromBuffer(buffer, 6, wanted, &pos, 1), 0u);
    EXPECT_EQ(pos, 4u);
    EXPECT_EQ(WSearchFromBuffer(buffer, 6, wanted, &pos, 0), 0u);
    EXPECT_EQ(pos, 6u);
    EXPECT_EQ(WSearchFromBuffer(buffer, 6, wanted, &pos, 0), 0x8000000Eu);
    EXPECT_EQ(pos, NOT_THERE);
    EXPECT_EQ(WSearchFromBuffer(buffer, 3, wanted, &pos, 1), 0x8000000Eu);
}

TEST(Search, WSearchFromBufferComparesWholeUnitsAndMissesTheSameOccurrences) {
    const uint16_t buffer[] = {0x0161, 'a', 'a', 'a', 'b'};
    const uint16_t unit[] = {0x0161, 0};
    const uint16_t aab[] = {'a', 'a', 'b', 0};
    uint32_t pos = 0;
    EXPECT_EQ(WSearchFromBuffer(buffer, 5, unit, &pos, 1), 0u);
    EXPECT_EQ(pos, 1u);
    EXPECT_EQ(WSearchFromBuffer(buffer, 5, aab, &pos, 1), 0x8000000Eu);
}

// A heap block with this text, as ReplaceBufferContent takes and gives it.
static uint8_t *Block(const char *text) {
    uint8_t *block = static_cast<uint8_t *>(Malloc(strlen(text)));
    Memcpy(block, text, strlen(text));
    return block;
}

static std::string TextOf(const uint8_t *block, uint32_t length) {
    return std::string(reinterpret_cast<const char *>(block), length);
}

TEST(Search, ReplaceBufferContentGivesANewBlockWithTheReplacement) {
    uint8_t *block = Block("1ab2");
    uint32_t length = 4;
    uint32_t pos = 0;
    EXPECT_EQ(ReplaceBufferContent(&block, &length, "ab", 2, "XYZ", 3, &pos, 1), 0u);
    EXPECT_EQ(TextOf(block, length), "1XYZ2");
    EXPECT_EQ(length, 5u);
    EXPECT_EQ(pos, 3u); // the end of the match in the old buffer
    Free(block);
}

TEST(Search, ReplaceBufferContentReleasesTheOldBlock) {
    long held = BlocksHeld();
    uint8_t *block = Block("1ab2");
    uint32_t length = 4;
    uint32_t pos = 0;
    EXPECT_EQ(ReplaceBufferContent(&block, &length, "ab", 2, "XYZ", 3, &pos, 1), 0u);
    Free(block);
    EXPECT_EQ(BlocksHeld(), held);
}

TEST(Search, ReplaceBufferContentReplacesTheFirstMatchFromThePositionOnly) {
    uint8_t *block = Block("ab ab ab");
    uint32_t length = 8;
    uint32_t pos = 2;
    EXPECT_EQ(ReplaceBufferContent(&block, &length, "ab", 2, "#", 1, &pos, 0), 0u);
    EXPECT_EQ(TextOf(block, length), "ab # ab");
    EXPECT_EQ(pos, 5u);
    EXPECT_EQ(ReplaceBufferContent(&block, &length, "ab", 2, "#", 1, &pos, 1), 0u);
    EXPECT_EQ(TextOf(block, length), "# # ab");
    Free(block);
}

TEST(Search, ReplaceBufferContentByNothingShortensTheBlock) {
    uint8_t *block = Block("1ab2");
    uint32_t length = 4;
    uint32_t pos = 0;
    EXPECT_EQ(ReplaceBufferContent(&block, &length, "ab", 2, "", 0, &pos, 1), 0u);
    EXPECT_EQ(TextOf(block, length), "12");
    Free(block);
}

TEST(Search, ReplaceBufferContentByNothingNeedsNoReplacement) {
    uint8_t *block = Block("1ab2");
    uint32_t length = 4;
    uint32_t pos = 0;
    EXPECT_EQ(ReplaceBufferContent(&block, &length, "ab", 2, nullptr, 0, &pos, 1), 0u);
    EXPECT_EQ(TextOf(block, length), "12");
    Free(block);
}

TEST(Search, ReplaceBufferContentWithoutAMatchKeepsTheBlock) {
    uint8_t *block = Block("1ab2");
    uint8_t *before = block;
    uint32_t length = 4;
    uint32_t pos = 0;
    EXPECT_EQ(ReplaceBufferContent(&block, &length, "zz", 2, "XYZ", 3, &pos, 1), 0x8000000Eu);
    EXPECT_EQ(pos, NOT_THERE);
    EXPECT_EQ(ReplaceBufferContent(&block, &length, nullptr, 2, "XYZ", 3, &pos, 1), 0x80000002u);
    EXPECT_EQ(block, before);
    EXPECT_EQ(TextOf(block, length), "1ab2");
    Free(block);
}

TEST(Search, ReplaceBufferContentWithoutMemoryKeepsTheBlock) {
    uint8_t *block = Block("1ab2");
    uint8_t *before = block;
    uint32_t length = 4;
    uint32_t pos = 0;
    FailMalloc(1);
    EXPECT_EQ(ReplaceBufferContent(&block, &length, "ab", 2, "XYZ", 3, &pos, 1), 0x80000005u);
    EXPECT_EQ(block, before);
    EXPECT_EQ(TextOf(block, length), "1ab2");
    Free(block);
}

TEST(Search, ASearchWantsThePlaceOfItsPosition) {
    EXPECT_EQ(SearchFromBuffer("abc", 3, "b", 1, nullptr, 1), 0x80000002u);
}

TEST(Search, ReplaceBufferContentWantsTheBlockItsLengthAndWhatComesIn) {
    uint8_t *block = Block("1ab2");
    uint32_t length = 4;
    uint32_t pos = 7;
    EXPECT_EQ(ReplaceBufferContent(nullptr, &length, "ab", 2, "X", 1, &pos, 1), 0x80000002u);
    EXPECT_EQ(ReplaceBufferContent(&block, nullptr, "ab", 2, "X", 1, &pos, 1), 0x80000002u);
    EXPECT_EQ(ReplaceBufferContent(&block, &length, "ab", 2, nullptr, 1, &pos, 1), 0x80000002u);
    EXPECT_EQ(pos, 7u);
    EXPECT_EQ(TextOf(block, 4), "1ab2");
    Free(block);
}

TEST(Search, ReplaceBufferContentByWhatMakesMoreThan4GiBKeepsTheBlock) {
    uint8_t *block = Block("1ab2");
    uint8_t *before = block;
    uint32_t length = 4;
    uint32_t pos = 0;
    LimitMalloc(0); // nothing of that size is asked for
    EXPECT_EQ(ReplaceBufferContent(&block, &length, "ab", 2, "X", 0xFFFFFFFF, &pos, 1), 0x80000005u);
    EXPECT_EQ(block, before);
    EXPECT_EQ(TextOf(block, length), "1ab2");
    Free(block);
}
