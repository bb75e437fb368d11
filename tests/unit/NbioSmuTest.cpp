#include "Project/NbioSmu.h"

#include <gtest/gtest.h>

#include "TestHelp.h"

TEST(NbioSmu, RefusalIsSaidForBothCommandsAndIsTheStatus) {
    for (const char *word : {"/SMN", "/SMU"}) {
        ResetEverything();
        OpenBoard("intel");
        SetCommand({"hwreg", word, "/RD", "99"});
        EFI_STATUS status = 0;
        EXPECT_EQ(Printed([&] { status = NbioEntry(); }), "InitSmuService error: 8000000F\n");
        EXPECT_EQ(status, EFI_ACCESS_DENIED);
    }
}

TEST(NbioSmu, WithoutACommandNothingIsSaid) {
    OpenBoard("amd");
    SetCommand({"hwreg"});
    EXPECT_EQ(Printed([] { EXPECT_EQ(NbioEntry(), 0u); }), "");
}

// The word would make it a dword's access.
TEST(NbioSmu, OfABitTheDwordFlagChoosesTheMessage) {
    OpenBoard("amd");
    SetCommand({"hwreg", "/SMN", "/RI", "0", "0x50000", "3"});
    EXPECT_EQ(Printed([] { NbioEntry(); }),
              "SMN Write Dword Die:0, Regester:50000, Bit 3, Data:0, return data:1\n");
    AddFlags(Flag::RD);
    EXPECT_EQ(Printed([] { NbioEntry(); }), "SMN Read Dword Die:0, Regester, Bit 327680:3, return data:1\n");
}
