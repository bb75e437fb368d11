#include "Platform/PmBase.h"

#include <gtest/gtest.h>

#include "Platform/AmdReg.h"
#include "Platform/IntelReg.h"
#include "TestHelp.h"
#include "sim/Board.h"

// Without root pointers there is no FADT.
static const char *const NO_FADT = "bytes f5a00 00\nbytes f5a10 00\n";

static void OpenPlatform(const std::string &board, const std::string &lines = "") {
    OpenBoard(board, lines);
    PmAddress = {0, 0, 0};
}

static void ExpectFields(int eventBlock, int resetRegister, int resetValue) {
    EXPECT_EQ(GetPMBaseAddress(0), eventBlock);
    EXPECT_EQ(GetPMBaseAddress(1), resetRegister);
    EXPECT_EQ(GetPMBaseAddress(2), resetValue);
}

TEST(PmBase, TheFadtSaysWhereThingsAre) {
    OpenPlatform("intel", "pci 00:1f.2\nword 40 0401");
    ExpectFields(0x1800, 0xCF9, 0x06);
    OpenPlatform("amd", "pm-bytes 60 00 04");
    ExpectFields(0x0800, 0xCF9, 0x06);
}

// The FADT's reset register is at 7a2fe3cc, its address 4 bytes behind; the reset value at 7a2fe3d8.
TEST(PmBase, TheResetComesFromTheFadt) {
    OpenPlatform("intel", "bytes 7a2fe3d0 92 00\nbytes 7a2fe3d8 81");
    ExpectFields(0x1800, 0x92, 0x81);
}

TEST(PmBase, AZeroOfTheFadtStandsAndIsLookedForAgain) {
    OpenPlatform("intel", "bytes 7a2fe390 00 00 00 00");
    ExpectFields(0, 0xCF9, 0x06);
    TakeLog();
    EXPECT_EQ(GetPMBaseAddress(0), 0);
    EXPECT_NE(TakeLog(), Log{});
}

TEST(PmBase, WithoutAFadtWhatIsKnownIsReplacedToo) {
    OpenPlatform("intel", std::string(NO_FADT) + "pci 00:1f.2\nword 40 0401");
    PmAddress = {0x600, 0, 0x81};
    ExpectFields(0x0400, 0xCF9, 0x06);
    PmAddress = {0, 0x92, 0x81};
    ExpectFields(0x0400, 0xCF9, 0x06);
}

TEST(PmBase, AnotherSelectorGivesMinusOne) {
    OpenPlatform("intel");
    EXPECT_EQ(GetPMBaseAddress(3), -1);
    EXPECT_EQ(GetPMBaseAddress(-1), -1);
}

TEST(PmBase, ItIsLookedForOnce) {
    OpenPlatform("intel");
    GetPMBaseAddress(0);
    EXPECT_NE(TakeLog(), Log{});
    ExpectFields(0x1800, 0xCF9, 0x06);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PmBase, AFieldOfZeroIsLookedForAgain) {
    for (PmAddressRecord record : {PmAddressRecord{0, 0xCF9, 6}, {0x1800, 0, 6}, {0x1800, 0xCF9, 0}}) {
        OpenPlatform("intel");
        PmAddress = record;
        ExpectFields(0x1800, 0xCF9, 0x06);
        EXPECT_NE(TakeLog(), Log{});
    }
}

TEST(PmBase, WithoutAFadtTheChipsetSaysItWithTheUsualReset) {
    OpenPlatform("intel", std::string(NO_FADT) + "pci 00:1f.2\nword 40 04ff");
    ExpectFields(0x0480, 0xCF9, 0x06);
    OpenPlatform("amd", std::string(NO_FADT) + "pm-bytes 60 07 04");
    ExpectFields(0x0404, 0xCF9, 0x06);
    OpenPlatform("hygon", std::string(NO_FADT) + "pm-bytes 60 07 04");
    ExpectFields(0x0404, 0xCF9, 0x06);
    OpenPlatform("unknown", NO_FADT);
    ExpectFields(0xFFFF, 0xCF9, 0x06);
}

TEST(PmBase, IntelsPowerManagementFunction) {
    OpenBoard("intel", "pci 00:1f.2\nword 40 ffff");
    EXPECT_EQ(IntelGetPMBaseAddress(), 0xFF80);
    EXPECT_EQ(GetPMBaseAddressByPmio(), 0xFF80);
    Log log = TakeLog();
    EXPECT_EQ(Log(log.end() - 4, log.end()), LegacyPci("8000fa40", "in16 0cfc -> ffff"));
}

TEST(PmBase, AnIntelPlatformThatHidesTheFunctionHasTheUsualPort) {
    OpenBoard("intel", "pci-remove 00:1f.2");
    EXPECT_EQ(Printed([] { EXPECT_EQ(IntelGetPMBaseAddress(), -1); }), "Not found ClaseCode(0580)\n");
    EXPECT_EQ(Printed([] { EXPECT_EQ(GetPMBaseAddressByPmio(), 0x1800); }),
              "Not found ClaseCode(0580)\nError: cannot get PMBase\n");
}

static Log PmRegister(const std::string &index, const std::string &value) {
    return Delays(2) + Log{"out8 0cd6 " + index, "in8 0cd7 -> " + value};
}

TEST(PmBase, AmdsPowerManagementRegisters) {
    OpenBoard("amd", "pm-bytes 60 03 08 12 34");
    EXPECT_EQ(AmdPMxRead8(0x60), 0x03);
    EXPECT_EQ(TakeLog(), PmRegister("60", "03"));
    EXPECT_EQ(AmdPMxRead16(0x60), 0x0803);
    EXPECT_EQ(TakeLog(), PmRegister("61", "08") + PmRegister("60", "03"));
    EXPECT_EQ(AmdPMxRead32(0x60), 0x34120803u);
    EXPECT_EQ(TakeLog(), PmRegister("63", "34") + PmRegister("62", "12") + PmRegister("61", "08") +
                             PmRegister("60", "03"));
    EXPECT_EQ(AmdGetPMBaseAddress(), 0x0800);
    EXPECT_EQ(TakeLog(), PmRegister("61", "08") + PmRegister("60", "03"));
}

// What a forced shutdown writes, with a record that is known already.
static Log Writes(uint32_t kind, int expected, const std::string &board = "intel") {
    OpenBoard(board);
    PmAddress = {0x600, 0x92, 0x81};
    EXPECT_EQ(ForcedShutdownByPMIO(kind), expected);
    Log writes;
    for (const std::string &line : TakeLog()) {
        if (line.compare(0, 5, "out8 ") == 0 && line.compare(5, 4, "00ed") != 0)
            writes.push_back(line);
    }
    return writes;
}

TEST(PmBase, AResetWritesItsValueToItsPort) {
    EXPECT_EQ(Writes(4, 1), (Log{"out8 0092 81"}));
    EXPECT_EQ(Writes(4, 1, "amd"), (Log{"out8 0092 81"}));
    EXPECT_EQ(Writes(4, 1, "unknown"), (Log{"out8 0092 81"}));
}

TEST(PmBase, AGlobalResetSetsBit3AsWell) {
    EXPECT_EQ(Writes(5, 1), (Log{"out8 0092 89"}));
    EXPECT_EQ(Writes(5, 1, "hygon"), (Log{"out8 0092 89"}));
}

TEST(PmBase, PowerOffIsTheVendorsSleepState5) {
    EXPECT_EQ(Writes(1, 1, "intel"), (Log{"out8 0605 3c"}));
    EXPECT_EQ(Writes(1, 1, "amd"), (Log{"out8 0605 34"}));
    EXPECT_EQ(Writes(1, 1, "hygon"), (Log{"out8 0605 34"}));
    EXPECT_EQ(Writes(1, 1, "ati"), (Log{"out8 0605 34"}));
    EXPECT_EQ(Writes(1, 1, "unknown"), Log{});
}

TEST(PmBase, OtherKindsDoNothing) {
    for (uint32_t kind : {0u, 2u, 3u, 6u, 0xFFFFFFFFu})
        EXPECT_EQ(Writes(kind, 0), Log{});
}

TEST(PmBase, TheUsualResetsWhenNothingIsKnown) {
    OpenPlatform("unknown", NO_FADT);
    EXPECT_EQ(ForcedShutdownByPMIO(4), 1);
    EXPECT_EQ(TakeLog().back(), "out8 0cf9 06");
    EXPECT_EQ(ForcedShutdownByPMIO(5), 1);
    EXPECT_EQ(TakeLog(), (Log{"out8 0cf9 0e"}));
}

TEST(PmBase, PowerOffGoesToTheBlockOfTheFadt) {
    OpenPlatform("intel");
    EXPECT_EQ(ForcedShutdownByPMIO(1), 1);
    EXPECT_EQ(TakeLog().back(), "out8 1805 3c");
}
