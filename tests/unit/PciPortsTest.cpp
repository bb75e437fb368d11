#include "BasicLib/PciPorts.h"

#include <cstring>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

TEST(PciPorts, ALegacyReadIsTwoDelaysTheAddressAndTheData) {
    OpenBoard("intel");
    uint8_t buffer[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(LegacyIoPciRead(1, 0, 0x1F, 3, 0x41, buffer), 1);
    EXPECT_EQ(TakeAccesses(), LegacyPci("8000fb41", "in8 0cfd"));
    EXPECT_EQ(buffer[1], 0xEE);
}

TEST(PciPorts, ALegacyReadStoresTheValueInItsWidth) {
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

TEST(PciPorts, TheLowOffsetBitsStayInTheAddressAndChooseTheLaneOfBytesAndWords) {
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

TEST(PciPorts, ALegacyWriteTakesTheValueInItsWidth) {
    OpenBoard("intel");
    const uint8_t buffer[] = {0x11, 0x22, 0x33, 0x44};
    EXPECT_EQ(LegacyIoPciWrite(1, 0, 0, 0, 0xDC, buffer), 1);
    EXPECT_EQ(LegacyIoPciWrite(2, 0, 0, 0, 0xDC, buffer), 1);
    EXPECT_EQ(LegacyIoPciWrite(3, 0, 0, 0, 0xDC, buffer), 1);
    EXPECT_EQ(TakeLog(), LegacyPci("800000dc", "out8 0cfc 11") + LegacyPci("800000dc", "out16 0cfc 2211") +
                             LegacyPci("800000dc", "out32 0cfc 44332211"));
    EXPECT_EQ(BoardGetPci(0, 0xDC, 1), 0x11u);
}

TEST(PciPorts, NumbersOutOfRangeSpillIntoTheNeighbouringFields) {
    OpenBoard("intel");
    uint8_t buffer[4];
    // 0x80000000 + (0x101 << 16) + (0x21 << 11) + (9 << 8) + 0x10
    LegacyIoPciRead(1, 0x101, 0x21, 9, 0x10, buffer);
    EXPECT_EQ(TakeAccesses(), LegacyPci("81021110", "in8 0cfc"));
    LegacyIoPciWrite(1, 0xFFFF, 0xFFFF, 0xFFFF, 0xFF, buffer);
    EXPECT_EQ(TakeLog()[2], "out32 0cf8 8"
                            "8fef7ff"); // modulo 2^32
}

TEST(PciPorts, LegacyOffset100IsTheLastOneAccepted) {
    OpenBoard("intel");
    uint8_t buffer[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(LegacyIoPciRead(1, 0, 0, 0, 0x100, buffer), 1);
    EXPECT_EQ(TakeAccesses(), LegacyPci("80000100", "in8 0cfc"));
    buffer[0] = 0xEE;
    EXPECT_EQ(LegacyIoPciWrite(1, 0, 0, 0, 0x100, buffer), 1);
    EXPECT_EQ(TakeAccesses(), LegacyPci("80000100", "out8 0cfc ee"));
    EXPECT_EQ(LegacyIoPciRead(1, 0, 0, 0, 0x101, buffer), 0);
    EXPECT_EQ(LegacyIoPciRead(1, 0, 0, 0, 0xFFFF, buffer), 0);
    EXPECT_EQ(LegacyIoPciWrite(1, 0, 0, 0, 0x101, buffer), 0);
    EXPECT_EQ(buffer[0], 0xEE);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciPorts, ALegacyAccessWithoutABufferTouchesNoPort) {
    OpenBoard("intel");
    EXPECT_EQ(LegacyIoPciRead(1, 0, 0, 0, 0, nullptr), 0);
    EXPECT_EQ(LegacyIoPciWrite(1, 0, 0, 0, 0, nullptr), 0);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PciPorts, ALegacyAccessOfAnotherWidthFailsAfterTheAddress) {
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
