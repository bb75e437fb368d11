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
