#include "BasicLib/Place.h"

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

// Four ports from 0x61 on that hold 0x88442211.
static void OpenPorts() {
    OpenBoard("intel", "latch 0061 4");
    const uint8_t bytes[] = {0x11, 0x22, 0x44, 0x88};
    for (uint16_t i = 0; i < 4; ++i)
        BoardSetPort(static_cast<uint16_t>(0x61 + i), bytes[i]);
}

TEST(Place, IoReadBitFindsEveryBitOfADword) {
    OpenPorts();
    for (uint32_t bit = 0; bit < 32; ++bit)
        EXPECT_EQ(IoReadBit(0x61, bit), (0x88442211u >> bit) & 1) << bit;
}

TEST(Place, TheBitNumberChoosesTheWidthAtTheSamePort) {
    OpenPorts();
    for (uint32_t bit : {0u, 7u, 8u, 15u, 16u, 31u})
        IoReadBit(0x61, bit);
    EXPECT_EQ(TakeLog(), (Log{"in8 0061 -> 11", "in8 0061 -> 11", "in16 0061 -> 2211", "in16 0061 -> 2211",
                              "in32 0061 -> 88442211", "in32 0061 -> 88442211"}));
}

TEST(Place, ABitNumberFrom32OnMakesNoAccess) {
    OpenPorts();
    for (uint32_t bit : {32u, 40u, 64u, 0xFFFFFFFFu}) {
        EXPECT_EQ(IoReadBit(0x61, bit), 0u);
        EXPECT_EQ(IoIndexReadBit(0x61, 0x62, 0, bit), 0u);
        EXPECT_EQ(MemReadBit(0x1000, bit), 0u);
        EXPECT_EQ(PciReadBit(0, 0, 0, 0, bit), 0u);
        IoWriteBit(0x61, bit, 1);
        IoIndexWriteBit(0x61, 0x62, 0, bit, 1);
        MemWriteBit(0x1000, bit, 1);
        PciWriteBit(0, 0, 0, 0, bit, 1);
    }
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(Place, IoWriteBitReadsChangesAndWritesInOneWidth) {
    OpenPorts();
    IoWriteBit(0x61, 3, 1);
    EXPECT_EQ(TakeLog(), (Log{"in8 0061 -> 11", "out8 0061 19"}));
    IoWriteBit(0x61, 12, 1);
    EXPECT_EQ(TakeLog(), (Log{"in16 0061 -> 2219", "out16 0061 3219"}));
    IoWriteBit(0x61, 31, 0);
    EXPECT_EQ(TakeLog(), (Log{"in32 0061 -> 88443219", "out32 0061 08443219"}));
}

TEST(Place, IoWriteBitClearsABit) {
    OpenBoard("intel");
    BoardSetPort(0x80, 0xFF);
    IoWriteBit(0x80, 3, 0);
    EXPECT_EQ(TakeLog(), (Log{"in8 0080 -> ff", "out8 0080 f7"}));
}

TEST(Place, OnlyTheLow8BitsOfAPortBitsValueCount) {
    OpenBoard("intel");
    BoardSetPort(0x80, 0x00);
    IoWriteBit(0x80, 0, 0x80);
    EXPECT_EQ(BoardGetPort(0x80), 0x01);
    const uint32_t value = 0x100;
    IoWriteBit(0x80, 0, static_cast<uint8_t>(value));
    EXPECT_EQ(BoardGetPort(0x80), 0x00);
}

TEST(Place, IoIndexReadBitUsesTheDataPortInTheBitsWidth) {
    OpenBoard("intel", "latch 0070 8\nconstant 0074 11 22 44 88");
    EXPECT_EQ(IoIndexReadBit(0x70, 0x74, 0x0B, 4), 1u);
    EXPECT_EQ(IoIndexReadBit(0x70, 0x74, 0x0B, 13), 1u);
    EXPECT_EQ(IoIndexReadBit(0x70, 0x74, 0x10B, 30), 0u);
    EXPECT_EQ(TakeAccesses(), Delays(2) + Log({"out8 0070 0b", "in8 0074"}) + Delays(2) +
                                  Log({"out8 0070 0b", "in16 0074"}) + Delays(2) +
                                  Log({"out16 0070 010b", "in32 0074"}));
}

TEST(Place, IoIndexWriteBitMakesTwoIndexSequences) {
    OpenBoard("intel", "latch 0070 8");
    BoardSetPort(0x71, 0x02);
    IoIndexWriteBit(0x70, 0x71, 0x0B, 7, 1);
    EXPECT_EQ(TakeLog(), Delays(2) + Log({"out8 0070 0b", "in8 0071 -> 02"}) + Delays(2) +
                             Log({"out8 0070 0b", "out8 0071 82"}));
    IoIndexWriteBit(0x70, 0x74, 0x0B, 8, 1);
    EXPECT_EQ(TakeLog(), Delays(2) + Log({"out8 0070 0b", "in16 0074 -> 0000"}) + Delays(2) +
                             Log({"out8 0070 0b", "out16 0074 0100"}));
    IoIndexWriteBit(0x70, 0x74, 0x0B, 8, 0);
    EXPECT_EQ(TakeLog(), Delays(2) + Log({"out8 0070 0b", "in16 0074 -> 0100"}) + Delays(2) +
                             Log({"out8 0070 0b", "out16 0074 0000"}));
    IoIndexWriteBit(0x70, 0x74, 0x0B, 31, 1);
    EXPECT_EQ(TakeLog(), Delays(2) + Log({"out8 0070 0b", "in32 0074 -> 00000000"}) + Delays(2) +
                             Log({"out8 0070 0b", "out32 0074 80000000"}));
}

TEST(Place, All32BitsOfAnIndexBitsValueCount) {
    OpenBoard("intel", "latch 0070 8");
    BoardSetPort(0x71, 0x00);
    IoIndexWriteBit(0x70, 0x71, 0x0B, 0, 0x100);
    EXPECT_EQ(BoardGetPort(0x71), 0x01);
    IoIndexWriteBit(0x70, 0x71, 0x0B, 0, 0x80000000);
    EXPECT_EQ(BoardGetPort(0x71), 0x01);
    IoIndexWriteBit(0x70, 0x71, 0x0B, 0, 0);
    EXPECT_EQ(BoardGetPort(0x71), 0x00);
}

TEST(Place, MemoryBitsUseTheBitsWidthAtTheSameAddress) {
    OpenBoard("intel", "watch 00001000 00001000\nbytes 00001000 11 22 44 88");
    EXPECT_EQ(MemReadBit(0x1000, 4), 1u);
    EXPECT_EQ(MemReadBit(0x1000, 8), 0u);
    EXPECT_EQ(MemReadBit(0x1000, 31), 1u);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mr8 00001000 -> 11"}) +
                             Mapped("00001000", "2000", {"mr16 00001000 -> 2211"}) +
                             Mapped("00001000", "2000", {"mr32 00001000 -> 88442211"}));
}

TEST(Place, AMemoryBitIsWrittenWithTwoMappings) {
    OpenBoard("intel", "watch 00001000 00001000\nbytes 00001000 11 22 44 88");
    MemWriteBit(0x1000, 1, 1);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mr8 00001000 -> 11"}) +
                             Mapped("00001000", "2000", {"mw8 00001000 13"}));
    MemWriteBit(0x1000, 9, 0);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mr16 00001000 -> 2213"}) +
                             Mapped("00001000", "2000", {"mw16 00001000 2013"}));
    MemWriteBit(0x1000, 16, 1);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mr32 00001000 -> 88442013"}) +
                             Mapped("00001000", "2000", {"mw32 00001000 88452013"}));
}

TEST(Place, ABitOfMemoryThatCannotBeMappedReadsOneInTheLow16) {
    OpenBoard("refusedmap");
    EXPECT_EQ(MemReadBit(0xE0000000, 0), 1u);
    EXPECT_EQ(MemReadBit(0xE0000000, 15), 1u);
    EXPECT_EQ(MemReadBit(0xE0000000, 16), 0u); // the failure value of a dword has 16 ones
    MemWriteBit(0xE0000000, 0, 0);
}

TEST(Place, PciBitsUseTheBitsWidthAtTheSameOffset) {
    OpenBoard("intel");
    EXPECT_EQ(PciReadBit(0, 0, 0, 0, 1), 1u); // vendor 8086
    EXPECT_EQ(PciReadBit(0, 0, 0, 0, 15), 1u);
    EXPECT_EQ(PciReadBit(0, 0, 0, 0, 16), 0u); // device 3e30
    EXPECT_EQ(TakeLog(), LegacyPci("80000000", "in8 0cfc -> 86") +
                             LegacyPci("80000000", "in16 0cfc -> 8086") +
                             LegacyPci("80000000", "in32 0cfc -> 3e308086"));
}

TEST(Place, APciBitIsReadChangedAndWritten) {
    OpenBoard("intel");
    PciWriteBit(0, 0, 0, 0xDC, 0, 1);
    EXPECT_EQ(TakeLog(), LegacyPci("800000dc", "in8 0cfc -> 5a") + LegacyPci("800000dc", "out8 0cfc 5b"));
    EXPECT_EQ(PciReadBit(0, 0, 0, 0xDC, 0), 1u);
    TakeLog();
    PciWriteBit(0, 0, 0, 0xDC, 9, 0);
    EXPECT_EQ(TakeLog(),
              LegacyPci("800000dc", "in16 0cfc -> 005b") + LegacyPci("800000dc", "out16 0cfc 005b"));
    PciWriteBit(1, 2, 3, 0xDC, 31, 0);
    EXPECT_EQ(TakeLog(),
              LegacyPci("800113dc", "in32 0cfc -> ffffffff") + LegacyPci("800113dc", "out32 0cfc 7fffffff"));
}

TEST(Place, PciBitsReachExtendedSpace) {
    OpenBoard("intel");
    EXPECT_EQ(PciReadBit(1, 0, 0, 0x14C, 28), 1u); // serial number 12345678
    PciWriteBit(1, 0, 0, 0x10C, 12, 1);
    EXPECT_EQ(BoardGetPci(0x100, 0x10C, 4), 0x00463030u);
}
