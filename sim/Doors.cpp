// The functions of libc that lead to hardware. Each asks whether the board has a say and goes to the kernel
// if not.
#include "Arena.h"
#include "Changes.h"
#include "Direct.h"
#include "Lies.h"
#include "Log.h"
#include "Memory.h"
#include "Mistake.h"
#include "Msr.h"
#include "ServedFiles.h"
#include "Settings.h"
#include "Trap.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#define DOOR extern "C" __attribute__((visibility("default")))

namespace {

int Fail(int error) {
    errno = error;
    return -1;
}

int OpenAnywhere(int folder, const char *path, int flags, mode_t mode) {
    if (IsServed(path))
        return OpenServed(path, flags);
    return static_cast<int>(syscall(SYS_openat, folder, path, flags, mode));
}

void LogClose(const ServedFile *file) {
    LogLine line;
    LogBegin(&line, "close ");
    LogAdd(&line, file->path);
    LogEnd(&line);
}

void BeginTransfer(LogLine *line, const char *name, const ServedFile *file, off_t offset, size_t count) {
    LogBegin(line, name);
    LogAdd(line, file->path);
    LogAdd(line, " ");
    LogAddHex(line, static_cast<uint64_t>(offset), 1);
    LogAdd(line, " ");
    LogAddHex(line, count, 1);
}

int AccessMode(int descriptor) {
    return static_cast<int>(syscall(SYS_fcntl, descriptor, F_GETFL)) & O_ACCMODE;
}

// As the kernel's driver: whole registers of 8 bytes only, the same one again for each further 8.
int ReadMsrFile(const ServedFile *file, int descriptor, void *buffer, size_t count, off_t offset) {
    if (AccessMode(descriptor) == O_WRONLY)
        return EBADF;
    if (count % 8 != 0)
        return EINVAL;
    for (size_t done = 0; done < count; done += 8) {
        uint64_t value;
        if (!MsrRead(file->cpu, static_cast<uint32_t>(offset), &value))
            return EIO;
        uint64_t place = static_cast<uint64_t>(file->cpu) << 32 | static_cast<uint32_t>(offset);
        value = LieOr(LIE_MSR, place, sizeof value, value);
        memcpy(static_cast<uint8_t *>(buffer) + done, &value, sizeof value);
    }
    return 0;
}

int WriteMsrFile(const ServedFile *file, int descriptor, const void *buffer, size_t count, off_t offset) {
    if (AccessMode(descriptor) == O_RDONLY)
        return EBADF;
    if (count % 8 != 0)
        return EINVAL;
    for (size_t done = 0; done < count; done += 8) {
        uint64_t value;
        memcpy(&value, static_cast<const uint8_t *>(buffer) + done, sizeof value);
        if (!MsrWrite(file->cpu, static_cast<uint32_t>(offset), value))
            return EIO;
    }
    return 0;
}

ssize_t Pread(int descriptor, void *buffer, size_t count, off_t offset) {
    ServedFile *file = ServedFileOf(descriptor);
    if (!file || file->kind == FILE_SYSTAB)
        return syscall(SYS_pread64, descriptor, buffer, count, offset);
    LogLine line;
    BeginTransfer(&line, "pread ", file, offset, count);
    if (file->kind == FILE_MEM) {
        ssize_t got = syscall(SYS_pread64, descriptor, buffer, count, offset);
        LogAddResult(&line, got < 0 ? errno : 0);
        LogEnd(&line);
        return got;
    }
    int error = ReadMsrFile(file, descriptor, buffer, count, offset);
    size_t got = LieLength(count);
    if (error == 0 && got < count) {
        LogAdd(&line, " -> ");
        LogAddHex(&line, got, 1);
        LogAdd(&line, " bytes");
    } else if (error == 0 && count >= 8) {
        LogAdd(&line, " -> ");
        LogAddBytes(&line, static_cast<const uint8_t *>(buffer), 8);
    } else
        LogAddResult(&line, error);
    LogEnd(&line);
    return error == 0 ? ssize_t(got) : Fail(error);
}

ssize_t Pwrite(int descriptor, const void *buffer, size_t count, off_t offset) {
    ServedFile *file = ServedFileOf(descriptor);
    if (!file || file->kind == FILE_SYSTAB)
        return syscall(SYS_pwrite64, descriptor, buffer, count, offset);
    LogLine line;
    BeginTransfer(&line, "pwrite ", file, offset, count);
    if (file->kind == FILE_MSR && count >= 8) {
        LogAdd(&line, " ");
        LogAddBytes(&line, static_cast<const uint8_t *>(buffer), 8);
    }
    ssize_t result = ssize_t(count);
    int error;
    if (file->kind == FILE_MEM) {
        result = syscall(SYS_pwrite64, descriptor, buffer, count, offset);
        error = result < 0 ? errno : 0;
    } else
        error = WriteMsrFile(file, descriptor, buffer, count, offset);
    LogAddResult(&line, error);
    LogEnd(&line);
    return error == 0 ? result : Fail(error);
}

void *Mmap(void *at, size_t length, int protection, int flags, int descriptor, off_t offset) {
    ServedFile *file = (flags & MAP_ANONYMOUS) ? nullptr : ServedFileOf(descriptor);
    if (!file || file->kind != FILE_MEM) {
        void *result =
            reinterpret_cast<void *>(syscall(SYS_mmap, at, length, protection, flags, descriptor, offset));
        RemovedMapping replaced;
        if (result != MAP_FAILED && (flags & MAP_FIXED))
            MappingRemoved(uintptr_t(result), length, &replaced);
        return result;
    }
    int error = MemoryAt(static_cast<uint64_t>(offset), length)
                    ? MappingRefused(static_cast<uint64_t>(offset), length, descriptor)
                    : EINVAL;
    void *result = MAP_FAILED;
    if (error == 0 && Direct())
        result = MemoryAt(static_cast<uint64_t>(offset), length);
    else if (error == 0) {
        result =
            reinterpret_cast<void *>(syscall(SYS_mmap, at, length, protection, flags, descriptor, offset));
        error = result == MAP_FAILED ? errno : 0;
    }
    if (error == 0) {
        TrapArm();
        MappingAdded(uintptr_t(result), length, static_cast<uint64_t>(offset), protection);
    }
    LogLine line;
    LogBegin(&line, "mmap /dev/mem ");
    LogAddHex(&line, static_cast<uint64_t>(offset), 8);
    LogAdd(&line, " ");
    LogAddHex(&line, length, 1);
    LogAdd(&line, " ");
    LogAdd(&line, (protection & PROT_READ) ? "r" : "");
    LogAdd(&line, (protection & PROT_WRITE) ? "w" : "");
    LogAdd(&line, (protection & PROT_EXEC) ? "x" : "");
    LogAdd(&line, protection == PROT_NONE ? "none" : "");
    LogAdd(&line, (flags & MAP_SHARED) ? " shared" : " private");
    LogAddResult(&line, error);
    LogEnd(&line);
    errno = error != 0 ? error : errno;
    return result;
}

// Runs the command as libc does, in a child that has the real machine around it.
int RealSystem(const char *command) {
    static int (*real)(const char *);
    if (!real)
        real = reinterpret_cast<int (*)(const char *)>(dlsym(RTLD_NEXT, "system"));
    const char *preload = getenv("LD_PRELOAD");
    char saved[4096];
    snprintf(saved, sizeof saved, "%s", preload ? preload : "");
    if (preload)
        unsetenv("LD_PRELOAD");
    int status = real(command);
    if (preload)
        setenv("LD_PRELOAD", saved, 1);
    return status;
}

int PrintSystem(const char *command) {
    char text[512];
    int length = snprintf(text, sizeof text, "system(\"%.490s\")\n", command);
    syscall(SYS_write, 1, text, static_cast<long>(length));
    return 0;
}

int BoardSystem(const char *command) {
    if (strcmp(command, "modprobe msr") == 0) {
        *gBoard.msrModuleLoaded = true;
        return gBoard.msrNodes == MSR_NODES_NEVER ? 1 << 8 : 0;
    }
    for (const SystemRule *rule = gBoard.systemRules; rule; rule = rule->next) {
        if (strncmp(command, rule->prefix, strlen(rule->prefix)) != 0)
            continue;
        if (rule->action == SYSTEM_PRINT)
            return PrintSystem(command);
        if (rule->action == SYSTEM_REAL)
            return RealSystem(command);
        return rule->exitCode << 8;
    }
    return 0;
}

// The flags that fopen opens with for a mode such as "rb+".
int OpenFlags(const char *mode) {
    int flags = strchr(mode, '+') ? O_RDWR : *mode == 'r' ? O_RDONLY : O_WRONLY;
    if (*mode == 'w')
        flags |= O_CREAT | O_TRUNC;
    else if (*mode == 'a')
        flags |= O_CREAT | O_APPEND;
    return flags | (strchr(mode, 'e') ? O_CLOEXEC : 0);
}

FILE *Fopen(const char *path, const char *mode) {
    static FILE *(*real)(const char *, const char *);
    if (IsServed(path)) {
        int descriptor = OpenServed(path, OpenFlags(mode));
        return descriptor < 0 ? nullptr : fdopen(descriptor, mode);
    }
    if (!real)
        real = reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "fopen"));
    return real(path, mode);
}

// The name of an open file without its folders, or "folder".
void LogAddFileName(LogLine *line, int descriptor, const struct stat *status) {
    char link[40];
    char path[400] = {};
    snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    if (S_ISDIR(status->st_mode) || syscall(SYS_readlink, link, path, sizeof path - 1) < 0)
        LogAdd(line, "folder");
    else
        LogAdd(line, strrchr(path, '/') ? strrchr(path, '/') + 1 : path);
}

// What reaches the disk at this moment: of a file its length.
int Fsync(int descriptor) {
    struct stat status;
    int result = static_cast<int>(syscall(SYS_fsync, descriptor));
    int error = result != 0 ? errno : 0;
    if (!gBoard.loaded || syscall(SYS_fstat, descriptor, &status) != 0)
        return result;
    LogLine line;
    LogBegin(&line, "fsync ");
    LogAddFileName(&line, descriptor, &status);
    if (S_ISREG(status.st_mode)) {
        LogAdd(&line, " ");
        LogAddHex(&line, static_cast<uint64_t>(status.st_size), 1);
    }
    LogAddResult(&line, error);
    LogEnd(&line);
    errno = error != 0 ? error : errno;
    return result;
}

mode_t ModeArgument(int flags, va_list arguments) {
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
}

} // namespace

DOOR int iopl(int level) {
    if (!gBoard.loaded)
        return static_cast<int>(syscall(SYS_iopl, level));
    int error = level > gBoard.privilege ? gBoard.ioplError : 0;
    LogLine line;
    LogBegin(&line, "iopl ");
    LogAddHex(&line, static_cast<uint64_t>(level), 1);
    if (error != 0)
        LogAddResult(&line, error);
    LogEnd(&line);
    if (error != 0)
        return Fail(error);
    gBoard.privilege = level;
    TrapArm();
    return 0;
}

DOOR int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = ModeArgument(flags, arguments);
    va_end(arguments);
    return OpenAnywhere(AT_FDCWD, path, flags, mode);
}

DOOR int open64(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = ModeArgument(flags, arguments);
    va_end(arguments);
    return OpenAnywhere(AT_FDCWD, path, flags, mode);
}

DOOR int openat(int folder, const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = ModeArgument(flags, arguments);
    va_end(arguments);
    return OpenAnywhere(folder, path, flags, mode);
}

DOOR int openat64(int folder, const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = ModeArgument(flags, arguments);
    va_end(arguments);
    return OpenAnywhere(folder, path, flags, mode);
}

// The names that the headers use with _FORTIFY_SOURCE.
DOOR int __open_2(const char *path, int flags) {
    return OpenAnywhere(AT_FDCWD, path, flags, 0);
}

DOOR int __open64_2(const char *path, int flags) {
    return OpenAnywhere(AT_FDCWD, path, flags, 0);
}

DOOR int __openat_2(int folder, const char *path, int flags) {
    return OpenAnywhere(folder, path, flags, 0);
}

DOOR int __openat64_2(int folder, const char *path, int flags) {
    return OpenAnywhere(folder, path, flags, 0);
}

DOOR FILE *fopen(const char *path, const char *mode) {
    return Fopen(path, mode);
}

DOOR FILE *fopen64(const char *path, const char *mode) {
    return Fopen(path, mode);
}

// The kernel's folders: a board has files below them and does not list them.
DOOR DIR *opendir(const char *path) {
    static DIR *(*real)(const char *);
    if (!real)
        real = reinterpret_cast<DIR *(*)(const char *)>(dlsym(RTLD_NEXT, "opendir"));
    if (!IsServed(path))
        return real(path);
    errno = ENOENT;
    return nullptr;
}

DOOR int fclose(FILE *stream) {
    static int (*real)(FILE *);
    if (!real)
        real = reinterpret_cast<int (*)(FILE *)>(dlsym(RTLD_NEXT, "fclose"));
    ServedFile *file = stream ? ServedFileOf(fileno(stream)) : nullptr;
    if (file)
        LogClose(file);
    return real(stream);
}

DOOR int close(int descriptor) {
    ServedFile *file = ServedFileOf(descriptor);
    if (file)
        LogClose(file);
    return static_cast<int>(syscall(SYS_close, descriptor));
}

DOOR int fsync(int descriptor) {
    return Fsync(descriptor);
}

DOOR ssize_t pread(int descriptor, void *buffer, size_t count, off_t offset) {
    return Pread(descriptor, buffer, count, offset);
}

DOOR ssize_t pread64(int descriptor, void *buffer, size_t count, off64_t offset) {
    return Pread(descriptor, buffer, count, offset);
}

DOOR ssize_t __pread_chk(int descriptor, void *buffer, size_t count, off_t offset, size_t size) {
    if (count > size)
        BoardFail("pread of %zu bytes into %zu", count, size);
    return Pread(descriptor, buffer, count, offset);
}

DOOR ssize_t __pread64_chk(int descriptor, void *buffer, size_t count, off64_t offset, size_t size) {
    return __pread_chk(descriptor, buffer, count, offset, size);
}

DOOR ssize_t pwrite(int descriptor, const void *buffer, size_t count, off_t offset) {
    return Pwrite(descriptor, buffer, count, offset);
}

DOOR ssize_t pwrite64(int descriptor, const void *buffer, size_t count, off64_t offset) {
    return Pwrite(descriptor, buffer, count, offset);
}

DOOR void *mmap(void *at, size_t length, int protection, int flags, int descriptor, off_t offset) {
    return Mmap(at, length, protection, flags, descriptor, offset);
}

DOOR void *mmap64(void *at, size_t length, int protection, int flags, int descriptor, off64_t offset) {
    return Mmap(at, length, protection, flags, descriptor, offset);
}

DOOR int munmap(void *at, size_t length) {
    RemovedMapping removed;
    int result = IsDirectMapping(at) ? 0 : static_cast<int>(syscall(SYS_munmap, at, length));
    if (result == 0 && gBoard.loaded && MappingRemoved(uintptr_t(at), length, &removed)) {
        LogLine line;
        LogBegin(&line, "munmap ");
        LogAddHex(&line, removed.address, 8);
        LogAdd(&line, " ");
        LogAddHex(&line, length, 1);
        LogEnd(&line);
    }
    return result;
}

DOOR int system(const char *command) {
    if (!gBoard.loaded || !command)
        return RealSystem(command);
    LogLine line;
    LogBegin(&line, "system ");
    LogAdd(&line, command);
    LogEnd(&line);
    return BoardSystem(command);
}
