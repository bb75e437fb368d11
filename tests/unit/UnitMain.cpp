#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "TestHelp.h"

// Each test starts with nothing of the one before: no command line, no board, the keyboard that was there.
// One that waits for a key that never comes is ended by the alarm.
struct ResetBetweenTests : testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override {
        ResetEverything();
        alarm(60);
    }
    void OnTestEnd(const testing::TestInfo &) override {
        ResetEverything();
    }
};

// What starts the tests may ignore some of these (nohup, a shell's background job).
static void TakeSignalsAsUsual() {
    for (int number : {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGPIPE})
        signal(number, SIG_DFL);
}

int main(int argc, char **argv) {
    TakeSignalsAsUsual();
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new ResetBetweenTests);
    return RUN_ALL_TESTS();
}
