#include "BasicLib/IndexIo.h"

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

// Ports 0x70 to 0x77 that keep what is written to them.
static void OpenPairs() {
    OpenBoard("intel", "latch 0070 8");
}

TEST(IndexIo, AByteReadIsTwoDelaysTheIndexAndTheData) {
    OpenPairs();
    BoardSetPort(0x71, 0x26);
    EXPECT_EQ(IoIndexRead8(0x70, 0x71, 0x0A), 0x26u);
    EXPECT_EQ(TakeLog(), Delays(2) + Log({"out8 0070 0a", "in8 0071 -> 26"}));
}

TEST(IndexIo, TheDataPortIsReadInTheWidthAskedFor) {
    OpenPairs();
    for (uint16_t i = 0; i < 4; ++i)
        BoardSetPort(static_cast<uint16_t>(0x74 + i), static_cast<uint8_t>(0xA1 + i));
    EXPECT_EQ(IoIndexRead16(0x70, 0x74, 0x0A), 0xA2A1u);
    EXPECT_EQ(IoIndexRead32(0x70, 0x74, 0x0A), 0xA4A3A2A1u);
    EXPECT_EQ(TakeLog(), Delays(2) + Log({"out8 0070 0a", "in16 0074 -> a2a1"}) + Delays(2) +
                             Log({"out8 0070 0a", "in32 0074 -> a4a3a2a1"}));
}

TEST(IndexIo, TheDataPortIsWrittenInTheWidthAskedForWithTheValueCutToIt) {
    OpenPairs();
    IoIndexWrite8(0x70, 0x71, 0x0A, 0x1234);
    IoIndexWrite16(0x70, 0x72, 0x0B, 0x12345678);
    IoIndexWrite32(0x70, 0x74, 0x0C, 0x12345678);
    EXPECT_EQ(TakeLog(), Delays(2) + Log({"out8 0070 0a", "out8 0071 34"}) + Delays(2) +
                             Log({"out8 0070 0b", "out16 0072 5678"}) + Delays(2) +
                             Log({"out8 0070 0c", "out32 0074 12345678"}));
}

TEST(IndexIo, TheIndexChoosesTheWidthOfItsWrite) {
    OpenPairs();
    IoIndexRead8(0x70, 0x74, 0xFF);
    IoIndexRead8(0x70, 0x74, 0x100);
    IoIndexRead32(0x70, 0x74, 0xFFFF);
    IoIndexWrite16(0x70, 0x74, 0x10000, 0xBEEF);
    IoIndexRead8(0x70, 0x74, 0xFFFFFFFF);
    EXPECT_EQ(TakeAccesses(), Delays(2) + Log({"out8 0070 ff", "in8 0074"}) + Delays(2) +
                                  Log({"out16 0070 0100", "in8 0074"}) + Delays(2) +
                                  Log({"out16 0070 ffff", "in32 0074"}) + Delays(2) +
                                  Log({"out32 0070 00010000", "out16 0074 beef"}) + Delays(2) +
                                  Log({"out32 0070 ffffffff", "in8 0074"}));
}

TEST(IndexIo, PortsAreCutTo16Bits) {
    OpenPairs();
    IoIndexRead8(0x10070, 0x20071, 5);
    IoIndexWrite8(0x10070, 0x20071, 5, 6);
    LegacyIoIndexRead16(0x10070, 0x20071, 5);
    Log log = TakeAccesses();
    EXPECT_EQ(log, Delays(2) + Log({"out8 0070 05", "in8 0071"}) + Delays(2) +
                       Log({"out8 0070 05", "out8 0071 06"}) + Delays(2) + Log({"out8 0070 06", "in8 0071"}) +
                       Delays(2) + Log({"out8 0070 05", "in8 0071"}));
}

// The accesses of one byte register, read or written.
static Log Register(const std::string &index, const std::string &access) {
    return Delays(2) + Log{"out8 0072 " + index, access};
}

TEST(IndexIo, LegacyByteAccessesAreTheOrdinaryOnes) {
    OpenPairs();
    BoardSetPort(0x73, 0x55);
    EXPECT_EQ(LegacyIoIndexRead8(0x72, 0x73, 0x10), 0x55u);
    EXPECT_EQ(TakeLog(), Register("10", "in8 0073 -> 55"));
    LegacyIoIndexWrite8(0x72, 0x73, 0x10, 0x1234);
    EXPECT_EQ(TakeLog(), Register("10", "out8 0073 34"));
}

TEST(IndexIo, LegacyReadsGoFromTheHighestRegisterDown) {
    OpenPairs();
    LegacyIoIndexRead16(0x72, 0x73, 0x10);
    EXPECT_EQ(TakeAccesses(), Register("11", "in8 0073") + Register("10", "in8 0073"));
    LegacyIoIndexRead32(0x72, 0x73, 0x10);
    EXPECT_EQ(TakeAccesses(), Register("13", "in8 0073") + Register("12", "in8 0073") +
                                  Register("11", "in8 0073") + Register("10", "in8 0073"));
}

TEST(IndexIo, LegacyReadsPutTheRegistersTogetherLittleEndian) {
    // The data port is the index port: each register reads as its own number.
    OpenPairs();
    EXPECT_EQ(LegacyIoIndexRead8(0x70, 0x70, 0x41), 0x41u);
    EXPECT_EQ(LegacyIoIndexRead16(0x70, 0x70, 0x41), 0x4241u);
    EXPECT_EQ(LegacyIoIndexRead32(0x70, 0x70, 0xA1), 0xA4A3A2A1u);
}

TEST(IndexIo, LegacyWritesGoFromTheHighestRegisterDown) {
    OpenPairs();
    LegacyIoIndexWrite32(0x72, 0x73, 0x10, 0x11223344);
    EXPECT_EQ(TakeLog(), Register("13", "out8 0073 11") + Register("12", "out8 0073 22") +
                             Register("11", "out8 0073 33") + Register("10", "out8 0073 44"));
    LegacyIoIndexWrite16(0x72, 0x73, 0x10, 0x3344);
    EXPECT_EQ(TakeLog(), Register("11", "out8 0073 33") + Register("10", "out8 0073 44"));
}

TEST(IndexIo, ALegacyWordAcrossRegisterFFWritesAWideIndexFirst) {
    OpenPairs();
    LegacyIoIndexRead16(0x72, 0x73, 0xFF);
    EXPECT_EQ(TakeAccesses(), Delays(2) + Log({"out16 0072 0100", "in8 0073"}) + Register("ff", "in8 0073"));
}
