#include "BasicLib/PciConfig.h"

#include <cstring>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

// Number of a function as the board counts them.
static uint16_t Function(unsigned bus, unsigned dev, unsigned fun) {
    return static_cast<uint16_t>(bus << 8 | dev << 3 | fun);
}

TEST(PciConfig, ALegacyReadIsTwoDelaysTheAddressAndTheData) {
    OpenBoard("intel");
    uint8_t buffer[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(LegacyIoPciRead(1, 0, 0x1F, 3, 0x41, buffer), 1);
    EXPECT_EQ(TakeAccesses(), LegacyPci("8000fb41", "in8 0cfd"));
    EXPECT_EQ(buffer[1], 0xEE);
}

TEST(PciConfig, ALegacyReadStoresTheValueInItsWidth) {
    OpenBoard("intel");
    uint8_t buffer[5];
    memset(buffer, 0xEE, sizeof(buffer));
    EXPECT_EQ(LegacyIoPciRead(1, 0, 0, 0, 0, buffer), 1);
    EXPECT_EQ(memcmp(buffer, "\x86\xEE\xEE\xEE\xEE", 5), 0);
    EXPECT_EQ(LegacyIoPciRead(2, 0, 0, 0, 0, buffer), 1);
    EXPECT_EQ(memcmp(buffer, "\x86\x80\xEE\xEE\xEE", 5), 0);
    EXPECT_EQ(LegacyIoPciRead(3, 0, 0, 0, 0, buffer), 1);
    EXPECT_EQ(memcmp(buffer, "\x86\x80\x30\x3E\xEE", 5), 0);
    EXPECT_EQ(TakeLog(), LegacyPci("80000000", "in8 0cfc -> 86") +
                             LegacyPci("80000000", "in16 0cfc -> 8086") +
                             LegacyPci("80000000", "in32 0cfc -> 3e308086"));
}

TEST(PciConfig, TheLowOffsetBitsStayInTheAddressAndChooseTheLaneOfBytesAndWords) {
    OpenBoard("intel");
    uint8_t buffer[4];
    for (uint16_t offset = 0x40; offset < 0x44; ++offset) {
        const std::string low(1, static_cast<char>('0' + offset - 0x40));
        const std::string lane(1, static_cast<char>('c' + offset - 0x40));
        LegacyIoPciRead(1, 0, 0, 0, offset, buffer);
        LegacyIoPciRead(2, 0, 0, 0, offset, buffer);
        LegacyIoPciRead(3, 0, 0, 0, offset, buffer);
        EXPECT_EQ(TakeAccesses(), LegacyPci("8000004" + low, "in8 0cf" + lane) +
                                      LegacyPci("8000004" + low, "in16 0cf" + lane) +
                                      LegacyPci("8000004" + low, "in32 0cfc"));
        LegacyIoPciWrite(1, 0, 0, 0, offset, buffer);
        LegacyIoPciWrite(2, 0, 0, 0, offset, buffer);
        LegacyIoPciWrite(3, 0, 0, 0, offset, buffer);
        Log log = TakeAccesses();
        EXPECT_EQ(log[3].substr(0, 9), "out8 0cf" + lane);
        EXPECT_EQ(log[7].substr(0, 10), "out16 0cf" + lane);
        EXPECT_EQ(log[11].substr(0, 10), "out32 0cfc");
    }
}

TEST(PciConfig, ALegacyWriteTakesTheValueInItsWidth) {
    OpenBoard("intel");
    const uint8_t buffer[] = {0x11, 0x22, 0x33, 0x44};
    EXPECT_EQ(LegacyIoPciWrite(1, 0, 0, 0, 0xDC, buffer), 1);
    EXPECT_EQ(LegacyIoPciWrite(2, 0, 0, 0, 0xDC, buffer), 1);
    EXPECT_EQ(LegacyIoPciWrite(3, 0, 0, 0, 0xDC, buffer), 1);
    EXPECT_EQ(TakeLog(), LegacyPci("800000dc", "out8 0cfc 11") + LegacyPci("800000dc", "out16 0cfc 2211") +
                             LegacyPci("800000dc", "out32 0cfc 44332211"));
    EXPECT_EQ(BoardGetPci(0, 0xDC, 1), 0x11u);
}

TEST(PciConfig, NumbersOutOfRangeSpillIntoTheNeighbouringFields) {
    OpenBoard("intel");
    uint8_t buffer[4];
    // 0x80000000 + (0x101 << 16) + (0x21 << 11) + (9 << 8) + 0x10
    LegacyIoPciRead(1, 0x101, 0x21, 9, 0x10, buffer);
    EXPECT_EQ(TakeAccesses(), LegacyPci("81021110", "in8 0cfc"));
    LegacyIoPciWrite(1, 0xFFFF, 0xFFFF, 0xFFFF, 0xFF, buffer);
    EXPECT_EQ(TakeLog()[2], "out32 0cf8 8"
                            "8fef7ff"); // modulo 2^32
}

TEST(PciConfig, LegacyOffset100IsTheLastOneAccepted) {
    OpenBoard("intel");
    uint8_t buffer[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(LegacyIoPciRead(1, 0, 0, 0, 0x100, buffer), 1);
    EXPECT_EQ(TakeAccesses(), LegacyPci("80000100", "in8 0cfc"));
    buffer[0] = 0xEE;
    EXPECT_EQ(LegacyIoPciRead(1, 0, 0, 0, 0x101, buffer), 0);
    EXPECT_EQ(LegacyIoPciRead(1, 0, 0, 0, 0xFFFF, buffer), 0);
    EXPECT_EQ(LegacyIoPciWrite(1, 0, 0, 0, 0x101, buffer), 0);
    EXPECT_EQ(buffer[0], 0xEE);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciConfig, ALegacyAccessWithoutABufferTouchesNoPort) {
    OpenBoard("intel");
    EXPECT_EQ(LegacyIoPciRead(1, 0, 0, 0, 0, nullptr), 0);
    EXPECT_EQ(LegacyIoPciWrite(1, 0, 0, 0, 0, nullptr), 0);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciConfig, ALegacyAccessOfAnotherWidthFailsAfterTheAddress) {
    OpenBoard("intel");
    uint8_t buffer[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    for (uint8_t width : {uint8_t{0}, uint8_t{4}, uint8_t{255}}) {
        EXPECT_EQ(LegacyIoPciRead(width, 0, 0, 0, 0xDC, buffer), 0);
        EXPECT_EQ(TakeLog(), Delays(2) + Log({"out32 0cf8 800000dc"}));
        EXPECT_EQ(LegacyIoPciWrite(width, 0, 0, 0, 0xDC, buffer), 0);
        EXPECT_EQ(TakeLog(), Delays(2) + Log({"out32 0cf8 800000dc"}));
    }
    EXPECT_EQ(memcmp(buffer, "\xEE\xEE\xEE\xEE", 4), 0);
}

static uint16_t VendorOf(const char *board) {
    OpenBoard(board);
    return ChipsetLpcIdentify();
}

TEST(PciConfig, TheHostBridgeNamesTheVendor) {
    EXPECT_EQ(VendorOf("intel"), 0x8086);
    EXPECT_EQ(VendorOf("amd"), 0x1022);
    EXPECT_EQ(VendorOf("hygon"), 0x1D94);
    EXPECT_EQ(VendorOf("ati"), 0x1022); // host bridge 1002
    EXPECT_EQ(VendorOf("unknown"), 0xFFFF);
}

TEST(PciConfig, TheVendorIsLookedUpOncePerProcess) {
    for (const char *board : {"intel", "hygon", "ati", "unknown"}) {
        OpenBoard(board);
        uint16_t vendor = ChipsetLpcIdentify();
        EXPECT_EQ(TakeAccesses(), LegacyPci("80000000", "in16 0cfc")) << board;
        EXPECT_EQ(ChipsetLpcIdentify(), vendor) << board;
        EXPECT_EQ(chipSetVid, vendor) << board;
        EXPECT_EQ(TakeLog(), Log{}) << board;
    }
}

TEST(PciConfig, AnotherMakersHostBridgeIsUnknown) {
    OpenBoard("intel", "pci 00:00.0 1106:0314");
    EXPECT_EQ(ChipsetLpcIdentify(), 0xFFFF);
}

TEST(PciConfig, IntelsWindowBaseIsRegister60OfTheHostBridge) {
    OpenBoard("intel");
    uint32_t base = 0;
    EXPECT_EQ(GetPcieBaseAddress(&base), 1);
    EXPECT_EQ(base, 0xE0000000u);
    EXPECT_EQ(TakeLog(),
              LegacyPci("80000000", "in16 0cfc -> 8086") + LegacyPci("80000060", "in32 0cfc -> e0000001"));
}

TEST(PciConfig, TheWindowBaseIsLookedUpOncePerProcess) {
    OpenBoard("intel");
    uint32_t base = 0;
    GetPcieBaseAddress(&base);
    TakeLog();
    base = 0;
    EXPECT_EQ(GetPcieBaseAddress(&base), 1);
    EXPECT_EQ(base, 0xE0000000u);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciConfig, OnlyBits31To20OfTheWindowBaseCount) {
    OpenBoard("intel");
    BoardSetPci(0, 0x60, 4, 0xD12FFFFE); // not even enabled
    uint32_t base = 0;
    EXPECT_EQ(GetPcieBaseAddress(&base), 1);
    EXPECT_EQ(base, 0xD1200000u);
    EXPECT_EQ(tempPcieBaseAddr, 0xD1200000u);
}

TEST(PciConfig, AmdsAndHygonsWindowBaseIsAnMsrOfCpu0) {
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

TEST(PciConfig, TheHighHalfOfAmdsWindowBaseIsDiscarded) {
    OpenBoard("amd");
    BoardSetMsr(0, 0xC0010058, 0x00000012D0000021);
    uint32_t base = 0;
    EXPECT_EQ(GetPcieBaseAddress(&base), 1);
    EXPECT_EQ(base, 0xD0000000u);
}

TEST(PciConfig, AnUnknownVendorHasNoWindowAndIsAskedAgain) {
    OpenBoard("unknown");
    uint32_t base = 0x12345678;
    EXPECT_EQ(GetPcieBaseAddress(&base), 0);
    EXPECT_EQ(base, 0x12345678u);
    EXPECT_EQ(tempPcieBaseAddr, 0xFFFFFFFFu);
    TakeLog();
    EXPECT_EQ(GetPcieBaseAddress(&base), 0);
    EXPECT_EQ(TakeLog(), Log{}); // cheaply: the vendor is known to be unknown
}

TEST(PciConfig, MemPciBaseIsTheFunctionsPageInTheWindow) {
    OpenBoard("intel");
    EXPECT_EQ(MemPciBase(0, 0, 0), 0xE0000000u);
    EXPECT_EQ(MemPciBase(1, 2, 3), 0xE0000000u + 0x100000 + 0x10000 + 0x3000);
    EXPECT_EQ(MemPciBase(0xFF, 0x1F, 7), 0xEFFFF000u);
    EXPECT_EQ(MemPciBase(0x200, 0x21, 9), 0xE0000000u + 0x20000000 + 0x108000 + 0x9000);
    EXPECT_EQ(MemPciBase(0xFFFF, 0, 0), 0xDFF00000u); // modulo 2^32
}

TEST(PciConfig, MemPciBaseOfAnUnknownVendorIsTheBareArithmetic) {
    OpenBoard("unknown");
    EXPECT_EQ(MemPciBase(1, 2, 3), 0x113000u);
}

TEST(PciConfig, ReadsBelow100GoThroughTheLegacyPorts) {
    OpenBoard("intel");
    EXPECT_EQ(PciRead8(0, 0, 0, 0), 0x86);
    EXPECT_EQ(PciRead16(0, 0, 0, 0), 0x8086);
    EXPECT_EQ(PciRead32(0, 0, 0, 0), 0x3E308086u);
    EXPECT_EQ(PciRead8(0, 0, 0, 0xFF), 0x00);
    EXPECT_EQ(TakeLog(),
              LegacyPci("80000000", "in8 0cfc -> 86") + LegacyPci("80000000", "in16 0cfc -> 8086") +
                  LegacyPci("80000000", "in32 0cfc -> 3e308086") + LegacyPci("800000ff", "in8 0cff -> 00"));
}

TEST(PciConfig, ReadsFrom100OnGoThroughTheWindow) {
    OpenBoard("intel");
    uint32_t base;
    GetPcieBaseAddress(&base);
    TakeLog();
    EXPECT_EQ(PciRead8(1, 0, 0, 0x14D), 0x56);
    EXPECT_EQ(PciRead16(1, 0, 0, 0x14C), 0x5678);
    EXPECT_EQ(PciRead32(1, 0, 0, 0x14C), 0x12345678u);
    EXPECT_EQ(PciRead32(1, 0, 0, 0xFFC), 0u);
    EXPECT_EQ(TakeLog(), Mapped("e0100000", "2000", {"mr8 e010014d -> 56"}) +
                             Mapped("e0100000", "2000", {"mr16 e010014c -> 5678"}) +
                             Mapped("e0100000", "2000", {"mr32 e010014c -> 12345678"}) +
                             Mapped("e0100000", "2000", {"mr32 e0100ffc -> 00000000"}));
}

TEST(PciConfig, TheFirstExtendedReadLooksTheWindowUp) {
    OpenBoard("intel");
    EXPECT_EQ(PciRead32(1, 0, 0, 0x100), 0x14820001u);
    EXPECT_EQ(TakeAccesses(),
              LegacyPci("80000000", "in16 0cfc") + LegacyPci("80000060", "in32 0cfc") +
                  Log({"mmap /dev/mem e0100000 2000 rw shared", "mr32 e0100100", "munmap e0100000 2000"}));
}

TEST(PciConfig, AnAbsentFunctionReadsAllOnes) {
    OpenBoard("intel");
    EXPECT_EQ(PciRead8(9, 9, 7, 0), 0xFF);
    EXPECT_EQ(PciRead16(9, 9, 7, 0), 0xFFFF);
    EXPECT_EQ(PciRead32(9, 9, 7, 0), 0xFFFFFFFFu);
    EXPECT_EQ(PciRead32(9, 9, 7, 0x100), 0xFFFFFFFFu);
    EXPECT_EQ(PciRead32(5, 1, 0, 0x100), 0xFFFFFFFFu); // a conventional function has no extended space
}

TEST(PciConfig, OffsetsAboveFFFReadAllOnesWithoutAnyAccess) {
    OpenBoard("intel");
    EXPECT_EQ(PciRead8(0, 0, 0, 0x1000), 0xFF);
    EXPECT_EQ(PciRead16(0, 0, 0, 0x1000), 0xFFFF);
    EXPECT_EQ(PciRead32(0, 0, 0, 0x1000), 0xFFFFFFFFu);
    EXPECT_EQ(PciRead32(0, 0, 0, 0xFFFF), 0xFFFFFFFFu);
    PciWrite8(0, 0, 0, 0x1000, 0);
    PciWrite16(0, 0, 0, 0x1000, 0);
    PciWrite32(0, 0, 0, 0xFFFF, 0);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciConfig, AnUnknownVendorHasLegacySpaceOnly) {
    OpenBoard("unknown");
    EXPECT_EQ(PciRead8(1, 0, 0, 0x100), 0xFF);
    EXPECT_EQ(PciRead16(1, 0, 0, 0x100), 0xFFFF);
    EXPECT_EQ(PciRead32(1, 0, 0, 0x100), 0xFFFFFFFFu);
    TakeLog();
    PciWrite8(1, 0, 0, 0x100, 0);
    PciWrite16(1, 0, 0, 0x100, 0);
    PciWrite32(1, 0, 0, 0x100, 0);
    EXPECT_EQ(TakeLog(), Log{});
    EXPECT_EQ(PciRead32(1, 0, 0, 0xFC), 0x89ABCDEFu);
    PciWrite32(1, 0, 0, 0xFC, 0x55AA55AA);
    EXPECT_EQ(BoardGetPci(Function(1, 0, 0), 0xFC, 4), 0x55AA55AAu);
}

TEST(PciConfig, ExtendedReadsWithoutTheirMemoryGiveTheValuesOfMemoryReads) {
    OpenBoard("refusedmap");
    EXPECT_EQ(PciRead8(1, 0, 0, 0x100), 0xFF);
    EXPECT_EQ(PciRead16(1, 0, 0, 0x100), 0xFFFF);
    EXPECT_EQ(PciRead32(1, 0, 0, 0x100), 0x0000FFFFu); // a refused dword
    OpenBoard("nomem");
    EXPECT_EQ(PciRead32(1, 0, 0, 0x100), 0xFFFFFFFFu);
}

TEST(PciConfig, WritesBelow100GoThroughTheLegacyPorts) {
    OpenBoard("intel");
    PciWrite8(0, 0, 0, 0xDC, 0xA5);
    PciWrite16(0, 0x1F, 4, 0x20, 0xEFA1);
    PciWrite32(0, 0x1F, 0, 0x84, 0x003C0B01);
    EXPECT_EQ(TakeLog(), LegacyPci("800000dc", "out8 0cfc a5") + LegacyPci("8000fc20", "out16 0cfc efa1") +
                             LegacyPci("8000f884", "out32 0cfc 003c0b01"));
    EXPECT_EQ(BoardGetPci(0, 0xDC, 1), 0xA5u);
    EXPECT_EQ(BoardGetPci(Function(0, 0x1F, 0), 0x84, 4), 0x003C0B01u);
}

TEST(PciConfig, WritesFrom100OnGoThroughTheWindow) {
    OpenBoard("intel");
    uint32_t base;
    GetPcieBaseAddress(&base);
    TakeLog();
    PciWrite8(1, 0, 0, 0x10C, 0x10);
    PciWrite16(1, 0, 0, 0x10C, 0x1010);
    PciWrite32(1, 0, 0, 0x10C, 0x00461010);
    EXPECT_EQ(TakeLog(), Mapped("e0100000", "2000", {"mw8 e010010c 10"}) +
                             Mapped("e0100000", "2000", {"mw16 e010010c 1010"}) +
                             Mapped("e0100000", "2000", {"mw32 e010010c 00461010"}));
    EXPECT_EQ(BoardGetPci(Function(1, 0, 0), 0x10C, 4), 0x00461010u);
}

TEST(PciConfig, IndirectReadsWriteTheIndexAndReadTheDataInOneWidth) {
    OpenBoard("intel");
    uint8_t buffer[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    PciIndirectRead(1, 0, 0, 0, 0xDC, 0x00, 0x12345678, buffer);
    EXPECT_EQ(memcmp(buffer, "\x86\xEE\xEE\xEE", 4), 0);
    PciIndirectRead(2, 0, 0, 0, 0xDC, 0x00, 0x12345678, buffer);
    EXPECT_EQ(memcmp(buffer, "\x86\x80\xEE\xEE", 4), 0);
    PciIndirectRead(3, 0, 0, 0, 0xDC, 0x00, 0x12345678, buffer);
    EXPECT_EQ(memcmp(buffer, "\x86\x80\x30\x3E", 4), 0);
    EXPECT_EQ(TakeLog(), LegacyPci("800000dc", "out8 0cfc 78") + LegacyPci("80000000", "in8 0cfc -> 86") +
                             LegacyPci("800000dc", "out16 0cfc 5678") +
                             LegacyPci("80000000", "in16 0cfc -> 8086") +
                             LegacyPci("800000dc", "out32 0cfc 12345678") +
                             LegacyPci("80000000", "in32 0cfc -> 3e308086"));
}

TEST(PciConfig, IndirectWritesWriteTheIndexAndTheDataInOneWidth) {
    OpenBoard("intel");
    const uint8_t buffer[] = {0xA1, 0xA2, 0xA3, 0xA4};
    PciIndirectWrite(1, 0, 0, 0, 0xD8, 0xDC, 0x12345678, buffer);
    PciIndirectWrite(2, 0, 0, 0, 0xD8, 0xDC, 0x12345678, buffer);
    PciIndirectWrite(3, 0, 0, 0, 0xD8, 0xDC, 0x12345678, buffer);
    EXPECT_EQ(TakeLog(), LegacyPci("800000d8", "out8 0cfc 78") + LegacyPci("800000dc", "out8 0cfc a1") +
                             LegacyPci("800000d8", "out16 0cfc 5678") +
                             LegacyPci("800000dc", "out16 0cfc a2a1") +
                             LegacyPci("800000d8", "out32 0cfc 12345678") +
                             LegacyPci("800000dc", "out32 0cfc a4a3a2a1"));
}

TEST(PciConfig, IndirectAccessesOfAnotherWidthOnlyAssert) {
    OpenBoard("intel");
    uint8_t buffer[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    for (uint8_t width : {uint8_t{0}, uint8_t{4}}) {
        EXPECT_EQ(Printed([&] { PciIndirectRead(width, 0, 0, 0, 0xDC, 0, 1, buffer); }),
                  "ASSERT in ./BasicLib/BasicLib on 1046: FALSE\n");
        EXPECT_EQ(Printed([&] { PciIndirectWrite(width, 0, 0, 0, 0xDC, 0, 1, buffer); }),
                  "ASSERT in ./BasicLib/BasicLib on 1080: FALSE\n");
    }
    EXPECT_EQ(TakeLog(), Log{});
    EXPECT_EQ(buffer[0], 0xEE);
}

TEST(PciConfig, UnalignedStoresReturnTheValue) {
    uint8_t place[8];
    for (size_t at = 0; at < 4; ++at) {
        memset(place, 0xEE, sizeof(place));
        EXPECT_EQ(EfiWriteUnaligned16(place + at, 0x2211), 0x2211);
        EXPECT_EQ(memcmp(place + at, "\x11\x22\xEE", 3), 0);
        EXPECT_EQ(EfiWriteUnaligned32(place + at, 0x44332211), 0x44332211u);
        EXPECT_EQ(memcmp(place + at, "\x11\x22\x33\x44", 4), 0);
    }
}

TEST(PciConfig, UnalignedStoresToNowhereAssert) {
    EXPECT_EQ(Printed([] { EXPECT_EQ(EfiWriteUnaligned16(nullptr, 0x2211), 0x2211); }),
              "ASSERT in ./BasicLib/BasicLib on 1096: Buffer != NULL\n");
    EXPECT_EQ(Printed([] { EXPECT_EQ(EfiWriteUnaligned32(nullptr, 0x44332211), 0x44332211u); }),
              "ASSERT in ./BasicLib/BasicLib on 1111: Buffer != NULL\n");
}

TEST(PciConfig, ABufferedReadTakesTheWidestAlignedAccesses) {
    OpenBoard("intel");
    uint8_t buffer[9];
    memset(buffer, 0xEE, sizeof(buffer));
    EXPECT_EQ(PciReadBuffer(0, 0, 0, 0x03, 8, buffer), 8u);
    EXPECT_EQ(TakeAccesses(), LegacyPci("80000003", "in8 0cff") + LegacyPci("80000004", "in32 0cfc") +
                                  LegacyPci("80000008", "in16 0cfc") + LegacyPci("8000000a", "in8 0cfe"));
    EXPECT_EQ(memcmp(buffer, "\x3E\x00\x00\x90\x20\x0A\x00\x00\xEE", 9), 0);
}

TEST(PciConfig, ABufferedReadFromAWordBoundaryBeginsWithAWord) {
    OpenBoard("intel");
    uint8_t buffer[16];
    PciReadBuffer(0, 0, 0, 0x02, 6, buffer);
    EXPECT_EQ(TakeAccesses(), LegacyPci("80000002", "in16 0cfe") + LegacyPci("80000004", "in32 0cfc"));
    PciReadBuffer(0, 0, 0, 0x01, 7, buffer);
    EXPECT_EQ(TakeAccesses(), LegacyPci("80000001", "in8 0cfd") + LegacyPci("80000002", "in16 0cfe") +
                                  LegacyPci("80000004", "in32 0cfc"));
    PciReadBuffer(0, 0, 0, 0x00, 8, buffer);
    EXPECT_EQ(TakeAccesses(), LegacyPci("80000000", "in32 0cfc") + LegacyPci("80000004", "in32 0cfc"));
    PciReadBuffer(0, 0, 0, 0x02, 1, buffer);
    EXPECT_EQ(TakeAccesses(), LegacyPci("80000002", "in8 0cfe"));
    PciReadBuffer(0, 0, 0, 0x03, 1, buffer);
    EXPECT_EQ(TakeAccesses(), LegacyPci("80000003", "in8 0cff"));
    PciReadBuffer(0, 0, 0, 0x04, 3, buffer);
    EXPECT_EQ(TakeAccesses(), LegacyPci("80000004", "in16 0cfc") + LegacyPci("80000006", "in8 0cfe"));
}

TEST(PciConfig, ABufferedReadOfEveryRangeGivesTheBytes) {
    OpenBoard("intel");
    uint8_t whole[0x40];
    for (uint16_t offset = 0; offset < sizeof(whole); ++offset)
        whole[offset] = PciRead8(0, 0x1F, 4, offset);
    for (uint64_t start = 0; start < 8; ++start) {
        for (uint64_t size = 1; size < 16; ++size) {
            std::vector<uint8_t> buffer(size);
            EXPECT_EQ(PciReadBuffer(0, 0x1F, 4, start, size, buffer.data()), size);
            EXPECT_EQ(memcmp(buffer.data(), whole + start, size), 0) << start << " " << size;
        }
    }
}

TEST(PciConfig, ABufferedReadOfNothingReadsNothing) {
    OpenBoard("intel");
    EXPECT_EQ(Printed([] { EXPECT_EQ(PciReadBuffer(0, 0, 0, 3, 0, nullptr), 0u); }), "");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciConfig, ABufferedReadBeyondTheSpaceAssertsAndStillReads) {
    OpenBoard("intel");
    uint8_t buffer[4] = {};
    uint32_t base;
    GetPcieBaseAddress(&base);
    TakeLog();
    EXPECT_EQ(Printed([&] { EXPECT_EQ(PciReadBuffer(1, 0, 0, 0xFFE, 4, buffer), 4u); }),
              "ASSERT in ./BasicLib/BasicLib on 1132: ((StartAddress & 0xFFF) + Size) <= 0x1000\n");
    EXPECT_EQ(TakeAccesses(),
              (Log{"mmap /dev/mem e0100000 2000 rw shared", "mr16 e0100ffe", "munmap e0100000 2000"}));
    EXPECT_EQ(memcmp(buffer, "\x00\x00\xFF\xFF", 4), 0);
    EXPECT_EQ(Printed([&] { PciReadBuffer(1, 0, 0, 0xFFC, 4, buffer); }), "");
}

TEST(PciConfig, ABufferedReadCutsTheOffsetTo16Bits) {
    OpenBoard("intel");
    uint8_t buffer[2] = {};
    EXPECT_EQ(Printed([&] { PciReadBuffer(0, 0, 0, 0x123450000, 2, buffer); }), "");
    EXPECT_EQ(memcmp(buffer, "\x86\x80", 2), 0);
}

TEST(PciConfig, ABufferedReadWithoutABufferAsserts) {
    OpenBoard("intel");
    const std::string printed = Printed([] { EXPECT_EQ(PciReadBuffer(0, 0, 0, 0, 1, nullptr), 1u); });
    EXPECT_EQ(printed, "ASSERT in ./BasicLib/BasicLib on 1138: Buffer != NULL\n");
}

TEST(PciConfig, TheClassCodeIsTheWordAt0A) {
    OpenBoard("intel");
    EXPECT_EQ(GetPciClassCode(0, 0x1F, 4), 0x0C05);
    EXPECT_EQ(TakeAccesses(), LegacyPci("8000fc0a", "in16 0cfe"));
    EXPECT_EQ(GetPciClassCode(0, 0, 0), 0x0600);
    EXPECT_EQ(GetPciClassCode(1, 0, 0), 0x0108); // the programming interface is no part of it
}

TEST(PciConfig, APciExpressControllerHasItsCapability) {
    OpenBoard("intel");
    EXPECT_TRUE(isPcieController(1, 0, 0));
    EXPECT_TRUE(isPcieController(0, 1, 0));
    EXPECT_FALSE(isPcieController(0, 0x14, 0)); // capabilities, but not this one
    EXPECT_FALSE(isPcieController(5, 1, 0));    // no list
}

TEST(PciConfig, TheCapabilityListIsWalkedInWords) {
    OpenBoard("intel");
    EXPECT_TRUE(isPcieController(1, 0, 0));
    EXPECT_EQ(TakeLog(),
              LegacyPci("80010034", "in16 0cfc -> 0040") + LegacyPci("80010040", "in16 0cfc -> 5001") +
                  LegacyPci("80010050", "in16 0cfc -> 7005") + LegacyPci("80010070", "in16 0cfc -> b010"));
    EXPECT_FALSE(isPcieController(5, 1, 0));
    EXPECT_EQ(TakeAccesses(), LegacyPci("80050834", "in16 0cfc"));
}

TEST(PciConfig, TheWalkTakesPointersAsTheyStandAndAsksNoStatusBit) {
    OpenBoard("intel");
    const uint16_t card = Function(5, 1, 0);
    BoardSetPci(card, 0x34, 2, 0xFF41); // the high byte is not the pointer's
    BoardSetPci(card, 0x41, 2, 0x5305);
    BoardSetPci(card, 0x53, 2, 0x0010);
    EXPECT_TRUE(isPcieController(5, 1, 0));
}

TEST(PciConfig, AnIdOfZeroDoesNotEndTheWalk) {
    OpenBoard("intel");
    const uint16_t card = Function(5, 1, 0);
    BoardSetPci(card, 0x34, 1, 0x40);
    BoardSetPci(card, 0x40, 2, 0x5000);
    BoardSetPci(card, 0x50, 2, 0x0010);
    EXPECT_TRUE(isPcieController(5, 1, 0));
}

TEST(PciConfig, ACapabilityListThatRunsInACircleComesToAnEnd) {
    OpenBoard("caploop");
    EXPECT_FALSE(isPcieController(0, 0x14, 0));
    EXPECT_FALSE(isPcieController(1, 0, 0));
    EXPECT_FALSE(isPcieController(9, 9, 7)); // an absent function: 0xFF leads to 0xFF
}
