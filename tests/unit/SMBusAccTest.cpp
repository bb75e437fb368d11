#include "Project/SMBusAcc.h"

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

TEST(SMBusAcc, ADumpWithoutMemoryFailsWithoutAWord) {
    OpenBoard("intel");
    SetCommand({"hwreg", "/SMBUS", "/DUMP", "0x58"});
    LimitMalloc(255);
    int status = 0;
    EXPECT_EQ(Printed([&] { status = SMBusEntryPoint(); }), "");
    EXPECT_EQ(status, -1);
    SetCommand({"hwreg", "/SMBUS", "/DUMP", "0xA2"});
    LimitMalloc(511);
    EXPECT_EQ(Printed([&] { status = SMBusEntryPoint(); }), "");
    EXPECT_EQ(status, -1);
}

TEST(SMBusAcc, ADumpReleasesItsBufferHoweverItEnds) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0\nunlogged 0 10000");
    for (const char *slave : {"0xA0", "0x58", "0x30"}) { // a DDR4 module, another device, nobody
        SetCommand({"hwreg", "/SMBUS", "/DUMP", slave, "/LOG"});
        long held = BlocksHeld();
        Printed([] { SMBusEntryPoint(); });
        EXPECT_EQ(BlocksHeld(), held) << slave;
    }
}

TEST(SMBusAcc, TheHandlerGivesMinusOneForFailuresAndTheByteElse) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0\nunlogged 0 10000");
    int status = 0;
    auto run = [&](std::initializer_list<const char *> words) {
        SetCommand(words);
        Printed([&] { status = SMBusEntryPoint(); });
        return status;
    };
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/?"}), -1);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/RB", "0xA0", "2"}), 0x0C);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/RB", "0xA6", "2"}), -1);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/WB", "0x58", "2", "0x99"}), 0x99);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/S", "0xA0"}), -1);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/S", "0xA6", "0xA6"}), 0xFF);
    EXPECT_EQ(run({"hwreg", "/SMBUS", "/RI", "0xA0", "2"}), 0xFF);
    EXPECT_EQ(run({"hwreg", "/SMBUS"}), 0xFF);
}

TEST(SMBusAcc, ADumpOrAScanWhoseWordIsNotThereReadsNothing) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0");
    for (CmdType flag : {Flag::DUMP, Flag::S}) {
        SetCommand({"hwreg", "/SMBUS"});
        AddFlags(flag);
        BoardLogClear();
        EXPECT_EQ(Printed([] { EXPECT_EQ(SMBusEntryPoint(), 0xFF); }), "");
        for (const std::string &access : TakeLog())
            EXPECT_EQ(access.find(" efa"), std::string::npos) << access;
    }
}
