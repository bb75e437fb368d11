#include "BasicLib/PciConfig.h"

#include <cstring>

#include <gtest/gtest.h>

#include "BasicLib/PciWindow.h"
#include "TestHelp.h"
#include "sim/Board.h"

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
    EXPECT_NE(Printed([&] { PciReadBuffer(1, 0, 0, 0xFFF, 2, buffer); }), "");
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
