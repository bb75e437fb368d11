#include "Sandbox.h"

#include "sim/Board.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

// About a tenth of a second each. Commands that do more than that (a scan of 256 full buses, a dump of 4 GiB,
// a wait for a clock that never ends its update) are left in the middle; a loop without any access is not.
constexpr uint64_t ACCESS_LIMIT = 50000;
constexpr size_t OUTPUT_LIMIT = static_cast<size_t>(2) << 20;
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
size_t gOutput;

typedef FILE *(*OpenFile)(const char *, const char *);

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

FILE *OpenInMemory(const char *name, const char *mode) {
    bool writes = *mode == 'w';
    File *file = FindFile(name);
    if (!file && writes && *name != 0)
        file = MakeFile(name);
    if (!file) {
        errno = ENOENT;
        return nullptr;
    }
    char link[40];
    snprintf(link, sizeof link, "/proc/self/fd/%d", file->descriptor);
    int descriptor = open(link, (writes ? O_RDWR | O_TRUNC : O_RDONLY) | O_CLOEXEC);
    return descriptor < 0 ? nullptr : fdopen(descriptor, writes ? "w+" : "r");
}

bool OfTheBoard(const char *path) {
    return strcmp(path, "/dev/mem") == 0 || strcmp(path, "/proc/efi/systab") == 0 ||
           (strcmp(path, SYSTEM_TABLE) == 0 && !gOwnSystemTable);
}

ssize_t DropOutput(void *, const char *, size_t length) {
    gOutput += length;
    if (gOutput > OUTPUT_LIMIT)
        _exit(0);
    return ssize_t(length);
}

} // namespace

// In front of the board's door of this name.
extern "C" FILE *fopen(const char *path, const char *mode) {
    static OpenFile board;
    if (!board)
        board = reinterpret_cast<OpenFile>(dlsym(RTLD_NEXT, "fopen"));
    return OfTheBoard(path) ? board(path, mode) : OpenInMemory(path, mode);
}

void EnterSandbox() {
    rlimit size = {FILE_LIMIT, FILE_LIMIT};
    signal(SIGXFSZ, SIG_IGN); // writing beyond the limit fails
    setrlimit(RLIMIT_FSIZE, &size);
    BoardLimit(ACCESS_LIMIT);
    if (!getenv("HWREG_FUZZ_SHOW"))
        stdout = fopencookie(nullptr, "w", {nullptr, DropOutput, nullptr, nullptr});
}

void SetSystemTable(const char *text, size_t length) {
    gOwnSystemTable = true;
    File *file = length == 0 ? nullptr : MakeFile(SYSTEM_TABLE);
    if (file && pwrite(file->descriptor, text, length, 0) != ssize_t(length))
        ftruncate(file->descriptor, 0);
}
