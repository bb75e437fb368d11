// sequences: key waits, looks for keys, paged views and held output, in any order, over keys in a pipe that
// ends or on a terminal. Asserted: each key arrives once and in order, the end of input behind the last one;
// what a view shows, how often it pauses and which key it gives; the terminal's modes and the input's flags
// are put back.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "Common/ComFunc/Console.h"
#include "Common/ComFunc/HexView.h"
#include "Common/ComFunc/Output.h"
#include "Common/ComFunc/Signals.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Goal.h"
#include "tests/fuzz/Held.h"
#include "tests/fuzz/Sandbox.h"

namespace {

constexpr size_t MOST_KEYS = 32;
constexpr size_t MOST_TYPED = 128;
constexpr int MOST_STEPS = 24;
constexpr uint32_t LONGEST_VIEW = 800;
constexpr size_t VIEW_TEXT = 1 << 14;

void Ignored(int) {
}

// The keys, and how many have been taken.
struct Keys {
    uint8_t keys[MOST_TYPED];
    size_t count, taken;
    bool seen;    // a look has seen the next one
    int terminal; // the other end, -1 for a pipe
    termios modes;
};
Keys gKeys;
CmdArg gRecord;
char gView[VIEW_TEXT];

void Type(const void *keys, size_t count) {
    Expect(write(gKeys.terminal, keys, count) == ssize_t(count), "the terminal takes the keys");
    pollfd arrival = {STDIN_FILENO, POLLIN, 0};
    poll(&arrival, 1, 0); // what was typed has arrived
}

void OpenPipe() {
    int ends[2];
    Expect(pipe(ends) == 0, "a pipe");
    Expect(write(ends[1], gKeys.keys, gKeys.count) == ssize_t(gKeys.count), "a pipe takes the keys");
    close(ends[1]);
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    gKeys.terminal = -1;
}

void OpenTerminal() {
    gKeys.terminal = posix_openpt(O_RDWR | O_NOCTTY);
    Expect(gKeys.terminal >= 0 && grantpt(gKeys.terminal) == 0 && unlockpt(gKeys.terminal) == 0,
           "a terminal");
    int terminal = open(ptsname(gKeys.terminal), O_RDWR | O_NOCTTY);
    dup2(terminal, STDIN_FILENO);
    close(terminal);
    tcgetattr(STDIN_FILENO, &gKeys.modes);
    Type(gKeys.keys, gKeys.count);
}

// The next key of a wait. A terminal without one has one typed, or the wait would not end.
int NextKey() {
    gKeys.seen = false;
    if (gKeys.taken < gKeys.count)
        return gKeys.keys[gKeys.taken++];
    return EOF;
}

void KeepTyping() {
    if (gKeys.terminal < 0 || gKeys.taken + 4 <= gKeys.count)
        return;
    Expect(gKeys.count + 8 <= MOST_TYPED, "few keys are typed");
    memcpy(gKeys.keys + gKeys.count, "abcdefgh", 8);
    Type(gKeys.keys + gKeys.count, 8);
    gKeys.count += 8;
}

// The view's layout, without colours.
size_t ModelView(const uint8_t *data, uint32_t length) {
    char *at = gView;
    uint32_t columns = length < 16 ? length : 16;
    at += sprintf(at, "  ");
    for (uint32_t i = 0; i < 16; i++)
        at += i < columns ? sprintf(at, " %02X", i) : sprintf(at, "   ");
    at += sprintf(at, "       ");
    for (uint32_t i = 0; i < columns; i++)
        at += sprintf(at, "%X", i);
    for (uint32_t row = 0; row < length; row += 16) {
        at += sprintf(at, "\r\n%02X ", row >> 4 & 0xFF);
        for (uint32_t i = row; i < row + 16; i++)
            at += i < length ? sprintf(at, "%02X ", data[i]) : sprintf(at, "   ");
        at += sprintf(at, "      ");
        for (uint32_t i = row; i < row + 16 && i < length; i++)
            *at++ = data[i] >= 0x20 && data[i] < 0x80 ? static_cast<char>(data[i]) : '.';
        at += (row + 16) % 256 == 0 ? sprintf(at, "\r\n") : 0;
    }
    at += length % 256 != 0 ? sprintf(at, "\r\n") : 0;
    return static_cast<size_t>(at - gView);
}

// Takes the colours out, in place; how many there were.
size_t WithoutColours(char *text, size_t *length) {
    size_t colours = 0;
    size_t kept = 0;
    for (size_t i = 0; i < *length; i++) {
        if (text[i] != 27) {
            text[kept++] = text[i];
            continue;
        }
        colours++;
        while (i < *length && text[i] != 'm')
            i++;
    }
    *length = kept;
    return colours;
}

uint32_t PausesOf(uint32_t length) {
    uint32_t rows = (length + 15) / 16;
    return rows / 16 + (length % 256 != 0);
}

// In log mode a pause takes the key that waits, if there is one.
int ModelKey(uint32_t length) {
    int key = DEBUG_MSG_NO_KEY;
    for (uint32_t pauses = PausesOf(length); pauses > 0; pauses--)
        key = DispHas(DISP_LOG) && gKeys.taken == gKeys.count ? DEBUG_MSG_NO_KEY : NextKey();
    return key;
}

void CheckView(Input *input) {
    uint32_t length = TakeBelow(input, LONGEST_VIEW);
    bool lost = OutputIsLost(); // then nothing is asked
    uint8_t *data = static_cast<uint8_t *>(malloc(length + 1));
    uint8_t first = TakeByte(input);
    for (uint32_t i = 0; i < length; i++)
        data[i] = static_cast<uint8_t>(first + i * 5);
    bool plain = (TakeByte(input) & 3) == 0;
    bool shown = length != 0 && (plain || DispHas(DISP_DUMP));
    size_t printed;
    BeginOutput();
    int key = plain ? DebugMsgTxt(data, length) : DebugMsg(data, length);
    char *text = const_cast<char *>(EndOutputOf(&printed));
    size_t colours = WithoutColours(text, &printed);
    size_t wanted = shown ? ModelView(data, length) : 0;
    Expect(printed == wanted && memcmp(text, gView, wanted) == 0, "the view shows the bytes");
    Expect((colours != 0) == (shown && !plain && !DispHas(DISP_TEXT)), "colours where they are wanted");
    if (plain)
        Expect(key == (length == 0 ? 31 : 0), "the plain view does not pause");
    else
        Expect(key == (!shown ? DEBUG_MSG_NO_KEY
                       : lost ? KEY_ESC
                              : ModelKey(length)),
               "the key of the last pause");
    free(data);
}

void CheckTitle() {
    size_t printed;
    BeginOutput();
    int key = ShowTitle();
    const char *text = EndOutputOf(&printed);
    Expect(key == NextKey(), "the title's key");
    Expect((strstr(text, gTitle) != nullptr) == (key != KEY_ESC), "a title unless it is ESC");
}

// While signals are held one that comes ends a wait, unless a look has seen the key already; after a stop the
// wait goes on.
void CheckSignal(Input *input) {
    uint8_t form = TakeByte(input);
    bool looks = (form & 2) != 0 && gKeys.taken < gKeys.count;
    signal(SIGUSR1, Ignored);
    HoldSignals();
    if (looks)
        Expect(isKeyBoardHit() == 1, "a look takes no key");
    looks = looks || gKeys.seen;
    raise(form & 1 ? SIGCONT : SIGUSR1);
    Expect(SignalIsPending() == !(form & 1), "a signal is pending");
    gKeys.seen = looks;
    bool waits = looks || (form & 1);
    Expect(getch() == (waits && !OutputIsLost() ? NextKey() : KEY_ESC), "a signal ends a wait");
    ReleaseSignals();
    signal(SIGUSR1, SIG_DFL);
}

// Output that is held comes out at the release; what a key wait has shown already does not come again. Nobody
// is asked for a key when the output is lost, and a signal ends the wait for a reader.
void CheckHeld(Input *input) {
    uint8_t form = TakeByte(input);
    bool asks = (form & 1) != 0;
    bool lost = asks && (form & 0x1E) == 0x1E;
    size_t printed;
    BeginOutput();
    HoldSignals();
    HoldOutput();
    Printf("held %d\n", 12);
    StallOutput(form >> 5);
    if (lost)
        LoseOutput();
    if (asks)
        Expect(getch() == (OutputIsLost() ? KEY_ESC : NextKey()), "a key while output is held");
    StallOutput(0);
    Expect(SignalsAreHeld() && !SignalIsPending(), "signals are held");
    ReleaseOutput();
    ReleaseSignals();
    const char *text = EndOutputOf(&printed);
    Expect(strcmp(text, asks ? "" : "held 12\n") == 0, "held output comes out once");
    Expect(OutputIsLost() || !lost, "output that is lost stays lost");
}

// Without memory output is not held.
void CheckUnheld() {
    size_t printed;
    BeginOutput();
    RefuseBlock(1);
    HoldOutput();
    ShowHeldOutput();
    Printf("not held\n");
    ReleaseOutput();
    Expect(strcmp(EndOutputOf(&printed), "not held\n") == 0, "output goes out as usual");
}

void CheckColour(Input *input) {
    uint8_t number = TakeByte(input) % 20;
    size_t printed;
    BeginOutput();
    setColor(number);
    GotoXY(number);
    char *text = const_cast<char *>(EndOutputOf(&printed));
    bool whole = printed >= 4 && text[0] == 27 && text[printed - 1] == 'm';
    Expect(DispHas(DISP_TEXT) ? printed == 0 : whole && WithoutColours(text, &printed) == 1,
           "one colour, or none");
}

void CheckStep(uint8_t step, Input *input) {
    switch (step % 8) {
    case 0:
    case 1:
        Expect(getch() == NextKey(), "each key once and in order");
        break;
    case 2:
        gKeys.seen = gKeys.taken < gKeys.count;
        Expect(isKeyBoardHit() == gKeys.seen, "a look takes no key");
        break;
    case 3: {
        int key = gKeys.taken < gKeys.count ? NextKey() : 0;
        Expect(GetKBKey() == key, "the key that waits, or none");
        break;
    }
    case 4:
        return CheckView(input);
    case 5:
        return CheckTitle();
    case 6:
        step = TakeByte(input) % 8;
        return step == 0 ? CheckUnheld() : step < 4 ? CheckHeld(input) : CheckSignal(input);
    default:
        return CheckColour(input);
    }
}

void CheckInput(int flags) {
    termios now;
    Expect(fcntl(STDIN_FILENO, F_GETFL) == flags, "the input's flags are put back");
    if (gKeys.terminal >= 0 && tcgetattr(STDIN_FILENO, &now) == 0)
        Expect(now.c_lflag == gKeys.modes.c_lflag && now.c_iflag == gKeys.modes.c_iflag &&
                   memcmp(now.c_cc, gKeys.modes.c_cc, sizeof now.c_cc) == 0,
               "the terminal's modes are put back");
}

// Of a terminal's keys none has a meaning of its own.
void TakeKeys(Input *input, bool terminal) {
    Input keys = TakeBytes(input, TakeByte(input) % MOST_KEYS);
    gKeys.count = keys.length;
    gKeys.taken = 0;
    gKeys.seen = false;
    for (size_t i = 0; i < keys.length; i++)
        gKeys.keys[i] = terminal ? static_cast<uint8_t>("qQ \n\x1b[Ax9"[keys.bytes[i] % 9]) : keys.bytes[i];
}

} // namespace

void FuzzSequences(Input input) {
    uint8_t form = TakeByte(&input);
    bool terminal = form % 32 == 31;
    int before = dup(STDIN_FILENO);
    TakeKeys(&input, terminal);
    gRecord = {};
    gRecord.DispFlags = form >> 3 & 0x1F;
    gRecord.DispFlags =
        static_cast<uint8_t>((gRecord.DispFlags & (DISP_LOG | DISP_TEXT)) | (form & 1 ? DISP_DUMP : 0));
    gCmdArg = &gRecord;
    terminal ? OpenTerminal() : OpenPipe();
    clearerr(stdin);
    int flags = fcntl(STDIN_FILENO, F_GETFL);
    for (int steps = 0; steps < MOST_STEPS && input.length > 0 && gKeys.count + 8 <= MOST_TYPED; steps++) {
        KeepTyping();
        CheckStep(TakeByte(&input), &input);
        CheckInput(flags);
    }
    while (gKeys.taken < gKeys.count)
        Expect(getch() == NextKey(), "each key once and in order");
    if (!terminal)
        Expect(getch() == EOF && isKeyBoardHit() == 0, "the end of input behind the last key");
    gCmdArg = nullptr;
    if (terminal)
        close(gKeys.terminal);
    dup2(before, STDIN_FILENO);
    close(before);
}
