#include "BasicLib/PciIndirect.h"

#include <cstring>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

TEST(PciIndirect, IndirectReadsWriteTheIndexAndReadTheDataInOneWidth) {
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

TEST(PciIndirect, IndirectWritesWriteTheIndexAndTheDataInOneWidth) {
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

TEST(PciIndirect, IndirectAccessesReachAnyFunction) {
    OpenBoard("intel");
    uint8_t buffer[4] = {0xA1, 0xA2, 0xA3, 0xA4};
    PciIndirectWrite(1, 1, 2, 3, 0xD8, 0xDC, 0x5A, buffer);
    PciIndirectRead(1, 1, 2, 3, 0xD8, 0xDC, 0x5A, buffer);
    EXPECT_EQ(TakeAccesses(), LegacyPci("800113d8", "out8 0cfc 5a") + LegacyPci("800113dc", "out8 0cfc a1") +
                                  LegacyPci("800113d8", "out8 0cfc 5a") + LegacyPci("800113dc", "in8 0cfc"));
}

TEST(PciIndirect, IndirectAccessesOfAnotherWidthOnlyAssert) {
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

TEST(PciIndirect, WithoutABufferTheIndexIsWrittenAndADataReadIsMade) {
    OpenBoard("intel");
    PciIndirectWrite(3, 0, 0, 0, 0xD8, 0xDC, 0x1234, nullptr);
    EXPECT_EQ(TakeLog(), LegacyPci("800000d8", "out32 0cfc 00001234"));
    PciIndirectRead(3, 0, 0, 0, 0xD8, 0xDC, 0x1234, nullptr);
    EXPECT_EQ(TakeAccesses(),
              LegacyPci("800000d8", "out32 0cfc 00001234") + LegacyPci("800000dc", "in32 0cfc"));
}
