#include "Command.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

constexpr size_t MAX_KEYS = 4000; // what a terminal takes ahead
constexpr int MAX_ESCAPES = 100;
constexpr char ESCAPE = 27;

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
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
}

static void KeysFromTerminal(Input keys) {
    int opened = posix_openpt(O_RDWR | O_NOCTTY);
    if (opened < 0 || grantpt(opened) != 0 || unlockpt(opened) != 0)
        Fail("cannot be made", "terminal");
    int terminal = open(ptsname(opened), O_RDWR | O_NOCTTY);
    dup2(terminal, STDIN_FILENO);
    close(terminal);
    gTyping = opened;
    Type(gTyping, keys.bytes, keys.length);
    pollfd arrival = {STDIN_FILENO, POLLIN, 0};
    poll(&arrival, 1, 0); // what was typed has arrived before the program changes the terminal's modes
}

// The program waits with this for a key. When all have been used up somebody presses ESC, a number of times;
// after that the line is cut.
extern "C" int poll(pollfd *waiting, nfds_t count, int timeout) {
    typedef int (*Poll)(pollfd *, nfds_t, int);
    static Poll real;
    if (!real)
        real = reinterpret_cast<Poll>(dlsym(RTLD_NEXT, "poll"));
    int ready = gTyping < 0 || timeout >= 0 ? 0 : real(waiting, count, 0);
    if (ready != 0)
        return ready;
    if (gTyping >= 0 && gEscapes++ < MAX_ESCAPES)
        Type(gTyping, &ESCAPE, 1);
    else if (gTyping >= 0) {
        close(gTyping);
        gTyping = -1;
    }
    return real(waiting, count, timeout);
}

void FuzzKeys(Input input) {
    Words words;
    ChooseCommand(TakeByte(&input), &words);
    bool terminal = (TakeByte(&input) & 1) != 0;
    Input keys = TakeBytes(&input, MAX_KEYS);
    if (terminal)
        KeysFromTerminal(keys);
    else
        KeysFromPipe(keys);
    RunProgram(&words);
}
