#include "BasicLib/PortIo.h"

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

// Eight ports from 0x1000 on that keep what is written to them.
static void OpenScratchPorts() {
    OpenBoard("intel", "latch 1000 8");
    const uint8_t bytes[] = {0x81, 0x92, 0xA3, 0xB4, 0xC5};
    for (uint16_t i = 0; i < sizeof(bytes); ++i)
        BoardSetPort(static_cast<uint16_t>(0x1000 + i), bytes[i]);
}

TEST(PortIo, InstructionsReadOneAccessOfTheirWidthZeroExtended) {
    OpenScratchPorts();
    EXPECT_EQ(inb(0x1000), 0x81u);
    EXPECT_EQ(inw(0x1000), 0x9281u);
    EXPECT_EQ(inl(0x1000), 0xB4A39281u);
    EXPECT_EQ(inw(0x1001), 0xA392u);
    EXPECT_EQ(TakeLog(),
              (Log{"in8 1000 -> 81", "in16 1000 -> 9281", "in32 1000 -> b4a39281", "in16 1001 -> a392"}));
}

TEST(PortIo, InstructionsTakeTheValueBeforeThePort) {
    OpenScratchPorts();
    EXPECT_EQ(outb(0x12, 0x1000), 0x12u);
    outw(0x3456, 0x1002);
    EXPECT_EQ(outl(0x789ABCDE, 0x1004), 0x789ABCDEu);
    EXPECT_EQ(TakeLog(), (Log{"out8 1000 12", "out16 1002 3456", "out32 1004 789abcde"}));
}

TEST(PortIo, InstructionsCutThePortAndTheValue) {
    OpenScratchPorts();
    EXPECT_EQ(outb(0xFFFFFF13, 0x51000), 0x13u);
    outw(0xFFFF3456, 0x51000);
    EXPECT_EQ(outl(0xFFFFFFFF, 0x51000), 0xFFFFFFFFu);
    inb(0x51000);
    inw(0x51000);
    inl(0x51000);
    EXPECT_EQ(TakeAccesses(), (Log{"out8 1000 13", "out16 1000 3456", "out32 1000 ffffffff", "in8 1000",
                                   "in16 1000", "in32 1000"}));
}

TEST(PortIo, IoReadsAreOneAccessOfTheirWidth) {
    OpenScratchPorts();
    EXPECT_EQ(IoRead8(0x1001), 0x92u);
    EXPECT_EQ(IoRead16(0x1001), 0xA392u);
    EXPECT_EQ(IoRead32(0x1001), 0xC5B4A392u);
    EXPECT_EQ(TakeLog(), (Log{"in8 1001 -> 92", "in16 1001 -> a392", "in32 1001 -> c5b4a392"}));
}

TEST(PortIo, IoWritesTakeThePortBeforeTheValue) {
    OpenScratchPorts();
    IoWrite8(0x1000, 0x12);
    IoWrite16(0x1002, 0x3456);
    IoWrite32(0x1004, 0x789ABCDE);
    EXPECT_EQ(TakeLog(), (Log{"out8 1000 12", "out16 1002 3456", "out32 1004 789abcde"}));
    EXPECT_EQ(BoardGetPort(0x1000), 0x12);
    EXPECT_EQ(BoardGetPort(0x1003), 0x34);
    EXPECT_EQ(BoardGetPort(0x1007), 0x78);
}

TEST(PortIo, AValueIsCutToTheWidth) {
    OpenScratchPorts();
    IoWrite8(0x1000, 0x1234);
    IoWrite16(0x1000, 0x12345678);
    EXPECT_EQ(TakeLog(), (Log{"out8 1000 34", "out16 1000 5678"}));
}

TEST(PortIo, APortIsUsedModulo0x10000) {
    OpenBoard("intel");
    BoardSetPort(0x80, 0x5A);
    EXPECT_EQ(IoRead8(0x10080), 0x5Au);
    IoRead16(0xFFFF0080);
    IoRead32(0x20080);
    IoWrite8(0x10080, 1);
    IoWrite16(0x10080, 2);
    IoWrite32(0x10080, 3);
    EXPECT_EQ(TakeAccesses(), (Log{"in8 0080", "in16 0080", "in32 0080", "out8 0080 01", "out16 0080 0002",
                                   "out32 0080 00000003"}));
}

TEST(PortIo, AnUnclaimedPortReadsAllOnesOfTheWidth) {
    OpenBoard("intel");
    EXPECT_EQ(IoRead8(0x1234), 0xFFu);
    EXPECT_EQ(IoRead16(0x1234), 0xFFFFu);
    EXPECT_EQ(IoRead32(0x1234), 0xFFFFFFFFu);
}

TEST(PortIo, IoDelayWritesZeroToPortEDForEachUnit) {
    OpenBoard("intel");
    IoDelay(0);
    EXPECT_EQ(TakeLog(), Log{});
    IoDelay(2);
    EXPECT_EQ(TakeLog(), Delays(2));
    IoDelay(1000);
    EXPECT_EQ(TakeLog(), Delays(1000));
}

TEST(PortIoDeathTest, AnAccessWithoutThePrivilegeFaultsTheProcess) {
    LoadBoard("intel");
    EXPECT_DEATH(IoRead8(0x80), "");
    EXPECT_DEATH(IoWrite8(0x80, 0), "");
}
