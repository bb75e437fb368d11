// Fails one call that the program makes, in front of the board's doors and of libc: preloaded before
// libhwboard.so as a library of its own, so that a run without it allocates and opens past nothing but the
// board.
//
//   HWBOARD_FAIL="open 2 ENOMEM"      the second open of the program fails with that error (or a usual one)
//   HWBOARD_FAIL="malloc 3+"          the third allocation fails, and all behind it
//   HWBOARD_FAIL="mmap 2; close 1"    both fail
//   HWBOARD_FAIL="mmap 2; close 1 SIGTERM"   a signal comes at the beginning of that call
//   HWBOARD_FAIL=count                nothing fails
//   HWBOARD_FAIL="trace; mmap 2"      each call is a line of the log
//
// Only what the program itself calls counts (the return address lies in the executable): libc, the board and
// a sanitizer work undisturbed. The access log gets a line for the failure, and at the end of the run lines
// for how often each function was called and for what is still held (README.md).
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/io.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include "sim/SignalName.h"

namespace {

enum Function {
    MALLOC,
    CALLOC,
    REALLOC,
    OPEN,
    CLOSE,
    FSTAT,
    FOPEN,
    FDOPEN,
    FMEMOPEN,
    FCLOSE,
    FREAD,
    FWRITE,
    FGETC,
    GETC,
    UNGETC,
    FGETS,
    FSEEK,
    FFLUSH,
    SETVBUF,
    FSYNC,
    READ,
    WRITE,
    PREAD,
    PWRITE,
    MMAP,
    MUNMAP,
    IOPL,
    SYSTEM,
    FCNTL,
    POLL,
    SIGNALFD,
    TCGETATTR,
    TCSETATTR,
    TCGETPGRP,
    FREE, // never fails; counted for what is held
    FUNCTION_COUNT
};

struct Watched {
    const char *name;
    int error; // unless another one is asked for
    unsigned called;
    void *real;
};

struct Wish {
    Function function;
    unsigned number; // of the call that fails, from 1
    bool allBehind;  // and those behind it
    int error;       // 0: the usual one
    int signal;      // that comes at the call, which does not fail then
};

Watched gWatched[FUNCTION_COUNT] = {
    {"malloc", ENOMEM, 0, nullptr},   {"calloc", ENOMEM, 0, nullptr}, {"realloc", ENOMEM, 0, nullptr},
    {"open", EMFILE, 0, nullptr},     {"close", EIO, 0, nullptr},     {"fstat", EIO, 0, nullptr},
    {"fopen", EMFILE, 0, nullptr},    {"fdopen", ENOMEM, 0, nullptr}, {"fmemopen", ENOMEM, 0, nullptr},
    {"fclose", ENOSPC, 0, nullptr},   {"fread", EIO, 0, nullptr},     {"fwrite", ENOSPC, 0, nullptr},
    {"fgetc", EIO, 0, nullptr},       {"getc", EIO, 0, nullptr},      {"ungetc", ENOMEM, 0, nullptr},
    {"fgets", EIO, 0, nullptr},       {"fseek", ESPIPE, 0, nullptr},  {"fflush", ENOSPC, 0, nullptr},
    {"setvbuf", EINVAL, 0, nullptr},  {"fsync", EIO, 0, nullptr},     {"read", EIO, 0, nullptr},
    {"write", ENOSPC, 0, nullptr},    {"pread", EIO, 0, nullptr},     {"pwrite", EIO, 0, nullptr},
    {"mmap", EPERM, 0, nullptr},      {"munmap", ENOMEM, 0, nullptr}, {"iopl", EPERM, 0, nullptr},
    {"system", EAGAIN, 0, nullptr},   {"fcntl", EBADF, 0, nullptr},   {"poll", ENOMEM, 0, nullptr},
    {"signalfd", EMFILE, 0, nullptr}, {"tcgetattr", EIO, 0, nullptr}, {"tcsetattr", EIO, 0, nullptr},
    {"tcgetpgrp", EIO, 0, nullptr},   {"free", 0, 0, nullptr},
};

constexpr int LAST_ERROR = 133;
constexpr int FIRST_FREE = 3;    // the program's descriptors stand between the standard ones
constexpr int FIRST_OTHER = 100; // and those of the board and of this library
uintptr_t gProgram, gProgramEnd; // the executable as it is mapped
int gLog = -1;
constexpr int MOST_WISHES = 4;
Wish gWishes[MOST_WISHES];
int gWishCount;
bool gTracing;
long gBlocks; // that the program has taken and not given back

void Log(const char *format, ...) {
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (gLog >= 0 && length > 0)
        syscall(SYS_write, gLog, line, static_cast<long>(length));
}

void Refuse(const char *asked) {
    char text[256];
    int length = snprintf(text, sizeof text, "faults: HWBOARD_FAIL=%.200s makes no sense\n", asked);
    syscall(SYS_write, 2, text, static_cast<long>(length));
    abort();
}

int ErrorOf(const char *name) {
    for (int error = 1; error <= LAST_ERROR; error++) {
        const char *known = strerrorname_np(error);
        if (known && strcmp(known, name) == 0)
            return error;
    }
    return 0;
}

Function FunctionOf(const char *name) {
    for (int i = 0; i < FREE; i++)
        if (strcmp(gWatched[i].name, name) == 0)
            return Function(i);
    return FUNCTION_COUNT;
}

// False for one that makes no sense.
bool ReadWish(const char *asked) {
    char function[20], number[20], instead[20] = "", rest;
    int words = sscanf(asked, "%19s %19s %19s %c", function, number, instead, &rest);
    bool trace = words == 1 && strcmp(function, "trace") == 0;
    gTracing |= trace;
    if (words == 1)
        return trace || strcmp(function, "count") == 0;
    if (words < 2 || words > 3 || gWishCount == MOST_WISHES)
        return false;
    char *end;
    Wish *wish = &gWishes[gWishCount++];
    *wish = {FunctionOf(function), static_cast<unsigned>(strtoul(number, &end, 10)), *end == '+', 0, 0};
    wish->error = ErrorOf(instead);
    wish->signal = SignalOfName(instead);
    return wish->function != FUNCTION_COUNT && wish->number > 0 && (*end == 0 || strcmp(end, "+") == 0) &&
           (words == 2 || wish->error != 0 || wish->signal != 0);
}

void ReadWishes(const char *asked) {
    char text[200];
    snprintf(text, sizeof text, "%s", asked);
    for (char *rest = text, *wish; (wish = strsep(&rest, ";")) != nullptr;)
        if (!ReadWish(wish))
            Refuse(asked);
}

int NoteProgram(dl_phdr_info *info, size_t, void *) {
    for (int i = 0; i < info->dlpi_phnum; i++) {
        const ElfW(Phdr) *part = &info->dlpi_phdr[i];
        if (part->p_type != PT_LOAD)
            continue;
        uintptr_t start = info->dlpi_addr + part->p_vaddr;
        gProgram = gProgram == 0 ? start : gProgram;
        gProgramEnd = start + part->p_memsz;
    }
    return 1; // the executable is the first of the list, and enough
}

__attribute__((constructor)) void Begin() {
    const char *asked = getenv("HWBOARD_FAIL");
    const char *path = getenv("HWBOARD_LOG");
    if (!asked || !*asked)
        return;
    ReadWishes(asked);
    if (path && *path) {
        int opened = static_cast<int>(
            syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
        gLog = static_cast<int>(syscall(SYS_fcntl, opened, F_DUPFD_CLOEXEC, FIRST_OTHER));
        syscall(SYS_close, opened);
    }
    dl_iterate_phdr(NoteProgram, nullptr);
}

__attribute__((destructor)) void End() {
    if (gLog < 0)
        return;
    gProgramEnd = gProgram; // what the program's own end calls is nobody's mistake
    for (int i = 0; i < FREE; i++)
        if (gWatched[i].called > 0)
            Log("called %s %u\n", gWatched[i].name, gWatched[i].called);
    if (gBlocks != 0)
        Log("held blocks %ld\n", gBlocks);
    for (int descriptor = FIRST_FREE; descriptor < FIRST_OTHER; descriptor++) {
        char link[40], path[300] = {};
        snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
        if (syscall(SYS_fcntl, descriptor, F_GETFD) >= 0 &&
            syscall(SYS_readlink, link, path, sizeof path - 1) > 0)
            Log("held descriptor %s\n", path);
    }
}

void *Real(Function function) {
    Watched *watched = &gWatched[function];
    if (!watched->real)
        watched->real = dlsym(RTLD_NEXT, watched->name);
    return watched->real;
}

bool FromProgram(const void *caller) {
    return uintptr_t(caller) - gProgram < gProgramEnd - gProgram;
}

// True when this call is one that fails; errno says why. What it is about goes into its line.
bool Fails(Function function, const void *caller, const char *about = "") {
    if (!FromProgram(caller))
        return false;
    Watched *watched = &gWatched[function];
    unsigned number = ++watched->called;
    if (gTracing)
        Log("call %s %u %s\n", watched->name, number, about);
    int error = 0;
    for (const Wish &wish : gWishes) {
        if (wish.number == 0 || wish.function != function || number < wish.number ||
            (number > wish.number && !wish.allBehind))
            continue;
        if (wish.signal != 0) {
            Log("sent SIG%d at %s %u\n", wish.signal, watched->name, number);
            syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), wish.signal);
        } else
            error = wish.error != 0 ? wish.error : watched->error;
    }
    if (error == 0)
        return false;
    Log("failed %s %u -> %s\n", watched->name, number, strerrorname_np(error));
    errno = error;
    return true;
}

// A descriptor or stream that was not open is the program's mistake, whatever else was to happen.
int Closed(int result, const char *name, const void *caller) {
    if (result != 0 && errno == EBADF && FromProgram(caller))
        Log("mistaken %s\n", name);
    return result;
}

} // namespace

#define DOOR extern "C" __attribute__((visibility("default")))
#define CALLER __builtin_return_address(0)
#define REAL(type, function) (reinterpret_cast<type>(Real(function)))

// The address sanitizer's allocator starts before anything can stand in front of it.
#ifndef HWFAULTS_WITHOUT_ALLOCATIONS
static void *Taken(void *block, const void *caller) {
    if (block && FromProgram(caller))
        gBlocks++;
    return block;
}

DOOR void *malloc(size_t size) {
    if (Fails(MALLOC, CALLER))
        return nullptr;
    return Taken(REAL(void *(*)(size_t), MALLOC)(size), CALLER);
}

DOOR void *calloc(size_t count, size_t size) {
    if (Fails(CALLOC, CALLER))
        return nullptr;
    return Taken(REAL(void *(*)(size_t, size_t), CALLOC)(count, size), CALLER);
}

DOOR void *realloc(void *block, size_t size) {
    if (Fails(REALLOC, CALLER))
        return nullptr;
    void *moved = REAL(void *(*)(void *, size_t), REALLOC)(block, size);
    return block ? moved : Taken(moved, CALLER);
}

DOOR void free(void *block) {
    if (block && FromProgram(CALLER))
        gBlocks--;
    REAL(void (*)(void *), FREE)(block);
}
#endif

DOOR int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (Fails(OPEN, CALLER, path))
        return -1;
    return REAL(int (*)(const char *, int, ...), OPEN)(path, flags, mode);
}

// As with the kernel, the descriptor is gone although the error is told.
DOOR int close(int descriptor) {
    bool fails = Fails(CLOSE, CALLER);
    int error = errno;
    int result = Closed(REAL(int (*)(int), CLOSE)(descriptor), "close", CALLER);
    errno = fails ? error : errno;
    return fails ? -1 : result;
}

DOOR int fstat(int descriptor, struct stat *file) noexcept {
    return Fails(FSTAT, CALLER) ? -1 : REAL(int (*)(int, struct stat *), FSTAT)(descriptor, file);
}

DOOR FILE *fopen(const char *path, const char *mode) {
    if (Fails(FOPEN, CALLER, path))
        return nullptr;
    return REAL(FILE * (*)(const char *, const char *), FOPEN)(path, mode);
}

DOOR FILE *fdopen(int descriptor, const char *mode) noexcept {
    if (Fails(FDOPEN, CALLER))
        return nullptr;
    return REAL(FILE * (*)(int, const char *), FDOPEN)(descriptor, mode);
}

DOOR FILE *fmemopen(void *memory, size_t size, const char *mode) noexcept {
    if (Fails(FMEMOPEN, CALLER))
        return nullptr;
    return REAL(FILE * (*)(void *, size_t, const char *), FMEMOPEN)(memory, size, mode);
}

// Standard output is no file of the program's, nor is the memory that takes its place: here, in fwrite and in
// fflush.
DOOR int fclose(FILE *stream) {
    bool fails = stream != stdout && Fails(FCLOSE, CALLER);
    int error = errno;
    int result = Closed(REAL(int (*)(FILE *), FCLOSE)(stream), "fclose", CALLER);
    errno = fails ? error : errno;
    return fails ? EOF : result;
}

DOOR size_t fread(void *buffer, size_t size, size_t count, FILE *stream) {
    if (Fails(FREAD, CALLER))
        return 0;
    return REAL(size_t(*)(void *, size_t, size_t, FILE *), FREAD)(buffer, size, count, stream);
}

// As on a full disk: half of it is taken.
DOOR size_t fwrite(const void *buffer, size_t size, size_t count, FILE *stream) {
    bool fails = stream != stdout && Fails(FWRITE, CALLER);
    int error = errno;
    size_t written = REAL(size_t(*)(const void *, size_t, size_t, FILE *),
                          FWRITE)(buffer, size, fails ? count / 2 : count, stream);
    errno = fails ? error : errno;
    return written;
}

DOOR int fgetc(FILE *stream) {
    return Fails(FGETC, CALLER) ? EOF : REAL(int (*)(FILE *), FGETC)(stream);
}

DOOR int getc(FILE *stream) {
    return Fails(GETC, CALLER) ? EOF : REAL(int (*)(FILE *), GETC)(stream);
}

DOOR int ungetc(int key, FILE *stream) {
    return Fails(UNGETC, CALLER) ? EOF : REAL(int (*)(int, FILE *), UNGETC)(key, stream);
}

DOOR char *fgets(char *line, int size, FILE *stream) {
    return Fails(FGETS, CALLER) ? nullptr : REAL(char *(*)(char *, int, FILE *), FGETS)(line, size, stream);
}

DOOR int fseek(FILE *stream, long offset, int whence) {
    return Fails(FSEEK, CALLER) ? -1 : REAL(int (*)(FILE *, long, int), FSEEK)(stream, offset, whence);
}

DOOR int fflush(FILE *stream) {
    return stream != stdout && Fails(FFLUSH, CALLER) ? EOF : REAL(int (*)(FILE *), FFLUSH)(stream);
}

DOOR int setvbuf(FILE *stream, char *buffer, int mode, size_t size) {
    return Fails(SETVBUF, CALLER)
               ? -1
               : REAL(int (*)(FILE *, char *, int, size_t), SETVBUF)(stream, buffer, mode, size);
}

DOOR int fsync(int descriptor) {
    return Fails(FSYNC, CALLER) ? -1 : REAL(int (*)(int), FSYNC)(descriptor);
}

DOOR ssize_t read(int descriptor, void *buffer, size_t count) {
    return Fails(READ, CALLER) ? -1 : REAL(ssize_t(*)(int, void *, size_t), READ)(descriptor, buffer, count);
}

DOOR ssize_t write(int descriptor, const void *buffer, size_t count) {
    return Fails(WRITE, CALLER)
               ? -1
               : REAL(ssize_t(*)(int, const void *, size_t), WRITE)(descriptor, buffer, count);
}

DOOR ssize_t pread(int descriptor, void *buffer, size_t count, off_t offset) {
    if (Fails(PREAD, CALLER))
        return -1;
    return REAL(ssize_t(*)(int, void *, size_t, off_t), PREAD)(descriptor, buffer, count, offset);
}

DOOR ssize_t pwrite(int descriptor, const void *buffer, size_t count, off_t offset) {
    if (Fails(PWRITE, CALLER))
        return -1;
    return REAL(ssize_t(*)(int, const void *, size_t, off_t), PWRITE)(descriptor, buffer, count, offset);
}

DOOR void *mmap(void *at, size_t length, int protection, int flags, int descriptor, off_t offset) {
    if (Fails(MMAP, CALLER))
        return MAP_FAILED;
    return REAL(void *(*)(void *, size_t, int, int, int, off_t), MMAP)(at, length, protection, flags,
                                                                       descriptor, offset);
}

DOOR int munmap(void *at, size_t length) {
    return Fails(MUNMAP, CALLER) ? -1 : REAL(int (*)(void *, size_t), MUNMAP)(at, length);
}

DOOR int iopl(int level) {
    return Fails(IOPL, CALLER) ? -1 : REAL(int (*)(int), IOPL)(level);
}

DOOR int system(const char *command) {
    return Fails(SYSTEM, CALLER) ? -1 : REAL(int (*)(const char *), SYSTEM)(command);
}

// F_GETFD fails for one reason alone: the descriptor is not open, and is given /dev/null then.
DOOR int fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    long argument = va_arg(arguments, long);
    va_end(arguments);
    return command != F_GETFD && Fails(FCNTL, CALLER, command == F_SETFL ? "F_SETFL" : "")
               ? -1
               : REAL(int (*)(int, int, ...), FCNTL)(descriptor, command, argument);
}

DOOR int poll(pollfd *files, nfds_t count, int timeout) {
    return Fails(POLL, CALLER) ? -1 : REAL(int (*)(pollfd *, nfds_t, int), POLL)(files, count, timeout);
}

DOOR int signalfd(int descriptor, const sigset_t *signals, int flags) noexcept {
    return Fails(SIGNALFD, CALLER)
               ? -1
               : REAL(int (*)(int, const sigset_t *, int), SIGNALFD)(descriptor, signals, flags);
}

DOOR int tcgetattr(int descriptor, termios *modes) noexcept {
    return Fails(TCGETATTR, CALLER) ? -1 : REAL(int (*)(int, termios *), TCGETATTR)(descriptor, modes);
}

DOOR int tcsetattr(int descriptor, int when, const termios *modes) noexcept {
    return Fails(TCSETATTR, CALLER)
               ? -1
               : REAL(int (*)(int, int, const termios *), TCSETATTR)(descriptor, when, modes);
}

DOOR pid_t tcgetpgrp(int descriptor) noexcept {
    return Fails(TCGETPGRP, CALLER) ? -1 : REAL(pid_t(*)(int), TCGETPGRP)(descriptor);
}
