#include "Platform/MemSearch.h"

#include <gtest/gtest.h>

#include "TestHelp.h"

// Searches from the start of the range; the status is compared and the position returned.
static uint32_t Search(uint32_t start, uint32_t length, const char *pattern, EFI_STATUS status) {
    uint32_t position = 12345;
    EXPECT_EQ(SearchFromMemReadByte(start, length, pattern, &position, 1), status);
    return position;
}

TEST(MemSearch, TheSearchPositionIsJustPastTheMatch) {
    OpenBoard("intel");
    PokeText(0x2100, "needle");
    EXPECT_EQ(Search(0x2000, 0x1000, "needle", 0), 0x106u);
    EXPECT_EQ(Search(0x2000, 0x107, "needle", 0), 0x106u);
    EXPECT_EQ(Search(0x2000, 0x106, "needle", 0x80000015), 0x106u);
    EXPECT_EQ(Search(0x2000, 0x105, "needle", 0x8000000E), 0xFFFFFFFFu);
    EXPECT_EQ(Search(0x2000, 0x1000, "haystack", 0x8000000E), 0xFFFFFFFFu);
    EXPECT_EQ(Search(0x2000, 0, "needle", 0x8000000E), 0xFFFFFFFFu);
}

TEST(MemSearch, ASearchOfNoPatternIsInvalid) {
    OpenBoard("intel");
    EXPECT_EQ(Search(0x2000, 0x1000, nullptr, 0x80000002), 12345u);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(MemSearch, TheSearchMissesAMatchInsideAPartialOne) {
    OpenBoard("intel");
    PokeText(0x2100, "AAAB");
    EXPECT_EQ(Search(0x2000, 0x1000, "AAB", 0x8000000E), 0xFFFFFFFFu);
    PokeText(0x2200, "xxyx"); // the byte that broke the match does not begin another one
    EXPECT_EQ(Search(0x2200, 0x10, "xy", 0x8000000E), 0xFFFFFFFFu);
    PokeText(0x2100, "xAAB");
    EXPECT_EQ(Search(0x2000, 0x1000, "AAB", 0), 0x104u);
}

TEST(MemSearch, TheSearchLoadsEachPageOnceAsItNeedsIt) {
    OpenBoard("intel");
    PokeText(0x3FFD, "needle"); // across two borders of the range's pages
    EXPECT_EQ(Search(0x2000, 0x4000, "needle", 0), 0x2003u);
    EXPECT_EQ(TakeLog(),
              Mapped("00002000", "1000") + Mapped("00003000", "1000") + Mapped("00004000", "1000"));
}

TEST(MemSearch, PagesOfTheSearchAreCountedFromTheStartOfTheRange) {
    OpenBoard("intel");
    PokeText(0x3100, "needle");
    EXPECT_EQ(Search(0x2800, 0x2000, "needle", 0), 0x906u);
    EXPECT_EQ(TakeLog(), Mapped("00002000", "1000") + Mapped("00003000", "1000")); // one page of the range
}

TEST(MemSearch, ASearchGoesOnFromItsPosition) {
    OpenBoard("intel");
    PokeText(0x2100, "needle");
    PokeText(0x3200, "needle");
    uint32_t position = 0;
    EXPECT_EQ(SearchFromMemReadByte(0x2000, 0x2000, "needle", &position, 1), 0u);
    EXPECT_EQ(position, 0x106u);
    EXPECT_EQ(SearchFromMemReadByte(0x2000, 0x2000, "needle", &position, 0), 0u);
    EXPECT_EQ(position, 0x1206u);
    EXPECT_EQ(SearchFromMemReadByte(0x2000, 0x2000, "needle", &position, 0), 0x8000000Eu);
    EXPECT_EQ(position, 0xFFFFFFFFu);
}

TEST(MemSearch, OnlyARestartOfOneSetsTheCountOfLoadedPagesBack) {
    OpenBoard("intel");
    PokeText(0x2100, "needle");
    uint32_t position = 0;
    SearchFromMemReadByte(0x2000, 0x1000, "needle", &position, 1);
    TakeLog();
    position = 0x800; // any restart begins at offset 0, but with the next page
    SearchFromMemReadByte(0x2000, 0x1000, "needle", &position, 2);
    EXPECT_EQ(TakeLog(), Mapped("00003000", "1000"));
}

TEST(MemSearch, TheCountOfLoadedPagesOutlivesACall) {
    OpenBoard("intel");
    uint32_t position = 0;
    SearchFromMemReadByte(0x2000, 0x1000, "needle", &position, 1);
    TakeLog();
    position = 0; // a new search that does not restart: the next page is loaded, not the first
    SearchFromMemReadByte(0x2000, 0x1000, "needle", &position, 0);
    EXPECT_EQ(TakeLog(), Mapped("00003000", "1000"));
}
