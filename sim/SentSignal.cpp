#include "SentSignal.h"

#include "Mistake.h"
#include "SignalName.h"

#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

int gSignal; // 0: none, or it has been sent
unsigned long gLinesLeft;
bool gHeld;

} // namespace

void SentSignalFromEnvironment() {
    const char *asked = getenv("HWBOARD_SIGNAL");
    char name[20], rest;
    if (!asked || !*asked)
        return;
    if (sscanf(asked, "%19s %lu %c", name, &gLinesLeft, &rest) != 2 || gLinesLeft == 0 ||
        (gSignal = SignalOfName(name)) == 0)
        BoardFail("HWBOARD_SIGNAL=%s is no signal and the number of a line", asked);
}

// The handler of an instruction returns with the program's mask, which lets the signal through.
void SentSignalLine() {
    if (gSignal == 0 || --gLinesLeft > 0)
        return;
    int number = gSignal;
    gSignal = 0;
    uint64_t mask = static_cast<uint64_t>(1) << (number - 1);
    if (gHeld)
        syscall(SYS_rt_sigprocmask, SIG_BLOCK, &mask, nullptr, sizeof mask);
    syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), number);
}

void SentSignalHold(bool held) {
    gHeld = held;
}
