#include "UnitRun.h"

#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Common/ComFunc/Signals.h"
#include "TestHelp.h"

namespace {

// Each test starts with nothing of the one before: no command line, no board, the keyboard that was there.
// One that waits for a key that never comes is ended by the alarm; under memcheck on a busy machine others
// take minutes.
struct ResetBetweenTests : testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override {
        ResetEverything();
        alarm(600);
    }
    void OnTestEnd(const testing::TestInfo &) override {
        ResetEverything();
    }
};

} // namespace

// What starts the tests may ignore some of these (nohup, a shell's background job). Which of them act is
// found out once, so it must not be left to a test behind one that ignores another.
void TakeSignalsAsUsual() {
    for (int number : {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGPIPE})
        signal(number, SIG_DFL);
    HoldSignals();
    ReleaseSignals();
}

void BeginUnitTests(int *argc, char **argv) {
    testing::InitGoogleTest(argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new ResetBetweenTests);
}
