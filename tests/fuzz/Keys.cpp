#include "Command.h"
#include "Sandbox.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <random>

using std::minstd_rand;

constexpr size_t MAX_KEYS = 4000; // what a terminal takes ahead
constexpr int MAX_ESCAPES = 100;
constexpr char ESCAPE = 27;
constexpr size_t BEFORE_KEYS = 2; // bytes of an input
constexpr size_t MAX_ROW = 64;
constexpr unsigned FIRST_CHARACTER = ' '; // of those that can be typed, but for the line feed
constexpr unsigned CHARACTERS = 95;
constexpr int FIRST_DESCRIPTOR = 300; // beyond those that the program may leave open

static int gTyping = -1; // the other end of the terminal
static int gEscapes;

static void Type(int descriptor, const void *keys, size_t count) {
    if (write(descriptor, keys, count) != ssize_t(count))
        Fail("not all were taken", "keys");
}

static void KeysFromPipe(Input keys) {
    int ends[2];
    if (pipe(ends) != 0)
        Fail("cannot be made", "pipe");
    Type(ends[1], keys.bytes, keys.length);
    close(ends[1]);
    SetStandardInput(ends[0]);
    close(ends[0]);
}

static void KeysFromTerminal(Input keys) {
    int opened = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (opened < 0 || grantpt(opened) != 0 || unlockpt(opened) != 0)
        Fail("cannot be made", "terminal");
    int terminal = ioctl(opened, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC);
    SetStandardInput(terminal);
    close(terminal);
    gTyping = fcntl(opened, F_DUPFD_CLOEXEC, FIRST_DESCRIPTOR);
    close(opened);
    Type(gTyping, keys.bytes, keys.length);
    pollfd arrival = {STDIN_FILENO, POLLIN, 0};
    poll(&arrival, 1, 0); // what was typed has arrived before the program changes the terminal's modes
}

static void CutLine() {
    if (gTyping >= 0)
        close(gTyping);
    gTyping = -1;
}

// The program waits with this for a key. When all have been used up somebody presses ESC, a number of times;
// after that the line is cut.
extern "C" int __wrap_poll(pollfd *waiting, nfds_t count, int timeout) {
    int ready = gTyping < 0 || timeout >= 0 ? 0 : poll(waiting, count, 0);
    if (ready != 0)
        return ready;
    if (gTyping >= 0 && timeout < 0 && gEscapes++ < MAX_ESCAPES)
        Type(gTyping, &ESCAPE, 1);
    else if (gTyping >= 0 && timeout < 0)
        CutLine();
    return poll(waiting, count, timeout);
}

void FuzzKeys(Input input) {
    Words words;
    CutLine(); // of a run that was left in the middle
    gEscapes = 0;
    ChooseCommand(TakeByte(&input), &words);
    bool terminal = (TakeByte(&input) & 1) != 0;
    Input keys = TakeBytes(&input, MAX_KEYS);
    if (terminal)
        KeysFromTerminal(keys);
    else
        KeysFromPipe(keys);
    RunProgram(&words);
    CutLine();
}

size_t MutateKeys(uint8_t *bytes, size_t length, size_t most, unsigned seed) {
    minstd_rand random(seed);
    if (length < BEFORE_KEYS || most < BEFORE_KEYS + MAX_ROW || random() % 4 != 0)
        return LLVMFuzzerMutate(bytes, length, most);
    size_t count = 1 + random() % MAX_ROW;
    for (size_t i = 0; i < count; i++)
        bytes[BEFORE_KEYS + i] = static_cast<uint8_t>(FIRST_CHARACTER + random() % CHARACTERS);
    return BEFORE_KEYS + count;
}
