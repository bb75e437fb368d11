#include "Project/SMBusAcc.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

constexpr uint16_t INTEL_BASE = 0xEFA0; // of the intel board
constexpr uint32_t POLLS = 0xFFFFF;     // of one wait

// An access to the host comes behind one delay unit.
static Log Paced(const Log &accesses) {
    Log lines;
    for (const std::string &access : accesses)
        lines = lines + Delays(1) + Log{access};
    return lines;
}

TEST(SMBusAcc, ARegisterAccessIsADelayUnitAndAByte) {
    OpenBoard("intel", "latch 0d00 8 5a");
    SmbusWrite8(0x0D02, 0x48);
    EXPECT_EQ(SmbusRead8(0x0D03), 0x5A);
    EXPECT_EQ(TakeLog(), Paced({"out8 0d02 48", "in8 0d03 -> 5a"}));
}

TEST(SMBusAcc, AnIntelHostStandsInItsBaseAddressRegister) {
    OpenBoard("intel");
    uint16_t base = 0;
    EXPECT_EQ(GetSMBusBaseAddress(&base), 1);
    EXPECT_EQ(base, INTEL_BASE);
}

TEST(SMBusAcc, AnotherHostStandsInThePowerManagementRegisters) {
    for (const char *board : {"amd", "hygon", "ati"}) {
        ResetEverything();
        OpenBoard(board, "pm-bytes 0 ff 0b");
        uint16_t base = 0;
        EXPECT_EQ(GetSMBusBaseAddress(&base), 1);
        EXPECT_EQ(base, 0x0B00);
        EXPECT_EQ(BoardGetPci(0x00A0, 4, 2), 0x0403u); // decoding was on already
    }
}

TEST(SMBusAcc, DecodingIsSwitchedOnAndNothingElseChanges) {
    OpenBoard("intel", "pci 00:1f.4\nword 04 0402");
    uint16_t base = 0;
    EXPECT_EQ(GetSMBusBaseAddress(&base), 1);
    EXPECT_EQ(BoardGetPci(0x00FC, 4, 2), 0x0403u);
}

TEST(SMBusAcc, WithoutAHostTheBaseStaysAsItIs) {
    OpenBoard("intel", "pci-remove 00:1f.4");
    uint16_t base = 0x1234;
    int found = 1;
    EXPECT_EQ(Printed([&] { found = GetSMBusBaseAddress(&base); }), "Not found ClaseCode(0C05)\n");
    EXPECT_EQ(found, 0);
    EXPECT_EQ(base, 0x1234);
}

TEST(SMBusAcc, AByteReadIsOneTransaction) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0");
    uint8_t data = 0;
    EXPECT_EQ(StandardSmbusRead(INTEL_BASE, 0xA0, 2, &data), EFI_SUCCESS);
    EXPECT_EQ(data, 0x0C);
    EXPECT_EQ(TakeLog(), Paced({"out8 efa4 a1", "out8 efa3 02", "out8 efa0 ff", "out8 efa2 48"}) + Delays(1) +
                             Paced({"in8 efa0 -> 02", "out8 efa0 02", "in8 efa5 -> 0c"}));
}

TEST(SMBusAcc, AByteWriteIsOneTransactionWithTheDataFirst) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0");
    EXPECT_EQ(StandardSmbusWrite(INTEL_BASE, 0x59, 2, 0x77), EFI_SUCCESS);
    EXPECT_EQ(TakeLog(),
              Paced({"out8 efa5 77", "out8 efa4 58", "out8 efa3 02", "out8 efa0 ff", "out8 efa2 48"}) +
                  Delays(1) + Paced({"in8 efa0 -> 02", "out8 efa0 02"}));
    uint8_t data = 0;
    EXPECT_EQ(StandardSmbusRead(INTEL_BASE, 0x58, 2, &data), EFI_SUCCESS);
    EXPECT_EQ(data, 0x77);
}

TEST(SMBusAcc, AFailedReadLeavesTheDataAlone) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0");
    uint8_t data = 0x5A;
    EXPECT_EQ(StandardSmbusRead(INTEL_BASE, 0xA6, 0, &data), EFI_DEVICE_ERROR);
    EXPECT_EQ(data, 0x5A);
    EXPECT_EQ(TakeLog(), Paced({"out8 efa4 a7", "out8 efa3 00", "out8 efa0 ff", "out8 efa2 48"}) + Delays(1) +
                             Paced({"in8 efa0 -> 04", "out8 efa0 04", "in8 efa2 -> 08", "out8 efa2 81"}));
    EXPECT_EQ(StandardSmbusWrite(INTEL_BASE, 0xA6, 0, 1), EFI_DEVICE_ERROR);
}

// The count cannot be read from a log of three million lines: the delay units tell it.
TEST(SMBusAcc, ATransactionWithoutAnEndIsGivenUpAfterAllPolls) {
    OpenBoard("intel", "constant efa0 01\ndelay 00ed\nunlogged 00ed 1\nunlogged efa0 1");
    alarm(600); // it takes three million port accesses
    uint8_t data = 0x5A;
    uint64_t before = BoardMicroseconds();
    EXPECT_EQ(StandardSmbusRead(INTEL_BASE, 0xA0, 2, &data), EFI_DEVICE_ERROR);
    // Four accesses before, two units a poll, then the status, reading and writing control.
    EXPECT_EQ(BoardMicroseconds() - before, 4u + 2u * POLLS + 3u);
    EXPECT_EQ(data, 0x5A);
    EXPECT_EQ(TakeLog(),
              (Log{"out8 efa4 a1", "out8 efa3 02", "out8 efa2 48", "in8 efa2 -> 08", "out8 efa2 81"}));
}

TEST(SMBusAcc, OnlyTheSixModuleAddressesAreSpdAddresses) {
    for (unsigned slave = 0; slave < 0x100; ++slave) {
        bool known = slave >= 0xA0 && slave <= 0xAB;
        EXPECT_EQ(IsSpdAddress(static_cast<uint8_t>(slave)), known ? 1 : 0) << std::hex << slave;
    }
}

TEST(SMBusAcc, ADdr4ModuleGives512BytesWhateverTheSizeSays) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0");
    uint8_t buffer[514] = {};
    buffer[512] = 0xEE;
    EXPECT_EQ(GetDDR4Spd(INTEL_BASE, 0xA2, buffer, 1), EFI_SUCCESS);
    for (unsigned i = 0; i < 512; ++i)
        EXPECT_EQ(buffer[i], i == 2 ? 0x0C : (i & 0xFF)) << i;
    EXPECT_EQ(buffer[512], 0xEE);
}

TEST(SMBusAcc, AModuleThatStopsGivesTheStatusOfTheReadThatFailed) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0\nsmbus-spd a2 stops 110");
    uint8_t buffer[512] = {};
    EXPECT_EQ(GetDDR4Spd(INTEL_BASE, 0xA2, buffer, sizeof(buffer)), EFI_DEVICE_ERROR);
    EXPECT_EQ(buffer[255 + 16], 0x0F);
    EXPECT_EQ(buffer[256 + 16], 0);
}

TEST(SMBusAcc, PageZeroIsSelectedAfterADdr4DumpHoweverItEnds) {
    for (const char *stops : {"", "\nsmbus-spd a2 stops 40", "\nsmbus-spd a2 stops 140"}) {
        ResetEverything();
        OpenBoard("intel", std::string("pci 00:1f.4\nsmbus-host pci 0") + stops);
        uint8_t buffer[512];
        GetDDR4Spd(INTEL_BASE, 0xA2, buffer, sizeof(buffer));
        uint8_t data = 0;
        // "Read page address" is acknowledged in page 0 alone.
        EXPECT_EQ(StandardSmbusRead(INTEL_BASE, 0x6C, 0, &data), EFI_SUCCESS) << stops;
    }
}

TEST(SMBusAcc, ADumpWithoutMemoryFailsWithoutAWord) {
    OpenBoard("intel");
    SetCommand({"hwreg", "/SMBUS", "/DUMP", "0x58"});
    LimitMalloc(255);
    int status = 0;
    EXPECT_EQ(Printed([&] { status = SMBusEntryPoint(); }), "");
    EXPECT_EQ(status, -1);
    SetCommand({"hwreg", "/SMBUS", "/DUMP", "0xA2"});
    LimitMalloc(511);
    EXPECT_EQ(Printed([&] { status = SMBusEntryPoint(); }), "");
    EXPECT_EQ(status, -1);
}

TEST(SMBusAcc, TheHandlerGivesMinusOneForFailuresAndTheByteElse) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0\nunlogged 0 10000");
    int status = 0;
    auto run = [&](std::initializer_list<const char *> words) {
        SetCommand(words);
        Printed([&] { status = SMBusEntryPoint(); });
        return status;
    };
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/?"}), -1);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/RB", "0xA0", "2"}), 0x0C);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/RB", "0xA6", "2"}), -1);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/WB", "0x58", "2", "0x99"}), 0x99);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/S", "0xA0"}), -1);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/S", "0xA6", "0xA6"}), 0xFF);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/RI", "0xA0", "2"}), 0xFF);
    EXPECT_EQ(run({"hwreg", "/SMBUS"}), 0xFF);
}
