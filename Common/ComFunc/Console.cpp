#include "Common/ComFunc/Console.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

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

void setColor(uint16_t number) {
    if (!DispHas(DISP_TEXT))
        fputs(ColorSequence(number), stdout);
}

// Standard input while keys are read one by one: what is to be put back afterwards.
struct KeyMode {
    bool isTerminal;
    termios modes;
    sigset_t signals;
};

// The byte that isKeyBoardHit has seen is in the stream's push-back and not on the descriptor.
static bool mKeyPushedBack = false;

// True once standard input hands out single bytes: a key is then on the descriptor or pushed back, never in
// between. Setting it again would drop the key that is pushed back.
static bool mInputUnbuffered = false;

// Non-canonical mode without echo, if descriptor 0 is a terminal. From here to LeaveKeyMode the ending
// signals are held back, so that none of them can leave the terminal in this mode.
static KeyMode EnterKeyMode() {
    KeyMode mode = {};
    sigset_t ending = EndingSignals();
    sigprocmask(SIG_BLOCK, &ending, &mode.signals);
    if (!mInputUnbuffered)
        setvbuf(stdin, nullptr, _IONBF, 0);
    mInputUnbuffered = true;
    mode.isTerminal = tcgetattr(STDIN_FILENO, &mode.modes) == 0;
    if (mode.isTerminal) {
        termios key = mode.modes;
        key.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &key);
    }
    return mode;
}

// A signal that has come in the meantime acts at the end of this call.
static void LeaveKeyMode(const KeyMode *mode) {
    if (mode->isTerminal)
        tcsetattr(STDIN_FILENO, TCSANOW, &mode->modes);
    sigprocmask(SIG_SETMASK, &mode->signals, nullptr);
}

// Waits for a byte or the end of input (true), or for one of the ending signals (false).
static bool WaitForKey() {
    sigset_t ending = EndingSignals();
    int signals = signalfd(-1, &ending, SFD_CLOEXEC);
    pollfd wait[] = {{STDIN_FILENO, POLLIN, 0}, {signals, POLLIN, 0}};
    while (poll(wait, 2, -1) == -1 && errno == EINTR) {
    }
    if (signals != -1)
        close(signals);
    return wait[1].revents == 0;
}

int getch() {
    for (;;) {
        KeyMode mode = EnterKeyMode();
        bool ready = mKeyPushedBack || WaitForKey();
        int key = ready ? getchar() : EOF;
        LeaveKeyMode(&mode);
        if (ready) {
            mKeyPushedBack = false;
            return key;
        }
        if (SignalsAreHeld())
            return KEY_ESC;
    }
}

int isKeyBoardHit() {
    KeyMode mode = EnterKeyMode();
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
