#include "Common/ComFunc/Shell.h"

#include <signal.h>

#include <string>

#include <gtest/gtest.h>

#include "Common/ComFunc/Signals.h"
#include "TestHelp.h"

TEST(Shell, ExecuteSystemCmdRunsTheShellAndIgnoresItsResult) {
    EXPECT_EQ(Printed([] { ExecuteSystemCmd("echo one; echo two; exit 3"); }), "one\ntwo\n");
}

TEST(Shell, ExecuteWithSystem32RunsNothing) {
    EFI_STATUS status = 0;
    EXPECT_EQ(Printed([&] { status = ExecuteWithSystem32("echo one"); }), "");
    EXPECT_EQ(status, 0x80000003u);
}

// The line of the command's own status that begins so.
static std::string StatusOfACommand(const std::string &line) {
    return Printed([&] { ExecuteSystemCmd(("grep " + line + " /proc/self/status").c_str()); });
}

TEST(Shell, ACommandStartsWithTheSignalsThatTheProgramWasStartedWith) {
    std::string ignored = StatusOfACommand("SigIgn");
    std::string blocked = StatusOfACommand("SigBlk");
    IgnoreFileSizeSignal();
    EXPECT_EQ(StatusOfACommand("SigIgn"), ignored);
    EXPECT_EQ(StatusOfACommand("SigBlk"), blocked);
    EXPECT_EQ(signal(SIGXFSZ, SIG_DFL), SIG_IGN); // the program itself goes on ignoring it
}
