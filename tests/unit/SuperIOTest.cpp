#include "Project/SuperIO.h"

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

// Runs the command and gives what it prints; its result is compared.
static std::string RunSio(std::initializer_list<const char *> words, EFI_STATUS status) {
    SetCommand(words);
    return Printed([&] { EXPECT_EQ(SioListReg(), status); });
}

// Ports 0x4E and 0x4F that keep what is written to them.
static void OpenPair() {
    OpenBoard("intel", "latch 004e 2");
}

static Log Unlocked(const Log &accesses) {
    return Log{"out8 004e a5", "out8 004e a5"} + accesses + Log{"out8 004e aa"};
}

static Log Register(const std::string &index, const std::string &access) {
    return Delays(2) + Log{"out8 004e " + index, access};
}

TEST(SuperIO, HelpDoesNotTouchTheChip) {
    OpenPair();
    EXPECT_EQ(RunSio({"hwreg", "/SIO", "/DUMP", "/?"}, 0x80000002), " /SIO /dump: Dump SuperIO Reg\n");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(SuperIO, WithoutASwitchTheChipIsUnlockedAndLocked) {
    OpenPair();
    EXPECT_EQ(RunSio({"hwreg", "/SIO"}, 0), "");
    EXPECT_EQ(TakeLog(), Unlocked({}));
}

TEST(SuperIO, ByteReadsReportWithTheWordingOfAWrite) {
    OpenPair();
    BoardSetPort(0x4F, 0x5A);
    EXPECT_EQ(RunSio({"hwreg", "/SIO", "/RB", "0x20"}, 0), "SIO Write Data to 0x20, data = 0x5A\n");
    EXPECT_EQ(TakeLog(), Unlocked(Register("20", "in8 004f -> 5a")));
}

TEST(SuperIO, ByteWritesReadBack) {
    OpenPair();
    EXPECT_EQ(RunSio({"hwreg", "/SIO", "/WB", "0x07", "0x0B"}, 0), "SIO Write Data to 0x7, data = 0xB\n");
    EXPECT_EQ(TakeLog(), Unlocked(Register("07", "out8 004f 0b") + Register("07", "in8 004f -> 0b")));
}

TEST(SuperIO, BitsAreReadAndWritten) {
    OpenPair();
    EXPECT_EQ(RunSio({"hwreg", "/SIO", "/WI", "0x30", "0", "256"}, 0),
              "SIO Write Data to 0x30, data = 0x1\n");
    EXPECT_EQ(TakeLog(), Unlocked(Register("30", "in8 004f -> 00") + Register("30", "out8 004f 01") +
                                  Register("30", "in8 004f -> 01")));
    EXPECT_EQ(RunSio({"hwreg", "/SIO", "/RI", "0x30", "1"}, 0), "SIO Write Data to 0x30, data = 0x0\n");
}

TEST(SuperIO, EveryAccessThatIsNamedIsMadeAndTheLastOneReported) {
    OpenPair();
    EXPECT_EQ(RunSio({"hwreg", "/SIO", "/WB", "0x30", "1", "/RB", "0x30"}, 0),
              "SIO Write Data to 0x30, data = 0x1\n");
    EXPECT_EQ(TakeLog(), Unlocked(Register("30", "out8 004f 01") + Register("30", "in8 004f -> 01") +
                                  Register("30", "in8 004f -> 01")));
    EXPECT_EQ(RunSio({"hwreg", "/SIO", "/RI", "0x22", "0", "/RB", "0x21", "/WI", "0x20", "1", "1", "/WB",
                      "0x23", "0"},
                     0),
              "SIO Write Data to 0x22, data = 0x0\n");
    EXPECT_EQ(TakeAccesses(),
              Unlocked(Register("23", "out8 004f 00") + Register("23", "in8 004f") +
                       Register("20", "in8 004f") + Register("20", "out8 004f 02") +
                       Register("20", "in8 004f") + Register("21", "in8 004f") + Register("22", "in8 004f")));
}

TEST(SuperIO, TheDwordReadSwitchChoosesTheWordingOfARead) {
    OpenPair();
    EXPECT_EQ(RunSio({"hwreg", "/SIO", "/RD"}, 0), "SIO Read from 0x0, data = 0x0, ");
    EXPECT_EQ(TakeLog(), Unlocked({}));
    EXPECT_EQ(RunSio({"hwreg", "/SIO", "/RW", "0x20"}, 0), "SIO Write Data to 0x0, data = 0x0\n");
    BoardSetPort(0x4F, 0x5A);
    EXPECT_EQ(RunSio({"hwreg", "/SIO", "/RB", "0x20", "/RD"}, 0), "SIO Read from 0x20, data = 0x5A, ");
}

// The devices that a dump selects, in order.
static std::string Selected(const Log &log) {
    std::string devices;
    for (size_t i = 0; i + 1 < log.size(); ++i) {
        if (log[i] == "out8 004e 07" && log[i + 1].substr(0, 10) == "out8 004f ")
            devices += log[i + 1].substr(10) + " ";
    }
    return devices;
}

TEST(SuperIO, TheDumpShowsTheListedDevicesInOrder) {
    OpenPair();
    FeedInput("123456789x");
    std::string text = RunSio({"hwreg", "/SIO", "/DUMP", "/TEXT"}, 0);
    Log log = TakeAccesses();
    EXPECT_EQ(Selected(log), "02 03 04 05 07 0b 0c 0d 0e ");
    ASSERT_EQ(log.size(), 3 + 9u * 257 * 4);
    EXPECT_EQ(log[0], "out8 004e a5");
    EXPECT_EQ(log[1], "out8 004e a5");
    EXPECT_EQ(log.back(), "out8 004e aa");
    EXPECT_EQ(text.substr(0, 8), "   00 01"); // no line names the device
    EXPECT_EQ(InputLeft(), "x");
}

TEST(SuperIO, EscStopsTheListOfDevices) {
    OpenPair();
    FeedInput("\033x");
    RunSio({"hwreg", "/SIO", "/DUMP", "/TEXT"}, 0);
    Log log = TakeAccesses();
    EXPECT_EQ(Selected(log), "02 ");
    EXPECT_EQ(log.back(), "out8 004e aa");
    EXPECT_EQ(InputLeft(), "x");
}

TEST(SuperIO, AccessesWinOverTheDump) {
    OpenPair();
    EXPECT_EQ(RunSio({"hwreg", "/SIO", "/DUMP", "/RB", "0x20"}, 0), "SIO Write Data to 0x20, data = 0x0\n");
    EXPECT_EQ(TakeAccesses(), Unlocked(Register("20", "in8 004f")));
}

TEST(SuperIO, TheDumpNeedsItsBufferAndLocksTheChipWithoutIt) {
    OpenPair();
    SetCommand({"hwreg", "/SIO", "/DUMP"});
    LimitMalloc(255);
    EXPECT_EQ(SioListReg(), 0x80000005u);
    EXPECT_EQ(TakeLog(), Unlocked({}));
}

TEST(SuperIO, TheDumpReleasesItsBuffer) {
    OpenBoard("intel");
    FeedInput("");
    SetCommand({"hwreg", "/SIO", "/DUMP", "/LOG"});
    long held = BlocksHeld();
    Printed([] { SioListReg(); });
    EXPECT_EQ(BlocksHeld(), held);
}
