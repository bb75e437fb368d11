#include "Common/ComFunc/Signals.h"

#include <signal.h>
#include <unistd.h>

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

TEST(Signals, EveryOneThatEndsOrStopsAProgramIsHeldButThoseThatNobodyCanHoldAndTheCrashes) {
    HoldSignals();
    uint64_t blocked = SignalsBlocked();
    ReleaseSignals();
    EXPECT_EQ(SignalsBlocked(), 0u);
    ExpectWholeTable(blocked);
}
