#include "Surroundings.h"

#include "Fuzzers.h"
#include "sim/Direct.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr int WATCHED_DESCRIPTORS = 64;
constexpr int SIGNALS = 65;

struct Surroundings {
    bool open[WATCHED_DESCRIPTORS];
    int inputFlags;
    bool terminal;
    termios modes;
    uint64_t signals;
};
Surroundings gBefore;
bool gNoted;

struct Action {
    int number;
    sighandler_t before;
};
Action gActions[SIGNALS]; // that the program has changed
int gActionCount;

void FindOpen(bool open[WATCHED_DESCRIPTORS]) {
    pollfd all[WATCHED_DESCRIPTORS];
    for (int i = 0; i < WATCHED_DESCRIPTORS; i++)
        all[i] = {i, 0, 0};
    poll(all, WATCHED_DESCRIPTORS, 0);
    for (int i = 0; i < WATCHED_DESCRIPTORS; i++)
        open[i] = (all[i].revents & POLLNVAL) == 0;
}

void LookAround(Surroundings *seen) {
    FindOpen(seen->open);
    seen->inputFlags = fcntl(STDIN_FILENO, F_GETFL);
    seen->terminal = tcgetattr(STDIN_FILENO, &seen->modes) == 0;
    syscall(SYS_rt_sigprocmask, SIG_BLOCK, nullptr, &seen->signals, sizeof seen->signals);
}

bool SameModes(const termios *a, const termios *b) {
    return a->c_iflag == b->c_iflag && a->c_oflag == b->c_oflag && a->c_cflag == b->c_cflag &&
           a->c_lflag == b->c_lflag && memcmp(a->c_cc, b->c_cc, sizeof a->c_cc) == 0;
}

void PutBackLeft() {
    bool open[WATCHED_DESCRIPTORS];
    FindOpen(open);
    for (int i = 0; i < WATCHED_DESCRIPTORS; i++)
        if (open[i] && !gBefore.open[i])
            close(i);
    fcntl(STDIN_FILENO, F_SETFL, gBefore.inputFlags);
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, &gBefore.signals, nullptr, sizeof gBefore.signals);
}

} // namespace

void NoteSurroundings() {
    LookAround(&gBefore);
    gNoted = true;
}

void CheckSurroundings() {
    Surroundings after = {};
    LookAround(&after);
    if (memcmp(gBefore.open, after.open, sizeof after.open) != 0)
        Fail("a descriptor was left open or closed", "surroundings");
    if (gBefore.inputFlags != after.inputFlags)
        Fail("the flags of standard input were changed", "surroundings");
    if (after.terminal && !SameModes(&gBefore.modes, &after.modes))
        Fail("the terminal's modes were changed", "surroundings");
    if (gBefore.signals != after.signals)
        Fail("the signal mask was changed", "surroundings");
    if (BoardMappings() != 0)
        Fail("a mapping of it was left", "physical memory");
}

void PutBackSurroundings(bool left) {
    if (left && gNoted)
        PutBackLeft();
    gNoted = false;
    while (gActionCount > 0) {
        gActionCount--;
        signal(gActions[gActionCount].number, gActions[gActionCount].before);
    }
    prctl(PR_SET_DUMPABLE, 1);
}

extern "C" {

sighandler_t __wrap_signal(int number, sighandler_t handler) {
    sighandler_t before = signal(number, handler);
    if (gActionCount == SIGNALS)
        PutBackSurroundings(false);
    gActions[gActionCount++] = {number, before};
    return before;
}

// The fuzzer's own timer must not look to the program like a signal that ends it.
long __wrap_syscall(long number, ...) {
    va_list list;
    va_start(list, number);
    long how = va_arg(list, long);
    const uint64_t *mask = va_arg(list, const uint64_t *);
    long third = va_arg(list, long);
    long fourth = va_arg(list, long);
    va_end(list);
    uint64_t others;
    if (number == SYS_rt_sigprocmask && mask) {
        others = *mask & ~(static_cast<uint64_t>(1) << (SIGALRM - 1));
        mask = &others;
    }
    return syscall(number, how, mask, third, fourth);
}
}
