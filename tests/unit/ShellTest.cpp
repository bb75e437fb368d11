#include "Common/ComFunc/Shell.h"

#include <gtest/gtest.h>

#include "TestHelp.h"

TEST(Shell, ExecuteSystemCmdRunsTheShellAndIgnoresItsResult) {
    EXPECT_EQ(Printed([] { ExecuteSystemCmd("echo one; echo two; exit 3"); }), "one\ntwo\n");
}

TEST(Shell, ExecuteWithSystem32RunsNothing) {
    EFI_STATUS status = 0;
    EXPECT_EQ(Printed([&] { status = ExecuteWithSystem32("echo one"); }), "");
    EXPECT_EQ(status, 0x80000003u);
}
