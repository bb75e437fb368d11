#include "Project/Edid.h"

#include <gtest/gtest.h>

#include "TestHelp.h"

TEST(Edid, ThereIsNoSourceAndTheOutputsAreUntouched) {
    uint8_t byte = 0x5A;
    uint8_t *buffer = &byte;
    uint32_t length = 128;
    EXPECT_EQ(GetEdidByLinux(&buffer, &length), 0x80000003u);
    EXPECT_EQ(buffer, &byte);
    EXPECT_EQ(length, 128u);
}

TEST(Edid, TheCommandIsUnsupportedAndPrintsNothing) {
    CmdArg *record = SetCommand({"hwreg", "/EDID"});
    LoadBoard("intel");
    EXPECT_EQ(Printed([] { EXPECT_EQ(EdidEntry(), 0x80000003u); }), "");
    EXPECT_EQ(record->DispFlags, 0);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(Edid, TheCommandPrintsNothingWithDumpEither) {
    SetCommand({"hwreg", "/EDID", "/DUMP", "/LOG"});
    EXPECT_EQ(Printed([] { EXPECT_EQ(EdidEntry(), 0x80000003u); }), "");
}

TEST(Edid, HelpIsOneLine) {
    SetCommand({"hwreg", "/EDID", "/?"});
    EXPECT_EQ(Printed([] { EXPECT_EQ(EdidEntry(), 0x80000002u); }), " /EDID: Dump Edid(Only support EFI)\n");
}
