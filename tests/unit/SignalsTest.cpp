#include "Common/ComFunc/Signals.h"

#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <set>

#include <gtest/gtest.h>

#include "Common/ComFunc/Console.h"
#include "TestHelp.h"

static int mSignalsSeen = 0;

static void SeeSignal(int) {
    ++mSignalsSeen;
}

TEST(Signals, HeldSignalsActOnReleaseAndEndAWaitForAKey) {
    OpenKeyboard();
    mSignalsSeen = 0;
    signal(SIGINT, SeeSignal);
    HoldSignals();
    raise(SIGINT);
    EXPECT_EQ(getch(), 27);
    EXPECT_EQ(mSignalsSeen, 0);
    ReleaseSignals();
    EXPECT_EQ(mSignalsSeen, 1);
    signal(SIGINT, SIG_DFL);
}

TEST(Signals, OfNestedHoldsTheLastReleaseLetsSignalsAct) {
    OpenKeyboard();
    mSignalsSeen = 0;
    signal(SIGINT, SeeSignal);
    HoldSignals();
    HoldSignals();
    raise(SIGINT);
    ReleaseSignals();
    ASSERT_EQ(mSignalsSeen, 0);
    EXPECT_EQ(getch(), 27); // still held
    ReleaseSignals();
    EXPECT_EQ(mSignalsSeen, 1);
    raise(SIGINT); // the mask is the one before the first hold
    EXPECT_EQ(mSignalsSeen, 2);
    signal(SIGINT, SIG_DFL);
}

TEST(Signals, WithHeldSignalsAKeyIsStillRead) {
    FeedInput("k");
    HoldSignals();
    EXPECT_EQ(getch(), 'k');
    ReleaseSignals();
}

// The signals that the kernel holds back from this process now, number 1 in the lowest bit.
static uint64_t BlockedNow() {
    std::string status = FileText("/proc/self/status");
    return strtoull(status.c_str() + status.find("SigBlk:") + strlen("SigBlk:"), nullptr, 16);
}

TEST(Signals, EveryOneThatEndsOrStopsAProgramIsHeldButThoseThatNobodyCanHoldAndTheCrashes) {
    HoldSignals();
    uint64_t blocked = BlockedNow();
    ReleaseSignals();
    EXPECT_EQ(BlockedNow(), 0u);
    const std::set<int> others = {SIGKILL, SIGSTOP, SIGILL,  SIGTRAP, SIGBUS, SIGFPE,
                                  SIGSEGV, SIGSYS,  SIGABRT, SIGCHLD, SIGURG, SIGWINCH};
    for (int number = 1; number <= 64; ++number)
        EXPECT_EQ((blocked >> (number - 1)) & 1, others.count(number) ? 0u : 1u) << number;
}
