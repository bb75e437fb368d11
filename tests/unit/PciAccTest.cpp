#include "Project/PciAcc.h"

#include <cstdio>
#include <sstream>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

// Runs the command and gives what it prints; its result is compared.
static std::string RunPci(std::initializer_list<const char *> words, uint32_t status) {
    SetCommand(words);
    return Printed([&] { EXPECT_EQ(PciAccess(), status); });
}

TEST(PciAcc, HelpPrintsFourLinesWithoutTouchingHardware) {
    OpenBoard("intel");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/?", "/RB", "0", "0", "0", "0"}, 0x80000002),
              " /PCI /RB 0 0x1f 0 0: Read 1-BYTE from PCI B0D1FF0 offset 0\n"
              " /PCI /WB 0 0x1f 0 0x2C 0x12: Write 0x12 to B0D1FF0 offset 0x2C\n"
              " /PCI /DUMP /NOMSG: List all PCI controller without data message\n"
              " /PCI /DUMP /TEXT: Dump all PCI device data\n");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciAcc, WithoutAnAccessNothingIsPrinted) {
    OpenBoard("intel");
    EXPECT_EQ(RunPci({"hwreg", "/PCI"}, 0x80000002), "");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RQ", "0", "0", "0", "0"}, 0x80000002), "");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/WQ", "0", "0", "0", "0", "0"}, 0x80000002), "");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciAcc, ReadsReportTheValueAndReturnIt) {
    OpenBoard("intel");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RB", "0", "0", "0", "0"}, 0x86),
              "PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RW", "0", "0x1f", "0", "0"}, 0x8086),
              "PCI Read Word BDFO: 0 1F 0 0, return data:0x8086\n");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RD", "1", "0", "0", "0x14C"}, 0x12345678),
              "PCI Read DWord BDFO: 1 0 0 14C, return data:0x12345678\n");
}

TEST(PciAcc, WritesReadBack) {
    OpenBoard("intel");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/WB", "0", "0", "0", "0xDC", "0x1A5"}, 0xA5),
              "PCI Write Byte BDFO: 0 0 0 DC, Data:A5, return data:0xA5\n");
    EXPECT_EQ(TakeLog(), LegacyPci("800000dc", "out8 0cfc a5") + LegacyPci("800000dc", "in8 0cfc -> a5"));
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/WW", "0", "0", "0", "0xDC", "0x1234"}, 0x0034),
              "PCI Write Word BDFO: 0 0 0 DC, Data:1234, return data:0x0034\n");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/WD", "0", "0x1f", "0", "0x84", "0x003C0B01"}, 0x003C0B01),
              "PCI Write Dword BDFO: 0 1F 0 84, Data:003C0B01, return data:0x003C0B01\n");
    EXPECT_EQ(TakeAccesses().size(), 16u);
}

TEST(PciAcc, BitsAreReadAndWritten) {
    OpenBoard("intel");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RI", "0", "0", "0", "0", "1"}, 1),
              "PCI Read BDFO: 0 0 0 0 Bit1, return data:1\n");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/WI", "0", "0", "0", "0xDC", "7", "2"}, 1),
              "PCI Write BDFO: 0 0 0 DC Bit7, wValue:2, return data:1\n");
    EXPECT_EQ(BoardGetPci(0, 0xDC, 1), 0xDAu);
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/WI", "0", "0", "0", "0xDC", "7", "256"}, 0),
              "PCI Write BDFO: 0 0 0 DC Bit7, wValue:0, return data:0\n");
    TakeLog();
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/WI", "0", "0", "0", "0xDC", "40", "1"}, 0),
              "PCI Write BDFO: 0 0 0 DC Bit40, wValue:1, return data:0\n");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciAcc, ABitNumberIsKeptInItsLow8Bits) {
    OpenBoard("intel");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RI", "0", "0", "0", "0", "0x101"}, 1),
              "PCI Read BDFO: 0 0 0 0 Bit1, return data:1\n");
}

TEST(PciAcc, MissingOperandsAreZero) {
    OpenBoard("intel");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RB"}, 0x86), "PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RW", "0", "0x1f"}, 0x8086),
              "PCI Read Word BDFO: 0 1F 0 0, return data:0x8086\n");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/WB", "0", "0", "0", "0xDC"}, 0),
              "PCI Write Byte BDFO: 0 0 0 DC, Data:00, return data:0x00\n");
}

TEST(PciAcc, AnUnreachableRegisterReadsAllOnes) {
    OpenBoard("unknown");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RD", "1", "0", "0", "0x100"}, 0xFFFFFFFF),
              "PCI Read DWord BDFO: 1 0 0 100, return data:0xFFFFFFFF\n");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RB", "1", "0", "0", "0x1000"}, 0xFF),
              "PCI Read Byte BDFO: 1 0 0 1000, return data:0xFF\n");
}

TEST(PciAcc, BitsComeBeforeBytesWordsAndDwordsAndWritesBeforeReads) {
    OpenBoard("intel");
    // The bit access decides and gives the operands; every access flag that is set has its say in the line.
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RD", "/RI", "0", "0", "0", "0", "1"}, 1),
              "PCI Read BDFO: 0 0 0 0 Bit1, return data:1\n");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RB", "/WB", "0", "0", "0", "0xDC", "0x77"}, 0x77),
              "PCI Read Byte BDFO: 0 0 0 DC, return data:0x77\n");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RI", "/WI", "0", "0", "0", "0xDC", "7", "1"}, 1),
              "PCI Read BDFO: 0 0 0 DC Bit7, PCI Write BDFO: 0 0 0 DC Bit7, wValue:1, return data:1\n");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/RD", "/RW", "0", "0", "0", "0"}, 0x8086),
              "PCI Read Word BDFO: 0 0 0 0, return data:0x8086\n");
}

static std::string Aspm(uint16_t bus, uint16_t dev, uint16_t fun) {
    return Printed([&] { EXPECT_EQ(ReadPciAspm(bus, dev, fun), 0x8000000Eu); });
}

TEST(PciAcc, AspmShowsEachStateOfTheLink) {
    OpenBoard("intel");
    EXPECT_EQ(Aspm(0, 0x1C, 0), "DIS ");
    EXPECT_EQ(Aspm(0, 0x1C, 4), "L0S ");
    EXPECT_EQ(Aspm(0, 0x1C, 6), "L1  ");
    EXPECT_EQ(Aspm(0, 0x1C, 5), "L01 ");
}

TEST(PciAcc, AspmOfAConventionalFunctionIsNotApplicable) {
    OpenBoard("intel");
    EXPECT_EQ(Aspm(5, 1, 0), "NA  ");
    EXPECT_EQ(TakeAccesses(), LegacyPci("80050834", "in16 0cfc")); // no list
    EXPECT_EQ(Aspm(0, 0x14, 0), "NA  ");
    EXPECT_EQ(TakeLog(), LegacyPci("8000a034", "in16 0cfc -> 0070") +
                             LegacyPci("8000a070", "in16 0cfc -> 8001") +
                             LegacyPci("8000a080", "in16 0cfc -> 0005"));
}

TEST(PciAcc, AspmReadsTheByteAtLinkControl) {
    OpenBoard("intel");
    EXPECT_EQ(Aspm(1, 0, 0), "L1  ");
    Log log = TakeLog();
    EXPECT_EQ(Log(log.end() - 4, log.end()), LegacyPci("80010080", "in8 0cfc -> 42"));
}

TEST(PciAcc, TheAspmWalkStopsAtAnIdOfZeroAndAtTheEndOfACircle) {
    OpenBoard("intel");
    const uint16_t card = Function(5, 1, 0);
    BoardSetPci(card, 0x34, 1, 0x40);
    BoardSetPci(card, 0x40, 2, 0x5000);
    BoardSetPci(card, 0x50, 2, 0x0010);
    EXPECT_EQ(Aspm(5, 1, 0), "NA  ");
    OpenBoard("caploop");
    EXPECT_EQ(Aspm(0, 0x14, 0), "NA  ");
    EXPECT_EQ(Aspm(1, 0, 0), "NA  ");
}

static std::string Interrupt(uint16_t word) {
    BoardSetPci(0, 0x3C, 2, word);
    return Printed([] { EXPECT_EQ(ReadPciInterruptPL(0, 0, 0), 0u); });
}

TEST(PciAcc, InterruptLineAndPinHaveSixCharactersEach) {
    OpenBoard("intel");
    EXPECT_EQ(Interrupt(0x0000), "NONE  NONE  ");
    EXPECT_EQ(Interrupt(0x010B), "IRQ0B INTA  ");
    EXPECT_EQ(Interrupt(0x02FF), "IRQFF INTB  ");
    EXPECT_EQ(Interrupt(0x0310), "IRQ10 INTC  ");
    EXPECT_EQ(Interrupt(0x0401), "IRQ01 INTD  ");
    EXPECT_EQ(Interrupt(0x0500), "NONE  05    ");
    EXPECT_EQ(Interrupt(0xFF00), "NONE  FF    ");
    EXPECT_EQ(Interrupt(0x000F), "IRQ0F NULL  ");
    EXPECT_EQ(Interrupt(0x0100), "NONE  INTA  ");
    TakeLog();
    Interrupt(0x010B);
    EXPECT_EQ(TakeLog(), LegacyPci("8000003c", "in16 0cfc -> 010b"));
}

static std::string ClassName(uint16_t bus, uint16_t dev, uint16_t fun) {
    return Printed([&] { EXPECT_EQ(ShowPciClassType(bus, dev, fun), 0u); });
}

TEST(PciAcc, TheClassNameEndsTheLine) {
    OpenBoard("intel");
    EXPECT_EQ(ClassName(0, 0, 0), "Host Bridge\n");
    EXPECT_EQ(ClassName(0, 0x1F, 4), "SMBus Controller\n");
    EXPECT_EQ(ClassName(1, 0, 0), "Unknown PCI\n"); // 0108
    EXPECT_EQ(ClassName(6, 0, 7), "Unknown PCI\n"); // ff00
    EXPECT_EQ(ClassName(9, 0, 0), "Unknown PCI\n"); // absent: the table's own end mark
}

// The lines of a text.
static std::vector<std::string> LinesOf(const std::string &text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// How many functions the loaded board has.
static size_t FunctionCount() {
    size_t count = 0;
    for (unsigned function = 0; function < 0x10000; ++function) {
        if (BoardGetPci(static_cast<uint16_t>(function), 0, 4) != 0xFFFFFFFF)
            ++count;
    }
    return count;
}

TEST(PciAcc, TheListHasOneLineForEachPresentFunction) {
    OpenBoard("intel");
    std::vector<std::string> lines = LinesOf(RunPci({"hwreg", "/PCI", "/DUMP", "/NOMSG"}, 0));
    ASSERT_EQ(lines.size(), 1 + FunctionCount());
    EXPECT_EQ(lines[0], "Bus Dev Fun VID_DID  ASPM IRQ_L IRQ_P Class");
    EXPECT_EQ(lines[1], "00  00  00  80863E30 NA   NONE  NONE  Host Bridge");
    EXPECT_EQ(lines[2], "00  01  00  80861901 L1   IRQ10 INTA  PCI-to-PCI Bridge");
    EXPECT_EQ(lines.back(), "06  00  07  10B59051 NA   IRQ0F NULL  Unknown PCI");
    for (size_t i = 2; i < lines.size(); ++i)
        EXPECT_LT(lines[i - 1].substr(0, 10), lines[i].substr(0, 10)); // in bus, device, function order
}

TEST(PciAcc, TheListOfAMachineWithoutFunctionsIsEmpty) {
    OpenBoard("unknown", "pci-remove all");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/DUMP"}, 0), "");
}

TEST(PciAcc, Function0IsAlwaysProbedAndTheOthersOnlyOfAMultiFunctionDevice) {
    OpenBoard("unknown",
              "pci-remove all\npci 00:01.0 8086:1234 class 020000\npci 00:02.0 8086:5678 class 020000 multi");
    RunPci({"hwreg", "/PCI", "/DUMP", "/NOMSG"}, 0);
    // What is read of each function between its address writes, in order.
    std::string probes;
    for (const std::string &line : TakeLog()) {
        unsigned address;
        if (sscanf(line.c_str(), "out32 0cf8 %x", &address) != 1 || (address & 0x7FFFFFFF) >= 0x1800)
            continue;
        unsigned offset = address & 0xFF;
        if (offset == 0x0E || offset == 0x00 || offset == 0x02) {
            char text[16];
            snprintf(text, sizeof(text), "%x.%x:%02x ", address >> 11 & 31, address >> 8 & 7, offset);
            probes += text;
        }
    }
    const std::string absent = "0.0:0e 0.0:00 0.0:02 0.0:0e ";
    // a present function: header, the two numbers, and the three bytes again among the 256 of the dump
    const std::string single = "1.0:0e 1.0:00 1.0:02 1.0:00 1.0:02 1.0:0e 1.0:0e ";
    const std::string first = "2.0:0e 2.0:00 2.0:02 2.0:00 2.0:02 2.0:0e ";
    std::string others;
    for (char fun = '1'; fun <= '7'; ++fun)
        others += std::string("2.") + fun + ":00 2." + fun + ":02 ";
    EXPECT_EQ(probes, absent + single + first + others);
}

TEST(PciAcc, AFunctionIsPresentUnlessOneOfItsNumbersIsAllOnes) {
    OpenBoard(
        "unknown",
        "pci-remove all\npci 00:01.0 8086:ffff class 020000\npci 00:02.0 ffff:8086 class 020000 verbatim\n"
        "pci 00:03.0 8086:8086 class 020000");
    std::vector<std::string> lines = LinesOf(RunPci({"hwreg", "/PCI", "/DUMP", "/NOMSG"}, 0));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], "00  03  00  80868086 NA   NONE  NONE  Ethernet Controller");
}

TEST(PciAcc, TheDumpShowsEachFunctionsFirst256Bytes) {
    OpenBoard("unknown",
              "pci-remove all\npci 00:01.0 8086:1234 class 020000\npci 00:02.0 8086:5678 class 020000");
    FeedInput("ab");
    std::string text = RunPci({"hwreg", "/PCI", "/DUMP", "/TEXT"}, 0);
    std::vector<std::string> lines = LinesOf(text);
    ASSERT_EQ(lines.size(), 1u + 2 * (1 + 1 + 16));
    EXPECT_EQ(lines[1], "00  01  00  80861234 NA   NONE  NONE  Ethernet Controller");
    EXPECT_EQ(lines[3].substr(0, 15), "00 86 80 34 12 ");
    EXPECT_EQ(lines[18].substr(0, 6), "0F 00 ");
    EXPECT_EQ(lines[21].substr(0, 15), "00 86 80 78 56 ");
    EXPECT_EQ(InputLeft(), "");
}

TEST(PciAcc, EscEndsTheListing) {
    OpenBoard("intel");
    FeedInput("a\033b");
    std::string text = RunPci({"hwreg", "/PCI", "/DUMP", "/TEXT"}, 0);
    EXPECT_EQ(LinesOf(text).size(), 1u + 2 * (1 + 1 + 16)); // two functions, then the listing stops
    EXPECT_EQ(InputLeft(), "b");
}

TEST(PciAcc, ConfigurationBytesAreReadOneByOne) {
    OpenBoard("intel");
    RunPci({"hwreg", "/PCI", "/NOMSG", "/DUMP", "0", "0x1f", "4"}, 0);
    Log log = TakeAccesses();
    unsigned bytes = 0;
    for (size_t i = 0; i + 1 < log.size(); ++i) {
        if (log[i + 1].substr(0, 4) == "in8 ")
            ++bytes;
    }
    EXPECT_EQ(bytes, 256u);
    EXPECT_EQ(Log(log.end() - 4, log.end()), LegacyPci("8000fcff", "in8 0cff"));
}

TEST(PciAcc, MoreThanFiveWordsNameOneFunction) {
    OpenBoard("intel");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/DUMP", "0", "0x1f", "4", "/NOMSG"}, 0),
              "Bus Dev Fun VID_DID  ASPM IRQ_L IRQ_P Class\n"
              "00  1F  04  8086A323 NA   IRQ10 INTA  SMBus Controller\n");
    std::vector<std::string> five = LinesOf(RunPci({"hwreg", "/PCI", "/NOMSG", "/DUMP", "0"}, 0));
    EXPECT_EQ(five.size(), 1 + FunctionCount()); // five words: everything is listed
}

TEST(PciAcc, OneAbsentFunctionPrintsNothing) {
    OpenBoard("intel");
    EXPECT_EQ(RunPci({"hwreg", "/PCI", "/DUMP", "0", "0x1f", "6"}, 0), "");
    EXPECT_EQ(TakeAccesses(), LegacyPci("8000fe00", "in16 0cfc") + LegacyPci("8000fe02", "in16 0cfe"));
}

TEST(PciAcc, TheDumpNeedsItsBuffer) {
    OpenBoard("intel");
    SetCommand({"hwreg", "/PCI", "/DUMP"});
    LimitMalloc(255);
    EXPECT_EQ(PciAccess(), 0x80000005u);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciAcc, TheDumpReleasesItsBuffer) {
    OpenBoard("intel");
    SetCommand({"hwreg", "/PCI", "/NOMSG", "/DUMP", "0", "0", "0"});
    long held = BlocksHeld();
    Printed([] { PciAccess(); });
    EXPECT_EQ(BlocksHeld(), held);
    SetCommand({"hwreg", "/PCI", "/NOMSG", "/DUMP", "9", "0", "0"}); // absent
    Printed([] { PciAccess(); });
    EXPECT_EQ(BlocksHeld(), held);
}

TEST(PciAcc, ADumpWhoseWordIsNotThereDoesNothing) {
    OpenBoard("intel");
    SetCommand({"hwreg", "/PCI"});
    AddFlags(Flag::DUMP);
    EXPECT_EQ(Printed([] { EXPECT_EQ(PciAccess(), 0u); }), "");
    EXPECT_EQ(TakeLog(), Log{});
}
