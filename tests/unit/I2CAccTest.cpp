#include "Project/I2CAcc.h"

#include <gtest/gtest.h>

#include "TestHelp.h"

TEST(I2CAcc, TheHandlersResultIsTheValueOrMinusOne) {
    OpenBoard("amd", "i2c-core fedc2000 byte-time 0");
    int status = 0;
    auto run = [&](std::initializer_list<const char *> words) {
        SetCommand(words);
        Printed([&] { status = I2CEntryPoint(); });
        return status;
    };
    EXPECT_EQ(run({"hwreg", "/I2C", "/?"}), 2);
    EXPECT_EQ(run({"hwreg", "/I2C"}), 0xFFFF);
    EXPECT_EQ(run({"hwreg", "/I2C", "/RI", "0"}), 0xFFFF);
    EXPECT_EQ(run({"hwreg", "/I2C", "/WQ", "0"}), 0xFFFF);
    EXPECT_EQ(run({"hwreg", "/I2C", "/RB", "0", "0x50", "1"}), 0x5678);
    EXPECT_EQ(run({"hwreg", "/I2C", "/WB", "0", "0x50", "1", "0x9ABC"}), 0x9ABC);
    EXPECT_EQ(run({"hwreg", "/I2C", "/RB", "0", "0x51", "1"}), -1);
    EXPECT_EQ(run({"hwreg", "/I2C", "/WB", "6", "0x50", "1"}), -1);
}
