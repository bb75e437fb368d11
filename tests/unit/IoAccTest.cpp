#include "Project/IoAcc.h"

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

// Runs the command and gives what it prints; its result is compared.
static std::string RunIo(std::initializer_list<const char *> words, uint32_t status) {
    SetCommand(words);
    return Printed([&] { EXPECT_EQ(IoAccess(), status); });
}

TEST(IoAcc, HelpPrintsSixLinesWithoutTouchingHardware) {
    OpenBoard("intel");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/RB", "0x80", "/H", "/INDEX"}, 0x80000002),
              " /IO /RB(RW/RD) 0x80: Read 1-BYTE(WROD/DWORD) from IO 80h port\n"
              " /IO /WB(WW/WD) 0x80 0x12: Write 1-BYTE(WROD/DWORD) 0x12 to 80h port\n"
              " /IO /DUMP 0x500: Dump IO data from 0x500\n"
              " /IO /INDEX /RB 0x72 0x73 0x10: Read 1-BYTE from IO port 72h/73h 0x10\n"
              " /IO /INDEX /DUMP 0x70 0x71: Dump IO Index data from 0x70/0x71\n"
              " /IO /RF IO.bin 0 0x100: Dump IO from 0 t0 0x100 to IO.bin file\n");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(IoAcc, WithoutAnAccessNothingIsPrinted) {
    OpenBoard("intel");
    EXPECT_EQ(RunIo({"hwreg", "/IO"}, 0x80000002), "");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/RQ", "0x80"}, 0x80000002), "");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/WQ", "0x80", "1"}, 0x80000002), "");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(IoAcc, ReadsReportThePortAndReturnTheValue) {
    OpenBoard("intel", "latch 0cf0 4");
    BoardSetPort(0x80, 0x5A);
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/RB", "0x80"}, 0x5A), "IO Read Byte Port: 80, return data:0x5A\n");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/RW", "0x80"}, 0x005A), "IO Read Word Port: 80, return data:0x005A\n");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/RD", "0x0CF0"}, 0),
              "IO Read Dword Port: CF0, return data:0x00000000\n");
    EXPECT_EQ(TakeLog(), (Log{"in8 0080 -> 5a", "in16 0080 -> 005a", "in32 0cf0 -> 00000000"}));
}

TEST(IoAcc, WritesReadBack) {
    OpenBoard("intel");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/WB", "0x80", "0x1234"}, 0x34),
              "IO Write Byte Port:80 Data: 34, return data:0x34\n");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/WW", "0x80", "0x12345"}, 0x2345),
              "IO Write Word Port:80 Data: 2345, return data:0x2345\n");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/WD", "0x80", "0xBEEF"}, 0xBEEF),
              "IO Write Dword Port:80 Data: 0000BEEF, return data:0x0000BEEF\n");
    EXPECT_EQ(TakeLog(), (Log{"out8 0080 34", "in8 0080 -> 34", "out16 0080 2345", "in16 0080 -> 2345",
                              "out32 0080 0000beef", "in32 0080 -> 0000beef"}));
}

TEST(IoAcc, APortIsUsedAndPrintedModulo0x10000) {
    OpenBoard("intel");
    BoardSetPort(0x80, 0x5A);
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/RB", "0x10080"}, 0x5A), "IO Read Byte Port: 80, return data:0x5A\n");
}

TEST(IoAcc, BitsAreReadAndWritten) {
    OpenBoard("intel", "latch 0061 4");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/WI", "0x61", "1", "2"}, 1),
              "IO Write Port:61 Bit1, wValue:2, return data:1\n");
    EXPECT_EQ(TakeLog(), (Log{"in8 0061 -> 00", "out8 0061 02", "in8 0061 -> 02"}));
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/RI", "0x61", "1"}, 1), "IO Read Port: 61 Bit1, return data:1\n");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/WI", "0x61", "1", "256"}, 0),
              "IO Write Port:61 Bit1, wValue:0, return data:0\n");
    EXPECT_EQ(BoardGetPort(0x61), 0);
}

TEST(IoAcc, ABitNumberAbove31MakesNoAccess) {
    OpenBoard("intel");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/RI", "0x61", "40"}, 0), "IO Read Port: 61 Bit40, return data:0\n");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/WI", "0x61", "40", "1"}, 0),
              "IO Write Port:61 Bit40, wValue:1, return data:0\n");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(IoAcc, ReadAndWriteSwitchTogether) {
    OpenBoard("intel");
    // A bit is then only read, a byte is written under the wording of a read; the operands follow the write
    // switch.
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/RI", "/WI", "0x80", "0", "1"}, 0),
              "IO Read Port: 80 Bit0, return data:0\n");
    EXPECT_EQ(TakeLog(), (Log{"in8 0080 -> 00"}));
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/RB", "/WB", "0x80", "0x77"}, 0x77),
              "IO Read Byte Port: 80, return data:0x77\n");
    EXPECT_EQ(TakeLog(), (Log{"out8 0080 77", "in8 0080 -> 77"}));
}

TEST(IoAcc, TheDumpShows256PortsAPageUntilEsc) {
    OpenBoard("intel");
    FeedInput("\n\033x");
    std::string text = RunIo({"hwreg", "/IO", "/DUMP", "0x500", "/TEXT"}, 0);
    size_t second = text.find("ESC: quite, Enter: continue IoAddress:0600\n");
    EXPECT_EQ(text.find("ESC: quite, Enter: continue IoAddress:0500\n"), 0u);
    ASSERT_NE(second, std::string::npos);
    EXPECT_NE(text.find("0F F0 F1 F2"), std::string::npos);
    EXPECT_GT(text.find("00 FF FF FF"), second);
    EXPECT_EQ(InputLeft(), "x");
    Log log = TakeAccesses();
    ASSERT_EQ(log.size(), 512u);
    EXPECT_EQ(log[0], "in8 0500");
    EXPECT_EQ(log[511], "in8 06ff");
}

TEST(IoAcc, TheDumpEndsBeforePortFFFFWhichIsReadAndNotShown) {
    OpenBoard("intel");
    FeedInput("ab");
    std::string text = RunIo({"hwreg", "/IO", "/DUMP", "0xFF80", "/TEXT"}, 0);
    EXPECT_EQ(text.find("ESC: quite, Enter: continue IoAddress:FF80\n"), 0u);
    const std::string tail = "07 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF          ...............\r\n";
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    EXPECT_EQ(InputLeft(), "b");
    Log log = TakeAccesses();
    ASSERT_EQ(log.size(), 128u);
    EXPECT_EQ(log[127], "in8 ffff");
}

TEST(IoAcc, ALoggedDumpRunsToTheLastPort) {
    OpenBoard("intel");
    OpenKeyboard();
    std::string text = RunIo({"hwreg", "/IO", "/DUMP", "0xFD00", "/TEXT", "/LOG"}, 0);
    EXPECT_NE(text.find("IoAddress:FF00\n"), std::string::npos);
    EXPECT_EQ(TakeLog().size(), 0x300u);
}

TEST(IoAcc, ASilentDumpReadsOnePage) {
    OpenBoard("intel");
    EXPECT_EQ(RunIo({"hwreg", "/IO", "/DUMP", "0x500", "/NOMSG"}, 0), "");
    EXPECT_EQ(TakeLog().size(), 256u);
}

TEST(IoAcc, TheDumpNeedsItsBuffer) {
    OpenBoard("intel");
    SetCommand({"hwreg", "/IO", "/DUMP", "0x500"});
    LimitMalloc(255);
    EXPECT_EQ(IoAccess(), 0x80000005u);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(IoAcc, TheDumpReleasesItsBuffer) {
    OpenBoard("intel");
    FeedInput("");
    SetCommand({"hwreg", "/IO", "/DUMP", "0xFF80", "/LOG"});
    long held = BlocksHeld();
    Printed([] { IoAccess(); });
    EXPECT_EQ(BlocksHeld(), held);
}
