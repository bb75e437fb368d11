#include "Project/MemAcc.h"

#include <cstring>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

// Runs the command and gives what it prints; its result is compared.
static std::string RunMem(std::initializer_list<const char *> words, uint32_t status) {
    SetCommand(words);
    return Printed([&] { EXPECT_EQ(MemAccess(), status); });
}

static void PokeText(uint32_t address, const char *text) {
    BoardPoke(address, text, strlen(text));
}

TEST(MemAcc, HelpPrintsFourLinesWithoutTouchingHardware) {
    OpenBoard("intel");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RB", "0x1000", "/?"}, 0x80000002),
              " /MEM /WD [MemAddr] [Data]: Write1-DWORD Data to MemAddr\n"
              " /MEM /RB 0xFF550: Read 1-BYTE from memory 0xFF550\n"
              " /MEM /DUMP 0xFF550: Dump memory data from 0xFF550\n"
              " /MEM /RF SMBIOS.bin 0xFF550 0x100: Dump 256 bytes to SMBIOS.bin\n");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(MemAcc, WithoutAnAccessNothingIsPrinted) {
    OpenBoard("intel");
    EXPECT_EQ(RunMem({"hwreg", "/MEM"}, 0x80000002), "");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RQ", "0x1000"}, 0x80000002), "");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(MemAcc, ReadsReportTheAddressAndReturnTheValue) {
    OpenBoard("intel", "watch 00001000 00001000");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RB", "0x1235"}, 0x12),
              "Memory Read Byte MemAddr: 1235, return data:0x12\n");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RW", "0x1234"}, 0x1234),
              "Memory Read Word MemAddr: 1234, return data:0x1234\n");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RD", "0x1234"}, 0x1234),
              "Memory Read Dword MemAddr: 1234, return data:0x00001234\n");
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mr8 00001235 -> 12"}) +
                             Mapped("00001000", "2000", {"mr16 00001234 -> 1234"}) +
                             Mapped("00001000", "2000", {"mr32 00001234 -> 00001234"}));
}

TEST(MemAcc, WritesReadBack) {
    OpenBoard("intel", "watch 00001000 00001000");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/WB", "0x1000", "0x1234"}, 0x34),
              "Memory Write Byte MemAddr: 1000 Data:34, return data:0x34\n");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/WW", "0x1000", "0x12345"}, 0x2345),
              "Memory Write Word MemAddr: 1000 Data:2345, return data:0x2345\n");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/WD", "0x1000", "0xBEEF"}, 0xBEEF),
              "Memory Write Dword MemAddr: 1000 Data:0000BEEF, return data:0x0000BEEF\n");
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mw8 00001000 34"}) +
                             Mapped("00001000", "2000", {"mr8 00001000 -> 34"}) +
                             Mapped("00001000", "2000", {"mw16 00001000 2345"}) +
                             Mapped("00001000", "2000", {"mr16 00001000 -> 2345"}) +
                             Mapped("00001000", "2000", {"mw32 00001000 0000beef"}) +
                             Mapped("00001000", "2000", {"mr32 00001000 -> 0000beef"}));
}

TEST(MemAcc, AddressesHave32Bits) {
    OpenBoard("intel");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RB", "0x100000000"}, 0x53),
              "Memory Read Byte MemAddr: 0, return data:0x53\n");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RB", "0xFFFFFFFE"}, 0xFC),
              "Memory Read Byte MemAddr: FFFFFFFE, return data:0xFC\n");
}

TEST(MemAcc, BitsAreReadAndWritten) {
    OpenBoard("intel");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/WI", "0x1000", "3", "1"}, 1),
              "Memory Write MemAddr: 1000 Bit3 wValue:1, return data:1\n"); // no comma before wValue
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RI", "0x1000", "3"}, 1),
              "Memory Read MemAddr: 1000 Bit3, return data:1\n");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/WI", "0x1000", "3", "256"}, 0),
              "Memory Write MemAddr: 1000 Bit3 wValue:0, return data:0\n");
    TakeLog();
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RI", "0x1000", "32"}, 0),
              "Memory Read MemAddr: 1000 Bit32, return data:0\n");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(MemAcc, ReadAndWriteSwitchTogether) {
    OpenBoard("intel");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RI", "/WI", "0x1000", "0", "1"}, 1),
              "Memory Read MemAddr: 1000 Bit0, Memory Write MemAddr: 1000 Bit0 wValue:1, return data:1\n");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RB", "/WB", "0x1000", "0x77"}, 0x77),
              "Memory Read Byte MemAddr: 1000, return data:0x77\n");
}

TEST(MemAcc, MemoryThatCannotBeReadShowsItsFailureValues) {
    OpenBoard("refusedmap");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RB", "0xE0000000"}, 0xFF),
              "Memory Read Byte MemAddr: E0000000, return data:0xFF\n");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RD", "0xE0000000"}, 0xFFFF),
              "Memory Read Dword MemAddr: E0000000, return data:0x0000FFFF\n");
    OpenBoard("nomem");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RB", "0x1000"}, 0xFF),
              "Memory Read Byte MemAddr: 1000, return data:0xFF\n");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/RD", "0x1000"}, 0xFFFFFFFF),
              "Memory Read Dword MemAddr: 1000, return data:0xFFFFFFFF\n");
}

TEST(MemAcc, TheDumpShows256BytesAPageUntilEsc) {
    OpenBoard("intel");
    FeedInput("\n\033x");
    std::string text = RunMem({"hwreg", "/MEM", "/DUMP", "0x1000", "/TEXT"}, 0);
    EXPECT_EQ(text.find("ESC: quite, Enter: continue MemAddress:1000\n"), 0u);
    EXPECT_NE(text.find("\r\n00 00 10 00 00 04 10 00 00 "), std::string::npos);
    EXPECT_NE(text.find("ESC: quite, Enter: continue MemAddress:1100\n"), std::string::npos);
    EXPECT_EQ(InputLeft(), "x");
    EXPECT_EQ(TakeLog(), Mapped("00001000", "1000") + Mapped("00001000", "1000"));
}

TEST(MemAcc, TheDumpFlagWinsOverAccesses) {
    OpenBoard("intel");
    FeedInput("\033");
    std::string text = RunMem({"hwreg", "/MEM", "/RB", "0x1000", "/DUMP", "0x2000"}, 0);
    EXPECT_EQ(text.find("ESC: quite, Enter: continue MemAddress:2000\n"), 0u);
}

TEST(MemAcc, TheDumpEndsAt4GiB) {
    OpenBoard("intel");
    FeedInput("ab");
    std::string text = RunMem({"hwreg", "/MEM", "/DUMP", "0xFFFFFF80", "/TEXT"}, 0);
    EXPECT_EQ(text.find("ESC: quite, Enter: continue MemAddress:FFFFFF80\n"), 0u);
    EXPECT_NE(text.find("\r\n07 EA 5B E0 00 F0"), std::string::npos);
    EXPECT_EQ(text.find("\r\n08 "), std::string::npos);
    EXPECT_EQ(InputLeft(), "b");
    RunMem({"hwreg", "/MEM", "/DUMP", "0xFFFFFF00", "/TEXT"}, 0);
    EXPECT_EQ(InputLeft(), "");
}

TEST(MemAcc, ASilentDumpReadsOnePage) {
    OpenBoard("intel");
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/DUMP", "0x1000", "/NOMSG"}, 0), "");
    EXPECT_EQ(TakeLog(), Mapped("00001000", "1000"));
}

TEST(MemAcc, TheDumpNeedsItsBuffer) {
    OpenBoard("intel");
    SetCommand({"hwreg", "/MEM", "/DUMP", "0x1000"});
    LimitMalloc(255);
    EXPECT_EQ(MemAccess(), 0x80000005u);
    EXPECT_EQ(TakeLog(), Log{});
}

// Sets the count of loaded pages back, which otherwise lasts as long as the process.
static void RestartSearch() {
    uint32_t position = 0;
    SearchFromMemReadByte(0, 0, "x", &position, 1);
}

TEST(MemAcc, TheSearchNamesTheHitsTwoALine) {
    OpenBoard("intel");
    PokeText(0xF0010, "_SM_");
    PokeText(0xF1020, "_SM_");
    PokeText(0xF3FFE, "_SM_"); // across a page border
    RestartSearch();
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/S", "0xF0000", "0x10000", "_SM_"}, 0x8000000E),
              "<- (Ctrl+C: abort!)  searching: _SM_ ->\n"
              " (0001) _SM_ return address: 000F0010  (0002) _SM_ return address: 000F1020 \n"
              " (0003) _SM_ return address: 000F3FFE ");
}

TEST(MemAcc, AfterAHitTheRestOfItsPageIsNotSearched) {
    OpenBoard("intel");
    PokeText(0xF0010, "_SM_ and _SM_ again");
    PokeText(0xF1000, "_SM_");
    RestartSearch();
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/S", "0xF0000", "0x2000", "_SM_"}, 0x8000000E),
              "<- (Ctrl+C: abort!)  searching: _SM_ ->\n"
              " (0001) _SM_ return address: 000F0010  (0002) _SM_ return address: 000F1000 \n");
}

TEST(MemAcc, TheSearchedTextKeepsItsCase) {
    OpenBoard("intel");
    PokeText(0x2100, "Abc");
    RestartSearch();
    EXPECT_EQ(RunMem({"hwreg", "/mem", "/s", "0x2000", "0x1000", "Abc"}, 0x8000000E),
              "<- (Ctrl+C: abort!)  searching: Abc ->\n (0001) Abc return address: 00002100 ");
    RestartSearch();
    EXPECT_EQ(RunMem({"hwreg", "/mem", "/s", "0x2000", "0x1000", "ABC"}, 0x8000000E),
              "<- (Ctrl+C: abort!)  searching: ABC ->\n");
}

TEST(MemAcc, AHitThatEndsTheRangeIsAStatusAndNotPrinted) {
    OpenBoard("intel");
    PokeText(0x20FC, "_SM_");
    RestartSearch();
    EXPECT_EQ(RunMem({"hwreg", "/MEM", "/S", "0x2000", "0x100", "_SM_"}, 0x80000015),
              "<- (Ctrl+C: abort!)  searching: _SM_ ->\n");
}

TEST(MemAcc, AMissingTextIsInvalid) {
    OpenBoard("intel");
    RestartSearch();
    RunMem({"hwreg", "/MEM", "/S", "0x2000", "0x100"}, 0x80000002);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(MemAcc, ASearchWordThatIsTheProgramNameIsNoSearch) {
    OpenBoard("intel");
    EXPECT_EQ(RunMem({"S", "/MEM"}, 0x8000000E), "ERROR:Make sure format is correct!\n");
}

// Searches from the start of the range; the status is compared and the position returned.
static uint32_t Search(uint32_t start, uint32_t length, const char *pattern, EFI_STATUS status) {
    uint32_t position = 12345;
    EXPECT_EQ(SearchFromMemReadByte(start, length, pattern, &position, 1), status);
    return position;
}

TEST(MemAcc, TheSearchPositionIsJustPastTheMatch) {
    OpenBoard("intel");
    PokeText(0x2100, "needle");
    EXPECT_EQ(Search(0x2000, 0x1000, "needle", 0), 0x106u);
    EXPECT_EQ(Search(0x2000, 0x107, "needle", 0), 0x106u);
    EXPECT_EQ(Search(0x2000, 0x106, "needle", 0x80000015), 0x106u);
    EXPECT_EQ(Search(0x2000, 0x105, "needle", 0x8000000E), 0xFFFFFFFFu);
    EXPECT_EQ(Search(0x2000, 0x1000, "haystack", 0x8000000E), 0xFFFFFFFFu);
    EXPECT_EQ(Search(0x2000, 0, "needle", 0x8000000E), 0xFFFFFFFFu);
}

TEST(MemAcc, ASearchOfNoPatternIsInvalid) {
    OpenBoard("intel");
    EXPECT_EQ(Search(0x2000, 0x1000, nullptr, 0x80000002), 12345u);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(MemAcc, TheSearchMissesAMatchInsideAPartialOne) {
    OpenBoard("intel");
    PokeText(0x2100, "AAAB");
    EXPECT_EQ(Search(0x2000, 0x1000, "AAB", 0x8000000E), 0xFFFFFFFFu);
    PokeText(0x2200, "xxyx"); // the byte that broke the match does not begin another one
    EXPECT_EQ(Search(0x2200, 0x10, "xy", 0x8000000E), 0xFFFFFFFFu);
    PokeText(0x2100, "xAAB");
    EXPECT_EQ(Search(0x2000, 0x1000, "AAB", 0), 0x104u);
}

TEST(MemAcc, TheSearchLoadsEachPageOnceAsItNeedsIt) {
    OpenBoard("intel");
    PokeText(0x3FFD, "needle"); // across two borders of the range's pages
    EXPECT_EQ(Search(0x2000, 0x4000, "needle", 0), 0x2003u);
    EXPECT_EQ(TakeLog(),
              Mapped("00002000", "1000") + Mapped("00003000", "1000") + Mapped("00004000", "1000"));
}

TEST(MemAcc, PagesOfTheSearchAreCountedFromTheStartOfTheRange) {
    OpenBoard("intel");
    PokeText(0x3100, "needle");
    EXPECT_EQ(Search(0x2800, 0x2000, "needle", 0), 0x906u);
    EXPECT_EQ(TakeLog(), Mapped("00002000", "1000") + Mapped("00003000", "1000")); // one page of the range
}

TEST(MemAcc, ASearchGoesOnFromItsPosition) {
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

TEST(MemAcc, OnlyARestartOfOneSetsTheCountOfLoadedPagesBack) {
    OpenBoard("intel");
    PokeText(0x2100, "needle");
    uint32_t position = 0;
    SearchFromMemReadByte(0x2000, 0x1000, "needle", &position, 1);
    TakeLog();
    position = 0x800; // any restart begins at offset 0, but with the next page
    SearchFromMemReadByte(0x2000, 0x1000, "needle", &position, 2);
    EXPECT_EQ(TakeLog(), Mapped("00003000", "1000"));
}

TEST(MemAcc, TheCountOfLoadedPagesOutlivesACall) {
    OpenBoard("intel");
    uint32_t position = 0;
    SearchFromMemReadByte(0x2000, 0x1000, "needle", &position, 1);
    TakeLog();
    position = 0; // a new search that does not restart: the next page is loaded, not the first
    SearchFromMemReadByte(0x2000, 0x1000, "needle", &position, 0);
    EXPECT_EQ(TakeLog(), Mapped("00003000", "1000"));
}

TEST(MemAcc, TheDumpReleasesItsBuffer) {
    OpenBoard("intel");
    FeedInput("");
    SetCommand({"hwreg", "/MEM", "/DUMP", "0xFFFFFF80", "/LOG"});
    long held = BlocksHeld();
    Printed([] { MemAccess(); });
    EXPECT_EQ(BlocksHeld(), held);
}
