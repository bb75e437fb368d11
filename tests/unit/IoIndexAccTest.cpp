#include "Project/IoIndexAcc.h"

#include <gtest/gtest.h>

#include "Common/Global.h"
#include "Project/IoAcc.h"
#include "TestHelp.h"
#include "sim/Board.h"

// Runs the command and gives what it prints; its result is compared.
static std::string RunIndex(std::initializer_list<const char *> words, uint32_t status) {
    SetCommand(words);
    return Printed([&] { EXPECT_EQ(IoAccess(), status); });
}

// Ports 0x70 to 0x77 and 0x2E to 0x31 that keep what is written to them.
static void OpenPairs() {
    OpenBoard("intel", "latch 0070 8\nlatch 002e 4");
}

TEST(IoIndexAcc, BytesAreReadAndWritten) {
    OpenPairs();
    BoardSetPort(0x73, 0x5A);
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/RB", "0x72", "0x73", "0x10"}, 0x5A),
              "IOIndex/Data 72/73 offset 10 Read Byte: return data:0x5A\n");
    EXPECT_EQ(TakeLog(), Delays(2) + Log({"out8 0072 10", "in8 0073 -> 5a"}));
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/WB", "0x72", "0x73", "0x10", "0x1A5"}, 0xA5),
              "IOIndex/Data 72/73 offset 10 Write Byte data:A5, return data:0xA5\n");
    EXPECT_EQ(TakeLog(), Delays(2) + Log({"out8 0072 10", "out8 0073 a5"}) + Delays(2) +
                             Log({"out8 0072 10", "in8 0073 -> a5"}));
}

TEST(IoIndexAcc, AWordBehindTheCmosPortsIsMadeOfTwoRegisters) {
    OpenPairs();
    BoardSetPort(0x71, 0x11);
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/RW", "0x70", "0x71", "0x10"}, 0x1111),
              "IOIndex/Data 70/71 offset 10 Read Word: return data:0x1111\n");
    EXPECT_EQ(TakeAccesses(),
              Delays(2) + Log({"out8 0070 11", "in8 0071"}) + Delays(2) + Log({"out8 0070 10", "in8 0071"}));
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/WW", "0x72", "0x73", "0x10", "0x1234"}, 0x3434),
              "IOIndex/Data 72/73 offset 10 Write Word data:1234, return data:0x3434\n");
    EXPECT_EQ(TakeAccesses(), Delays(2) + Log({"out8 0072 11", "out8 0073 12"}) + Delays(2) +
                                  Log({"out8 0072 10", "out8 0073 34"}) + Delays(2) +
                                  Log({"out8 0072 11", "in8 0073"}) + Delays(2) +
                                  Log({"out8 0072 10", "in8 0073"}));
}

TEST(IoIndexAcc, AWordBehindOtherPortsIsOneAccess) {
    OpenPairs();
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/RW", "0x2E", "0x2F", "0x10"}, 0),
              "IOIndex/Data 2E/2F offset 10 Read Word: return data:0x0000\n");
    EXPECT_EQ(TakeAccesses(), Delays(2) + Log({"out8 002e 10", "in16 002f"}));
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/WW", "0x2E", "0x30", "0x100", "0xBEEF"}, 0xBEEF),
              "IOIndex/Data 2E/30 offset 100 Write Word data:BEEF, return data:0xBEEF\n");
    EXPECT_EQ(TakeAccesses(), Delays(2) + Log({"out16 002e 0100", "out16 0030 beef"}) + Delays(2) +
                                  Log({"out16 002e 0100", "in16 0030"}));
}

TEST(IoIndexAcc, DwordsFollowTheSameRule) {
    OpenPairs();
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/WD", "0x70", "0x71", "0x10", "0x11223344"}, 0x44444444),
              "IOIndex/Data 70/71 offset 10 Write Dword data:11223344, return data:0x44444444\n");
    Log log = TakeAccesses();
    ASSERT_EQ(log.size(), 32u);
    EXPECT_EQ(log[2], "out8 0070 13");
    EXPECT_EQ(log[3], "out8 0071 11");
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/RD", "0x72", "0x73", "0x10"}, 0),
              "IOIndex/Data 72/73 offset 10 Read Dword: return data:0x00000000\n");
    EXPECT_EQ(TakeAccesses().size(), 16u);
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/WD", "0x2E", "0x74", "0x12345", "0xCAFE"}, 0xCAFE),
              "IOIndex/Data 2E/74 offset 12345 Write Dword data:0000CAFE, return data:0x0000CAFE\n");
    EXPECT_EQ(TakeAccesses(), Delays(2) + Log({"out32 002e 00012345", "out32 0074 0000cafe"}) + Delays(2) +
                                  Log({"out32 002e 00012345", "in32 0074"}));
}

TEST(IoIndexAcc, BitsAreReadAndWrittenWithTheOrdinaryAccesses) {
    OpenPairs();
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/WI", "0x70", "0x71", "0x0B", "7", "1"}, 1),
              "IOIndex/Data Write 70/71 offset B Bit7 wValue:1, return data:1\n");
    EXPECT_EQ(TakeLog(), Delays(2) + Log({"out8 0070 0b", "in8 0071 -> 00"}) + Delays(2) +
                             Log({"out8 0070 0b", "out8 0071 80"}) + Delays(2) +
                             Log({"out8 0070 0b", "in8 0071 -> 80"}));
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/RI", "0x70", "0x71", "0x0B", "12"}, 0),
              "IOIndex/Data Read 70/71 offset B Bit12: return data:0\n");
    EXPECT_EQ(TakeAccesses(), Delays(2) + Log({"out8 0070 0b", "in16 0071"}));
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/WI", "0x70", "0x71", "0x0B", "7", "256"}, 0),
              "IOIndex/Data Write 70/71 offset B Bit7 wValue:0, return data:0\n");
}

TEST(IoIndexAcc, ADataPortOfZeroIsTheOneBehindTheIndexPort) {
    OpenPairs();
    BoardSetPort(0x73, 0x77);
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/RB", "0x72", "0", "0x10"}, 0x77),
              "IOIndex/Data 72/73 offset 10 Read Byte: return data:0x77\n");
    TakeLog();
    RunIndex({"hwreg", "/IO", "/INDEX", "/RB", "0", "0", "5"}, 0xFF);
    EXPECT_EQ(TakeAccesses(), Delays(2) + Log({"out8 0000 05", "in8 0000"}));
}

TEST(IoIndexAcc, TheFirstWordThatNamesAnAccessDecides) {
    OpenPairs();
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/RB", "0x72", "0x73", "0x10", "/WI"}, 0),
              "IOIndex/Data 72/73 offset 10 Read Byte: return data:0x00\n");
    EXPECT_EQ(RunIndex({"hwreg", "/RW", "0x2E", "0x2F", "0x10", "/INDEX", "/IO", "/RB"}, 0),
              "IOIndex/Data 2E/2F offset 10 Read Word: return data:0x0000\n");
    TakeLog();
    EXPECT_EQ(RunIndex({"RB", "/IO", "/INDEX"}, 0x80000002), ""); // the program name is no access
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/RQ", "0x70"}, 0x80000002), "");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(IoIndexAcc, TheDumpShowsAllRegistersOnOnePlainPage) {
    OpenPairs();
    FeedInput("x");
    std::string text =
        RunIndex({"hwreg", "/IO", "/INDEX", "/DUMP", "0x70", "0x70"}, 0); // each reads as its number
    EXPECT_EQ(text.find("ESC: quite, Enter: continue IOIndex/Data 70/70\n   00 01 02"), 0u);
    EXPECT_NE(text.find("\r\n0F F0 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF       "), std::string::npos);
    EXPECT_EQ(text.find('\033'), std::string::npos);
    EXPECT_EQ(InputLeft(), "x"); // the prompt is never acted on
    EXPECT_NE(gCmdArg->DispFlags & DISP_LOG, 0);
    EXPECT_EQ(TakeLog().size(), 256u * 4);
}

TEST(IoIndexAcc, ASilentDumpReadsAllRegisters) {
    OpenPairs();
    EXPECT_EQ(RunIndex({"hwreg", "/IO", "/INDEX", "/DUMP", "0x70", "0x71", "/NOMSG"}, 0), "");
    Log log = TakeAccesses();
    ASSERT_EQ(log.size(), 256u * 4);
    EXPECT_EQ(log[1022], "out8 0070 ff");
}

TEST(IoIndexAcc, TheDumpNeedsItsBuffer) {
    OpenPairs();
    SetCommand({"hwreg", "/IO", "/INDEX", "/DUMP", "0x70"});
    LimitMalloc(255);
    EXPECT_EQ(IoIndexAccess(), 0x80000005u);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(IoIndexAcc, TheDumpReleasesItsBuffer) {
    OpenBoard("intel");
    FeedInput("");
    SetCommand({"hwreg", "/IO", "/INDEX", "/DUMP", "0x70"});
    long held = BlocksHeld();
    Printed([] { IoIndexAccess(); });
    EXPECT_EQ(BlocksHeld(), held);
}
