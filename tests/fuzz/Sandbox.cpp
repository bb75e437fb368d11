#include "Sandbox.h"

#include "Fuzzers.h"
#include "Held.h"
#include "sim/Board.h"
#include "sim/Direct.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

// Commands that do more than that (a scan of 256 full buses, a dump of 4 GiB, a wait for a clock that never
// ends its update) are left in the middle; a loop without any access is not.
constexpr uint64_t ACCESS_LIMIT = 20000;
constexpr size_t OUTPUT_LIMIT = static_cast<size_t>(64) << 10;
constexpr rlim_t FILE_LIMIT = 1 << 20;

constexpr int MAX_FILES = 8;
constexpr int FIRST_FILE_DESCRIPTOR = 300; // beyond those that the program may leave open
constexpr const char *SYSTEM_TABLE = "/sys/firmware/efi/systab";

struct File {
    char name[256];
    int descriptor;
};
File gFiles[MAX_FILES];
int gFileCount;
bool gOwnSystemTable;

struct Streams {
    FILE *input;
    FILE *output;
};
Streams gStandard;
Streams gRun;
bool gBounded;
bool gRecorded;
bool gOutputLost;
unsigned gStalled;
size_t gOutput;
char gOutputText[OUTPUT_LIMIT];
int gNothing = -1;
bool gInputSet;

File *FindFile(const char *name) {
    for (int i = 0; i < gFileCount; i++)
        if (strcmp(gFiles[i].name, name) == 0)
            return &gFiles[i];
    return nullptr;
}

File *MakeFile(const char *name) {
    if (gFileCount == MAX_FILES || strlen(name) >= sizeof gFiles[0].name)
        return nullptr;
    File *file = &gFiles[gFileCount++];
    int made = memfd_create("file", MFD_CLOEXEC);
    file->descriptor = fcntl(made, F_DUPFD_CLOEXEC, FIRST_FILE_DESCRIPTOR);
    close(made);
    memcpy(file->name, name, strlen(name) + 1);
    return file;
}

int OpenInMemory(const char *name, int flags) {
    File *file = FindFile(name);
    if (!file && (flags & O_CREAT) && *name != 0)
        file = MakeFile(name);
    if (!file) {
        errno = ENOENT;
        return -1;
    }
    char link[40];
    snprintf(link, sizeof link, "/proc/self/fd/%d", file->descriptor);
    return open(link, (flags & ~(O_CREAT | O_EXCL)) | O_CLOEXEC);
}

// Devices that take all, or nothing.
bool IsSinkDevice(const char *path) {
    return strcmp(path, "/dev/null") == 0 || strcmp(path, "/dev/zero") == 0 || strcmp(path, "/dev/full") == 0;
}

bool OfTheBoard(const char *path) {
    return BoardServes(path) && !(gOwnSystemTable && strcmp(path, SYSTEM_TABLE) == 0);
}

ssize_t TakeOutput(const char *text, size_t length) {
    if (gOutputLost) {
        errno = EPIPE;
        return -1;
    }
    size_t room = OUTPUT_LIMIT - gOutput;
    size_t taken = length < room ? length : room;
    if (gRecorded)
        memcpy(gOutputText + gOutput, text, taken);
    gOutput += taken;
    if (taken < length && gBounded)
        LeaveRun();
    return static_cast<ssize_t>(length);
}

ssize_t SinkOutput(void *, const char *text, size_t length) {
    ssize_t taken = TakeOutput(text, length);
    return taken < 0 ? 0 : taken; // as a stream's function tells of an error
}

ssize_t ReadInput(void *, char *text, size_t length) {
    return read(STDIN_FILENO, text, length);
}

void LimitFiles(rlim_t most) {
    rlimit size = {most, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &size);
}

} // namespace

extern "C" {

int __wrap_open(const char *path, int flags, ...) {
    if (OfTheBoard(path) || IsSinkDevice(path))
        return open(path, flags, 0666);
    if (strcmp(path, ".") == 0) // the folder that the program syncs: one that is on no disk
        return open("/dev", flags);
    return OpenInMemory(path, flags);
}

FILE *__wrap_fopen(const char *path, const char *mode) {
    int descriptor;
    if (OfTheBoard(path) || IsSinkDevice(path))
        descriptor = open(path, *mode == 'r' ? O_RDONLY : O_WRONLY);
    else
        descriptor = OpenInMemory(path, *mode == 'w' ? O_RDWR | O_CREAT | O_TRUNC : O_RDONLY);
    return descriptor < 0 ? nullptr : HoldStream(fdopen(descriptor, mode));
}

ssize_t __wrap_write(int descriptor, const void *text, size_t length) {
    if (descriptor == STDOUT_FILENO && gStalled > 0) {
        gStalled--;
        errno = EAGAIN;
        return -1;
    }
    if (descriptor == STDOUT_FILENO || descriptor == STDERR_FILENO)
        return TakeOutput(static_cast<const char *>(text), length);
    return write(descriptor, text, length);
}
}

void SandboxBegin(bool recorded) {
    if (gNothing < 0) {
        gNothing = fcntl(open("/dev/null", O_RDWR | O_CLOEXEC), F_DUPFD_CLOEXEC, FIRST_FILE_DESCRIPTOR);
        gStandard = {stdin, stdout};
        dup2(gNothing, STDIN_FILENO);
    }
    gRecorded = recorded;
    gOutput = 0;
    stdout = fopencookie(nullptr, "w", {nullptr, SinkOutput, nullptr, nullptr});
    stdin = fopencookie(nullptr, "r", {ReadInput, nullptr, nullptr, nullptr});
    __fsetlocking(stdout, FSETLOCKING_BYCALLER); // libFuzzer's threads leave it alone: locks cost a third
    gRun = {stdin, stdout};
    errno = 0;
}

void EnterSandbox() {
    gBounded = true;
    LimitFiles(FILE_LIMIT);
    BoardLimit(ACCESS_LIMIT, LeaveRun);
    BoardLogAccesses(gRecorded);
}

void LeaveSandbox() {
    if (!gBounded)
        return;
    gBounded = false;
    LimitFiles(RLIM_INFINITY);
    BoardLimit(UINT64_MAX, nullptr);
}

void SandboxEnd() {
    TakeBackHeld();
    fclose(gRun.input);
    fclose(gRun.output);
    stdin = gStandard.input;
    stdout = gStandard.output;
    for (int i = 0; i < gFileCount; i++)
        close(gFiles[i].descriptor);
    gFileCount = 0;
    gOwnSystemTable = false;
    gOutputLost = false;
    gStalled = 0;
    if (gInputSet)
        dup2(gNothing, STDIN_FILENO);
    gInputSet = false;
}

void LoseOutput() {
    gOutputLost = true;
}

void StallOutput(unsigned writes) {
    gStalled = writes;
}

void SetStandardInput(int descriptor) {
    dup2(descriptor, STDIN_FILENO);
    gInputSet = true;
}

void SetSystemTable(const char *text, size_t length) {
    gOwnSystemTable = true;
    File *file = length == 0 ? nullptr : MakeFile(SYSTEM_TABLE);
    if (file && pwrite(file->descriptor, text, length, 0) != ssize_t(length))
        ftruncate(file->descriptor, 0);
}

const char *RecordedOutput(size_t *length) {
    *length = gOutput;
    return gOutputText;
}

bool RecordedFile(int number, const char **name, int *descriptor) {
    if (number >= gFileCount)
        return false;
    *name = gFiles[number].name;
    *descriptor = gFiles[number].descriptor;
    return true;
}
