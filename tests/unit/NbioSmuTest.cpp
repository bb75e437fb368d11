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
