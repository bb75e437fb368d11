#include "Common/ComFunc/Console.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "Common/ComFunc/Output.h"
#include "Common/ComFunc/Signals.h"
#include "Common/Global.h"
#include "Common/Sprint.h"

static const char *ColorSequence(uint16_t number) {
    switch (number) {
    case 0:
        return "\033[0;30m";
    case 1:
        return "\033[0;34m";
    case 2:
        return "\033[0;32m";
    case 3:
        return "\033[0;36m";
    case 4:
    case 5:
        return "\033[0;31m";
    case 6:
        return "\033[0;33m";
    case 8:
        return "\033[1;37m";
    case 9:
        return "\033[1;34m";
    case 10:
        return "\033[1;32m";
    case 11:
        return "\033[1;36m";
    case 12:
    case 13:
        return "\033[1;31m";
    case 14:
        return "\033[1;33m";
    default:
        return "\033[0m";
    }
}

const char *ColorText(uint16_t number) {
    return DispHas(DISP_TEXT) ? "" : ColorSequence(number);
}

void setColor(uint16_t number) {
    fputs(ColorText(number), stdout);
}

// Standard input while keys are read one by one: what is to be put back afterwards.
struct KeyMode {
    bool isTerminal;
    termios modes;
};

// The terminal's modes when a wait ended in the background.
static bool mModesAreOwed = false;
static termios mOwedModes;

constexpr int NO_KEY_YET = -2; // beside the keys and EOF
constexpr int IN_BACKGROUND = -3;
constexpr int SIGNAL_LOOK = 50; // milliseconds between two looks, where a signal cannot be waited for

// The byte that isKeyBoardHit has seen is in the stream's push-back and not on the descriptor.
static bool mKeyPushedBack = false;

// True once standard input hands out single bytes: a key is then on the descriptor or pushed back, never in
// between. Setting it again would drop the key that is pushed back.
static bool mInputUnbuffered = false;

// True when standard input is the terminal of this session and another job has it: changing its modes or
// reading from it would stop the program (termios(3), "Canonical and noncanonical mode"; credentials(7)). The
// master of a pseudo-terminal tells of the job at its other end, in another session.
static bool IsBackgroundJob() {
    pid_t foreground = tcgetpgrp(STDIN_FILENO);
    return foreground != -1 && foreground != getpgrp() && tcgetsid(STDIN_FILENO) == getsid(0);
}

// Ordinary job control: a read by a background job stops it, and goes on when it is in the foreground again.
// Of a length of 0, it takes no key in the modes that the terminal has then. At /dev/console reads do not
// stop, so the signal is sent. False where stopping is not possible: the job has no shell any more, or was
// told to ignore SIGTTIN.
static bool StopUntilForeground() {
    char none;
    if (read(STDIN_FILENO, &none, 0) == -1)
        return false;
    if (IsBackgroundJob())
        raise(SIGTTIN);
    return !IsBackgroundJob();
}

static termios KeyModes(const termios *modes) {
    termios key = *modes;
    key.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    return key;
}

// The modes to be put back: those that the terminal has, or those of a wait that went on in the background
// and so could not put them back, where nobody has set others since.
static bool ModesBefore(termios *modes) {
    if (tcgetattr(STDIN_FILENO, modes) != 0)
        return false;
    if (mModesAreOwed && modes->c_lflag == KeyModes(&mOwedModes).c_lflag)
        *modes = mOwedModes;
    mModesAreOwed = false;
    return true;
}

// Non-canonical mode without echo, if descriptor 0 is a terminal. From here to LeaveKeyMode the ending
// signals are held back, so that none of them can leave the terminal in this mode. False, with nothing
// changed, for a background job; a stop between that look and the modes would make it one.
static bool EnterKeyMode(KeyMode *mode) {
    HoldSignals();
    if (IsBackgroundJob()) {
        ReleaseSignals();
        return false;
    }
    if (!mInputUnbuffered)
        setvbuf(stdin, nullptr, _IONBF, 0);
    mInputUnbuffered = true;
    mode->isTerminal = ModesBefore(&mode->modes);
    if (mode->isTerminal) {
        termios key = KeyModes(&mode->modes);
        tcsetattr(STDIN_FILENO, TCSANOW, &key);
    }
    return true;
}

// A signal that has come in the meantime acts at the end of this call. A job that went on in the background
// leaves the terminal to the one that has it now.
static void LeaveKeyMode(const KeyMode *mode) {
    mModesAreOwed = mode->isTerminal && IsBackgroundJob();
    if (mModesAreOwed)
        mOwedModes = mode->modes;
    else if (mode->isTerminal)
        tcsetattr(STDIN_FILENO, TCSANOW, &mode->modes);
    ReleaseSignals();
}

// Waits for a byte or the end of input (true), or for a signal (false), which comes first: also where it
// could not be watched for or waited for.
static bool WaitForKey() {
    int signals = WatchSignals();
    int timeout = signals == -1 ? SIGNAL_LOOK : -1;
    pollfd wait[] = {{STDIN_FILENO, POLLIN, 0}, {signals, POLLIN, 0}};
    int ready;
    do {
        ready = poll(wait, 2, timeout);
    } while (ready == 0 ? !SignalIsPending() : ready == -1 && errno == EINTR);
    if (signals != -1)
        close(signals);
    return ready != 0 && wait[1].revents == 0 && !SignalIsPending();
}

// One try: the key; NO_KEY_YET when a signal has come in its place; IN_BACKGROUND. *ended tells whether that
// signal is to end or stop the program, and not the end of a stop.
static int TakeKey(bool *ended) {
    KeyMode mode;
    if (!EnterKeyMode(&mode))
        return IN_BACKGROUND;
    bool ready = mKeyPushedBack || WaitForKey();
    int key = ready ? getchar() : NO_KEY_YET;
    if (ready)
        mKeyPushedBack = false;
    else
        ForgetContinue();
    *ended = SignalIsPending();
    LeaveKeyMode(&mode);
    return key;
}

int getch() {
    bool held = SignalsAreHeld();
    ShowHeldOutput();
    if (held && OutputIsLost())
        return KEY_ESC; // who is to see what a key is asked for?
    for (;;) {
        bool ended = true;
        int key = TakeKey(&ended);
        if (key != NO_KEY_YET && key != IN_BACKGROUND)
            return key;
        if (held && ended)
            return KEY_ESC;
        if (key == IN_BACKGROUND && !StopUntilForeground())
            return EOF;
    }
}

int isKeyBoardHit() {
    KeyMode mode;
    if (!EnterKeyMode(&mode))
        return 0;
    int flags = fcntl(STDIN_FILENO, F_GETFL);
    if (flags != -1)
        fcntl(STDIN_FILENO, F_SETFL, flags | O_NONBLOCK);
    int key = getchar();
    if (flags != -1)
        fcntl(STDIN_FILENO, F_SETFL, flags);
    LeaveKeyMode(&mode);
    if (key == EOF) {
        clearerr(stdin); // "no key yet" must not look like the end of input to the next read
        return 0;
    }
    ungetc(key, stdin);
    mKeyPushedBack = true;
    return 1;
}

int GetKBKey() {
    return isKeyBoardHit() ? getch() : 0;
}

void GotoXY(uint32_t) {
}

void DisplayPositionXY(uint32_t x, uint32_t y, const char *format, ...) {
    char text[256] = {};
    va_list args;
    va_start(args, format);
    FormatBounded(text, sizeof(text) - 1, format, args);
    va_end(args);
    GotoXY((y << 16) | (x & 0xFFFF));
    Printf("%s", text);
}

int ShowTitle() {
    Printf("*********Press Enter to continue!*********\n");
    int key = getch();
    if (key != KEY_ESC)
        Printf("%s", gTitle);
    return key;
}
