#include "Common/ComFunc/Signals.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

// A bit per signal, number 1 lowest: the kernel's own form (signal(7)). Its calls are used here, for those of
// the C library leave out 32 and 33, which it keeps for threads: there are none in this program, and these
// two end it like others.
typedef uint64_t SignalMask;

struct SignalRow {
    uint8_t number;
    bool held;
};

// Every signal below the real-time ones. Those that end or stop a program that does not handle them are held.
static constexpr SignalRow mSignals[] = {
    {SIGHUP, true},    {SIGINT, true},  {SIGQUIT, true}, {SIGUSR1, true},   {SIGUSR2, true},
    {SIGPIPE, true},   {SIGALRM, true}, {SIGTERM, true}, {SIGSTKFLT, true}, {SIGTSTP, true},
    {SIGTTIN, true},   {SIGTTOU, true}, {SIGXCPU, true}, {SIGXFSZ, true},   {SIGVTALRM, true},
    {SIGPROF, true},   {SIGIO, true},   {SIGPWR, true},  {SIGKILL, false}, // nobody can hold it
    {SIGSTOP, false},                                                      // nobody can hold it
    {SIGILL, false},   // a fault of the instruction: the kernel ends a program that holds it, too
    {SIGTRAP, false},  // the same, and a debugger's
    {SIGBUS, false},   // the same
    {SIGFPE, false},   // the same
    {SIGSEGV, false},  // the same
    {SIGSYS, false},   // the same, of a system call
    {SIGABRT, false},  // the program's own end where it cannot go on
    {SIGCHLD, false},  // ends nothing
    {SIGURG, false},   // ends nothing
    {SIGWINCH, false}, // ends nothing
    {SIGCONT, false},  // ends nothing; it is blocked beside them, so that a key wait sees it
};
constexpr int FIRST_REAL_TIME = 32;
constexpr int LAST_SIGNAL = 64;

static constexpr SignalMask Bit(int number) {
    return static_cast<SignalMask>(1) << (number - 1);
}

static constexpr SignalMask HeldByTable() {
    SignalMask mask = 0;
    for (const SignalRow &row : mSignals)
        mask |= row.held ? Bit(row.number) : 0;
    for (int number = FIRST_REAL_TIME; number <= LAST_SIGNAL; ++number)
        mask |= Bit(number);
    return mask;
}

// Holds that have not been released, and the mask that the last release goes back to.
static unsigned mHoldCount = 0;
static SignalMask mMaskBeforeHold;

// Those of the table that act on this run; 0 before it is known.
static SignalMask mActing = 0;

static void (*mFileSizeBefore)(int) = SIG_DFL;

static SignalMask ChangeMask(int how, SignalMask mask) {
    SignalMask before = 0;
    syscall(SYS_rt_sigprocmask, how, &mask, &before, sizeof(mask));
    return before;
}

static bool IsIgnored(int number) {
    struct sigaction action;
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

// A signal that the caller has blocked or told to be ignored does nothing to this run, and must not look like
// one that does: blocked by the hold, it would be pending even so.
static SignalMask ActingSignals() {
    if (mActing != 0)
        return mActing;
    mActing = HeldByTable() & ~ChangeMask(SIG_BLOCK, 0);
    for (int number = 1; number <= LAST_SIGNAL; ++number) {
        if ((mActing & Bit(number)) != 0 && IsIgnored(number))
            mActing &= ~Bit(number);
    }
    return mActing;
}

void HoldSignals() {
    if (mHoldCount++ == 0)
        mMaskBeforeHold = ChangeMask(SIG_BLOCK, ActingSignals() | Bit(SIGCONT));
}

void ReleaseSignals() {
    if (--mHoldCount == 0)
        ChangeMask(SIG_SETMASK, mMaskBeforeHold);
}

bool SignalsAreHeld() {
    return mHoldCount > 0;
}

bool SignalIsPending() {
    SignalMask pending = 0;
    syscall(SYS_rt_sigpending, &pending, sizeof(pending));
    return (pending & ActingSignals()) != 0;
}

int WatchSignals() {
    SignalMask watched = ActingSignals() | Bit(SIGCONT);
    sigset_t set;
    sigemptyset(&set);
    memcpy(&set, &watched, sizeof(watched));
    return signalfd(-1, &set, SFD_CLOEXEC);
}

void ForgetContinue() {
    SignalMask continued = Bit(SIGCONT);
    timespec none = {};
    syscall(SYS_rt_sigtimedwait, &continued, nullptr, &none, sizeof(continued));
}

void IgnoreFileSizeSignal() {
    mFileSizeBefore = signal(SIGXFSZ, SIG_IGN);
}

void RestoreFileSizeSignal() {
    signal(SIGXFSZ, mFileSizeBefore);
}
