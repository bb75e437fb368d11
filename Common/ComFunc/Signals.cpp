#include "Common/ComFunc/Signals.h"

// Holds that have not been released, and the mask that the last release goes back to.
static unsigned mHoldCount = 0;
static sigset_t mMaskBeforeHold;

static const int mEndingSignals[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP, SIGPIPE};

sigset_t EndingSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int number : mEndingSignals)
        sigaddset(&set, number);
    return set;
}

void HoldSignals() {
    if (mHoldCount++ > 0)
        return;
    sigset_t ending = EndingSignals();
    sigprocmask(SIG_BLOCK, &ending, &mMaskBeforeHold);
}

void ReleaseSignals() {
    if (--mHoldCount == 0)
        sigprocmask(SIG_SETMASK, &mMaskBeforeHold, nullptr);
}

bool SignalsAreHeld() {
    return mHoldCount > 0;
}
