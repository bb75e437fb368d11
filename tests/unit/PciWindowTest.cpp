#include "BasicLib/PciWindow.h"

#include <cstring>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

TEST(PciWindow, IntelsWindowBaseIsRegister60OfTheHostBridge) {
    OpenBoard("intel");
    uint32_t base = 0;
    EXPECT_EQ(GetPcieBaseAddress(&base), 1);
    EXPECT_EQ(base, 0xE0000000u);
    EXPECT_EQ(TakeLog(),
              LegacyPci("80000000", "in16 0cfc -> 8086") + LegacyPci("80000060", "in32 0cfc -> e0000001"));
}

TEST(PciWindow, TheWindowBaseIsLookedUpOncePerProcess) {
    OpenBoard("intel");
    uint32_t base = 0;
    GetPcieBaseAddress(&base);
    TakeLog();
    base = 0;
    EXPECT_EQ(GetPcieBaseAddress(&base), 1);
    EXPECT_EQ(base, 0xE0000000u);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciWindow, OnlyBits31To20OfTheWindowBaseCount) {
    OpenBoard("intel");
    BoardSetPci(0, 0x60, 4, 0xD12FFFFE); // not even enabled
    uint32_t base = 0;
    EXPECT_EQ(GetPcieBaseAddress(&base), 1);
    EXPECT_EQ(base, 0xD1200000u);
    EXPECT_EQ(tempPcieBaseAddr, 0xD1200000u);
}

TEST(PciWindow, AmdsAndHygonsWindowBaseIsAnMsrOfCpu0) {
    for (const char *board : {"amd", "hygon", "ati"}) {
        OpenBoard(board);
        uint32_t base = 0;
        EXPECT_EQ(GetPcieBaseAddress(&base), 1);
        EXPECT_EQ(base, 0xF8000000u);
        Log log = TakeLog();
        EXPECT_EQ(Log(log.begin() + 4, log.end()),
                  (Log{"open /dev/cpu/0/msr rdonly cloexec -> ok",
                       "pread /dev/cpu/0/msr c0010058 8 -> 00000000f8000021", "close /dev/cpu/0/msr"}));
    }
}

TEST(PciWindow, TheHighHalfOfAmdsWindowBaseIsDiscarded) {
    OpenBoard("amd");
    BoardSetMsr(0, 0xC0010058, 0x00000012D0000021);
    uint32_t base = 0;
    EXPECT_EQ(GetPcieBaseAddress(&base), 1);
    EXPECT_EQ(base, 0xD0000000u);
}

TEST(PciWindow, AnUnknownVendorHasNoWindowAndIsAskedAgain) {
    OpenBoard("unknown");
    uint32_t base = 0x12345678;
    EXPECT_EQ(GetPcieBaseAddress(&base), 0);
    EXPECT_EQ(base, 0x12345678u);
    EXPECT_EQ(tempPcieBaseAddr, 0xFFFFFFFFu);
    TakeLog();
    EXPECT_EQ(GetPcieBaseAddress(&base), 0);
    EXPECT_EQ(TakeLog(), Log{}); // cheaply: the vendor is known to be unknown
}

TEST(PciWindow, MemPciBaseIsTheFunctionsPageInTheWindow) {
    OpenBoard("intel");
    EXPECT_EQ(MemPciBase(0, 0, 0), 0xE0000000u);
    EXPECT_EQ(MemPciBase(1, 2, 3), 0xE0000000u + 0x100000 + 0x10000 + 0x3000);
    EXPECT_EQ(MemPciBase(0xFF, 0x1F, 7), 0xEFFFF000u);
    EXPECT_EQ(MemPciBase(0x200, 0x21, 9), 0xE0000000u + 0x20000000 + 0x108000 + 0x9000);
    EXPECT_EQ(MemPciBase(0xFFFF, 0, 0), 0xDFF00000u); // modulo 2^32
}

TEST(PciWindow, MemPciBaseOfAnUnknownVendorIsTheBareArithmetic) {
    OpenBoard("unknown");
    EXPECT_EQ(MemPciBase(1, 2, 3), 0x113000u);
}
