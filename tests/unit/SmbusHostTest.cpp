#include "Platform/SmbusHost.h"

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

TEST(SmbusHost, ARegisterAccessIsADelayUnitAndAByte) {
    OpenBoard("intel", "latch 0d00 8 5a");
    SmbusWrite8(0x0D02, 0x48);
    EXPECT_EQ(SmbusRead8(0x0D03), 0x5A);
    EXPECT_EQ(TakeLog(), Paced({"out8 0d02 48", "in8 0d03 -> 5a"}));
}

TEST(SmbusHost, AnIntelHostStandsInItsBaseAddressRegister) {
    OpenBoard("intel");
    uint16_t base = 0;
    EXPECT_EQ(GetSMBusBaseAddress(&base), 1);
    EXPECT_EQ(base, INTEL_BASE);
}

TEST(SmbusHost, AnotherHostStandsInThePowerManagementRegisters) {
    for (const char *board : {"amd", "hygon", "ati"}) {
        ResetEverything();
        OpenBoard(board, "pm-bytes 0 ff 0b");
        uint16_t base = 0;
        EXPECT_EQ(GetSMBusBaseAddress(&base), 1);
        EXPECT_EQ(base, 0x0B00);
        EXPECT_EQ(BoardGetPci(0x00A0, 4, 2), 0x0403u); // decoding was on already
    }
}

TEST(SmbusHost, DecodingIsSwitchedOnAndNothingElseChanges) {
    OpenBoard("intel", "pci 00:1f.4\nword 04 0402");
    uint16_t base = 0;
    EXPECT_EQ(GetSMBusBaseAddress(&base), 1);
    EXPECT_EQ(BoardGetPci(0x00FC, 4, 2), 0x0403u);
}

TEST(SmbusHost, WithoutAHostTheBaseStaysAsItIs) {
    OpenBoard("intel", "pci-remove 00:1f.4");
    uint16_t base = 0x1234;
    int found = 1;
    EXPECT_EQ(Printed([&] { found = GetSMBusBaseAddress(&base); }), "Not found ClaseCode(0C05)\n");
    EXPECT_EQ(found, 0);
    EXPECT_EQ(base, 0x1234);
}

TEST(SmbusHost, AByteReadIsOneTransaction) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0");
    uint8_t data = 0;
    EXPECT_EQ(StandardSmbusRead(INTEL_BASE, 0xA0, 2, &data), EFI_SUCCESS);
    EXPECT_EQ(data, 0x0C);
    EXPECT_EQ(TakeLog(), Paced({"out8 efa4 a1", "out8 efa3 02", "out8 efa0 ff", "out8 efa2 48"}) + Delays(1) +
                             Paced({"in8 efa0 -> 02", "out8 efa0 02", "in8 efa5 -> 0c"}));
}

TEST(SmbusHost, AByteWriteIsOneTransactionWithTheDataFirst) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0");
    EXPECT_EQ(StandardSmbusWrite(INTEL_BASE, 0x59, 2, 0x77), EFI_SUCCESS);
    EXPECT_EQ(TakeLog(),
              Paced({"out8 efa5 77", "out8 efa4 58", "out8 efa3 02", "out8 efa0 ff", "out8 efa2 48"}) +
                  Delays(1) + Paced({"in8 efa0 -> 02", "out8 efa0 02"}));
    uint8_t data = 0;
    EXPECT_EQ(StandardSmbusRead(INTEL_BASE, 0x58, 2, &data), EFI_SUCCESS);
    EXPECT_EQ(data, 0x77);
}

TEST(SmbusHost, AFailedReadLeavesTheDataAlone) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0");
    uint8_t data = 0x5A;
    EXPECT_EQ(StandardSmbusRead(INTEL_BASE, 0xA6, 0, &data), EFI_DEVICE_ERROR);
    EXPECT_EQ(data, 0x5A);
    EXPECT_EQ(TakeLog(), Paced({"out8 efa4 a7", "out8 efa3 00", "out8 efa0 ff", "out8 efa2 48"}) + Delays(1) +
                             Paced({"in8 efa0 -> 04", "out8 efa0 04", "in8 efa2 -> 08", "out8 efa2 81"}));
    EXPECT_EQ(StandardSmbusWrite(INTEL_BASE, 0xA6, 0, 1), EFI_DEVICE_ERROR);
}

// The count cannot be read from a log of three million lines: the delay units tell it.
TEST(SmbusHost, ATransactionWithoutAnEndIsGivenUpAfterAllPolls) {
    OpenBoard("intel", "constant efa0 01\ndelay 00ed\nunlogged 00ed 1\nunlogged efa0 1");
    uint8_t data = 0x5A;
    uint64_t before = BoardMicroseconds();
    EXPECT_EQ(StandardSmbusRead(INTEL_BASE, 0xA0, 2, &data), EFI_DEVICE_ERROR);
    // Four accesses before, two units a poll, then the status, reading and writing control.
    EXPECT_EQ(BoardMicroseconds() - before, 4u + 2u * POLLS + 3u);
    EXPECT_EQ(data, 0x5A);
    EXPECT_EQ(TakeLog(),
              (Log{"out8 efa4 a1", "out8 efa3 02", "out8 efa2 48", "in8 efa2 -> 08", "out8 efa2 81"}));
}

// Somebody else may kill a transaction that hangs; that one has its end in the status, and its bit in
// control.
TEST(SmbusHost, OfATransactionThatWasKilledTheFailureIsClearedToo) {
    OpenBoard("intel", "constant efa0 14\nconstant efa2 4a");
    uint8_t data = 0x5A;
    EXPECT_EQ(StandardSmbusRead(INTEL_BASE, 0xA0, 2, &data), EFI_DEVICE_ERROR);
    EXPECT_EQ(data, 0x5A);
    EXPECT_EQ(TakeLog(), Paced({"out8 efa4 a1", "out8 efa3 02", "out8 efa0 ff", "out8 efa2 48"}) + Delays(1) +
                             Paced({"in8 efa0 -> 14", "out8 efa0 14", "in8 efa2 -> 4a", "out8 efa0 10",
                                    "out8 efa2 81"}));
}
