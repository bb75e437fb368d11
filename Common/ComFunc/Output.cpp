#include "Common/ComFunc/Output.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "Common/ComFunc/Signals.h"

constexpr size_t KEPT_BYTES = 0x20000; // more than the views of all logical devices of a Super I/O chip
constexpr int SIGNAL_LOOK = 20;        // milliseconds between two looks for a signal

static char mKept[KEPT_BYTES];
static FILE *mOutput = nullptr; // standard output itself, while another stream stands in its place
static size_t mShown = 0;       // bytes of the kept ones that are out already
static bool mLost = false;      // beside the stream's own error

// Every open takes the lowest free descriptor.
void EnsureStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1 && open("/dev/null", O_RDWR) == -1)
            open("/", O_RDONLY | O_DIRECTORY); // no /dev: any descriptor that takes no data will do
    }
}

bool OutputIsLost() {
    return mLost || ferror_unlocked(stdout) != 0; // there is one thread
}

void HoldOutput() {
    fflush(stdout);
    FILE *memory = fmemopen(mKept, sizeof(mKept), "w");
    if (memory == nullptr)
        return; // without memory output goes out as usual
    mOutput = stdout;
    stdout = memory;
    mShown = 0;
}

// Bytes that have been kept and are not out.
static size_t KeptLength() {
    fflush(stdout);
    return static_cast<size_t>(ftell(stdout)) - mShown;
}

void ReleaseOutput() {
    if (mOutput == nullptr)
        return;
    size_t length = KeptLength();
    mLost |= ferror(stdout) != 0;
    fclose(stdout);
    stdout = mOutput;
    mOutput = nullptr;
    fwrite(mKept + mShown, 1, length, stdout);
    fflush(stdout);
}

// Writes as much as standard output takes at once; the flag is set for this moment alone, because whoever
// shares the descriptor shares it, too.
static ssize_t WriteAtOnce(const char *text, size_t length) {
    int flags = fcntl(STDOUT_FILENO, F_GETFL);
    if (flags != -1)
        fcntl(STDOUT_FILENO, F_SETFL, flags | O_NONBLOCK);
    ssize_t written = write(STDOUT_FILENO, text, length);
    int error = errno;
    if (flags != -1)
        fcntl(STDOUT_FILENO, F_SETFL, flags);
    errno = error;
    return written;
}

// Writes until all is out or a signal has come. Returns the bytes that are done with: written or lost.
static size_t WriteUntilSignal(const char *text, size_t length) {
    size_t done = 0;
    while (done < length) {
        ssize_t written = WriteAtOnce(text + done, length - done);
        if (written > 0) {
            done += static_cast<size_t>(written);
            continue;
        }
        if (written == -1 && errno != EAGAIN) {
            mLost = true;
            return length;
        }
        if (SignalIsPending())
            return done;
        pollfd room = {STDOUT_FILENO, POLLOUT, 0};
        poll(&room, 1, SIGNAL_LOOK);
    }
    return done;
}

void ShowHeldOutput() {
    if (mOutput == nullptr)
        return;
    size_t length = KeptLength();
    mShown += WriteUntilSignal(mKept + mShown, length);
}

void EndOutput() {
    constexpr char message[] = "hwreg: output was lost\n";
    fflush(stdout);
    if (!OutputIsLost())
        return;
    signal(SIGPIPE, SIG_IGN); // the status stays, and nobody is waited for
    pollfd room = {STDERR_FILENO, POLLOUT, 0};
    if (poll(&room, 1, 0) == 1 && write(STDERR_FILENO, message, sizeof(message) - 1) == -1) {
        // Nobody is left who could be told.
    }
}
