#include "Platform/SioChip.h"

#include <gtest/gtest.h>

#include "TestHelp.h"

// Ports 0x4E and 0x4F that keep what is written to them.
static void OpenPair() {
    OpenBoard("intel", "latch 004e 2");
}

TEST(SioChip, TheKeysGoToTheIndexPort) {
    OpenPair();
    UnlockSIO();
    EXPECT_EQ(TakeLog(), (Log{"out8 004e a5", "out8 004e a5"}));
    LockSIO();
    EXPECT_EQ(TakeLog(), (Log{"out8 004e aa"}));
}

TEST(SioChip, ADevicesPageIsSelectedAndRead) {
    OpenPair();
    uint8_t buffer[256] = {};
    GetSIO2Buffer(buffer, 0x0B);
    Log log = TakeAccesses();
    ASSERT_EQ(log.size(), 257u * 4);
    const Log first =
        Delays(2) + Log{"out8 004e 07", "out8 004f 0b"} + Delays(2) + Log{"out8 004e 00", "in8 004f"};
    EXPECT_EQ(Log(log.begin(), log.begin() + 8), first);
    const Log last = Delays(2) + Log{"out8 004e ff", "in8 004f"};
    EXPECT_EQ(Log(log.end() - 4, log.end()), last);
    EXPECT_EQ(buffer[255], 0x0B); // the data port keeps what was written
}
