#include "Common/Global.h"

#include <cstring>

#include <gtest/gtest.h>

#include "TestHelp.h"

TEST(Global, TheArgumentRecordIsPacked) {
    EXPECT_EQ(offsetof(CmdArg, Argv), 0u);
    EXPECT_EQ(offsetof(CmdArg, Argc), 8u);
    EXPECT_EQ(offsetof(CmdArg, Cmd), 9u);
    EXPECT_EQ(offsetof(CmdArg, DispFlags), 15u);
    EXPECT_EQ(sizeof(CmdArg), 16u);
}

TEST(Global, DisplayFlagBits) {
    EXPECT_EQ(DISP_DUMP, 1);
    EXPECT_EQ(DISP_DEBUG, 2);
    EXPECT_EQ(DISP_LOG, 4);
    EXPECT_EQ(DISP_TEXT, 8);
}

TEST(Global, TheSeparatorIsSixSpacesAndTheHeadingHasFourColumns) {
    EXPECT_STREQ(gBlankSpace, "      ");
    EXPECT_STREQ(gTitle, "Number\tType\tI/O\tLevel\n");
}

TEST(Global, BeforeTheRecordIsSetNoFlagIsSet) {
    gCmdArg = nullptr;
    EXPECT_EQ(CmdWord(), 0u);
    EXPECT_FALSE(DispHas(DISP_DUMP | DISP_DEBUG | DISP_LOG | DISP_TEXT));
}

TEST(Global, TheCommandWordIsPutTogetherFromSixBytes) {
    CmdArg record = {};
    const uint8_t bytes[CMD_BYTES] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66};
    memcpy(record.Cmd, bytes, sizeof(bytes));
    record.DispFlags = 0xFF;
    gCmdArg = &record;
    EXPECT_EQ(CmdWord(), 0x665544332211u);
    gCmdArg = nullptr;
}

TEST(Global, OneOfSeveralFlagsIsEnough) {
    SetCommand({"hwreg", "/PCI", "/RB"});
    EXPECT_TRUE(HasFlag(CmdWord(), Flag::PCI));
    EXPECT_TRUE(HasFlag(CmdWord(), Flag::READ | Flag::WRITE));
    EXPECT_FALSE(HasFlag(CmdWord(), Flag::WRITE));
    EXPECT_FALSE(HasFlag(CmdWord(), Flag::IO | Flag::MEM));
    gCmdArg->DispFlags = DISP_LOG;
    EXPECT_TRUE(DispHas(DISP_LOG));
    EXPECT_TRUE(DispHas(DISP_LOG | DISP_TEXT));
    EXPECT_FALSE(DispHas(DISP_DUMP));
}

TEST(Global, DisplayFlagsAreAddedToTheRecordOnceThereIsOne) {
    gCmdArg = nullptr;
    DispSet(DISP_LOG);
    CmdArg *record = SetCommand({"hwreg", "/TEXT"});
    DispSet(DISP_LOG);
    EXPECT_EQ(record->DispFlags, DISP_TEXT | DISP_LOG);
}
