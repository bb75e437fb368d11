#include "BasicLib/Chipset.h"

#include <cstring>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

static uint16_t VendorOf(const char *board) {
    OpenBoard(board);
    return ChipsetLpcIdentify();
}

TEST(Chipset, TheHostBridgeNamesTheVendor) {
    EXPECT_EQ(VendorOf("intel"), 0x8086);
    EXPECT_EQ(VendorOf("amd"), 0x1022);
    EXPECT_EQ(VendorOf("hygon"), 0x1D94);
    EXPECT_EQ(VendorOf("ati"), 0x1022); // host bridge 1002
    EXPECT_EQ(VendorOf("unknown"), 0xFFFF);
}

TEST(Chipset, TheVendorIsLookedUpOncePerProcess) {
    for (const char *board : {"intel", "hygon", "ati", "unknown"}) {
        OpenBoard(board);
        uint16_t vendor = ChipsetLpcIdentify();
        EXPECT_EQ(TakeAccesses(), LegacyPci("80000000", "in16 0cfc")) << board;
        EXPECT_EQ(ChipsetLpcIdentify(), vendor) << board;
        EXPECT_EQ(chipSetVid, vendor) << board;
        EXPECT_EQ(TakeLog(), Log{}) << board;
    }
}

TEST(Chipset, AnotherMakersHostBridgeIsUnknown) {
    OpenBoard("intel", "pci 00:00.0 1106:0314");
    EXPECT_EQ(ChipsetLpcIdentify(), 0xFFFF);
}

// Name, homes of window, PM1 block, SMBus block and shadow, sleep value, I2C and SMN.
static std::string Row(const char *board) {
    OpenBoard(board);
    const Chipset *row = ThisChipset();
    return std::string(row->name) + " " + std::to_string(row->configWindow) + std::to_string(row->pmBlock) +
           std::to_string(row->smbusBlock) + std::to_string(row->shadow) + " " +
           std::to_string(row->sleepS5) + (row->dwI2c ? " i2c" : "") + (row->smn ? " smn" : "");
}

TEST(Chipset, EachMakersRowSaysWhereItsServicesStand) {
    static_assert(HOME_NONE == 0 && HOME_PCI == 1 && HOME_MSR == 2 && HOME_PM == 3);
    EXPECT_EQ(Row("intel"), "Intel 1111 60");
    EXPECT_EQ(Row("amd"), "AMD 2332 52 i2c smn");
    EXPECT_EQ(Row("ati"), "AMD 2332 52 i2c smn");
    EXPECT_EQ(Row("hygon"), "Higon 2332 52 i2c smn");
    EXPECT_EQ(Row("unknown"), "Unknown 0030 0");
}
