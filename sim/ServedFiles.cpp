#include "ServedFiles.h"

#include "Arena.h"
#include "KernelFiles.h"
#include "Log.h"
#include "Memory.h"
#include "Mistake.h"
#include "Settings.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int MAX_FILES = MAX_CPUS + 3;
ServedFile gFiles[MAX_FILES];
int gFileCount;
int gKeptCount;

void NoteBacking(ServedFile *file, int descriptor) {
    struct stat status;
    file->backing = descriptor;
    if (descriptor < 0 || syscall(SYS_fstat, descriptor, &status) != 0)
        BoardFail("%s: no file can be put behind it", file->path);
    file->device = status.st_dev;
    file->inode = status.st_ino;
}

int NewBacking(const char *path) {
    return MoveDescriptorHigh(static_cast<int>(syscall(SYS_memfd_create, path, MFD_CLOEXEC)));
}

ServedFile *NewFile(FileKind kind, const char *path, int cpu) {
    for (int i = 0; i < gFileCount; i++)
        if (strcmp(gFiles[i].path, path) == 0)
            return &gFiles[i];
    ServedFile *file = &gFiles[gFileCount++];
    file->kind = kind;
    file->cpu = cpu;
    snprintf(file->path, sizeof file->path, "%s", path);
    NoteBacking(file, kind == FILE_MEM ? MemoryDescriptor() : NewBacking(path));
    return file;
}

// The number in "/dev/cpu/N/msr", -1 if the path is another one.
int CpuOfPath(const char *path) {
    const char PREFIX[] = "/dev/cpu/";
    if (strncmp(path, PREFIX, sizeof PREFIX - 1) != 0)
        return -1;
    char *end;
    long cpu = strtol(path + sizeof PREFIX - 1, &end, 10);
    return end != path + sizeof PREFIX - 1 && strcmp(end, "/msr") == 0 && cpu >= 0 && cpu < 100000
               ? static_cast<int>(cpu)
               : -1;
}

const SystabFile *SystabOfPath(const char *path) {
    if (strcmp(path, SYSTAB_SYS) == 0)
        return &gBoard.sysSystab;
    return strcmp(path, SYSTAB_PROC) == 0 ? &gBoard.procSystab : nullptr;
}

ServedFile *SystabBacking(const char *path, const SystabFile *contents) {
    ServedFile *file = NewFile(FILE_SYSTAB, path, 0);
    size_t length = strlen(contents->text);
    syscall(SYS_ftruncate, file->backing, 0L);
    syscall(SYS_pwrite64, file->backing, contents->text, length, 0L);
    return file;
}

// The file behind a path that is no kernel file's, or null and the error of opening it.
ServedFile *FileOfPath(const char *path, int *error) {
    int cpu = CpuOfPath(path);
    if (cpu >= 0) {
        *error = MsrNodePresent(cpu) ? gBoard.msrError : ENOENT;
        return *error == 0 ? NewFile(FILE_MSR, path, cpu) : nullptr;
    }
    const SystabFile *contents = SystabOfPath(path);
    if (!contents) {
        *error = gBoard.memError;
        return *error == 0 ? NewFile(FILE_MEM, path, 0) : nullptr;
    }
    *error = contents->error != 0 ? contents->error : contents->text ? 0 : ENOENT;
    return *error == 0 ? SystabBacking(path, contents) : nullptr;
}

// A second description of the file; the device is there already and has no length to cut.
int OpenBacking(int backing, int flags, int *error) {
    char link[40];
    snprintf(link, sizeof link, "/proc/self/fd/%d", backing);
    int real = flags & ~(O_CREAT | O_EXCL | O_TRUNC | O_NOFOLLOW);
    int descriptor = static_cast<int>(syscall(SYS_openat, AT_FDCWD, link, real, 0));
    *error = descriptor < 0 ? errno : 0;
    return descriptor;
}

int OpenDevice(const char *path, int flags, int *error) {
    ServedFile *file = FileOfPath(path, error);
    return file ? OpenBacking(file->backing, flags, error) : -1;
}

// Each opening has a file of its own, with what it says at that moment.
int OpenKernelFile(const char *path, int flags, int *error) {
    int descriptor = -1;
    int backing = NewBacking("kernel");
    *error = backing < 0 ? errno : WriteKernelFile(path, backing);
    if (*error == 0 && (flags & O_ACCMODE) != O_RDONLY)
        *error = EACCES;
    if (*error == 0)
        descriptor = OpenBacking(backing, flags, error);
    if (backing >= 0)
        syscall(SYS_close, backing);
    return descriptor;
}

void LogOpen(const char *path, int flags, int error) {
    LogLine line;
    LogBegin(&line, "open ");
    LogAdd(&line, path);
    int mode = flags & O_ACCMODE;
    LogAdd(&line, mode == O_RDWR ? " rdwr" : mode == O_WRONLY ? " wronly" : " rdonly");
    if ((flags & O_SYNC) == O_SYNC)
        LogAdd(&line, " sync");
    if (flags & O_CLOEXEC)
        LogAdd(&line, " cloexec");
    LogAddResult(&line, error);
    LogEnd(&line);
}

bool IsDevice(const char *path) {
    return strcmp(path, "/dev/mem") == 0 || SystabOfPath(path) || CpuOfPath(path) >= 0;
}

} // namespace

bool IsServed(const char *path) {
    return gBoard.loaded && path && (IsDevice(path) || IsKernelFile(path));
}

int OpenServed(const char *path, int flags) {
    int error;
    int descriptor = IsDevice(path) ? OpenDevice(path, flags, &error) : OpenKernelFile(path, flags, &error);
    LogOpen(path, flags, error);
    errno = error != 0 ? error : errno;
    return descriptor;
}

ServedFile *ServedFileOf(int descriptor) {
    struct stat status;
    if (!gBoard.loaded || gFileCount == 0 || descriptor < 0 || syscall(SYS_fstat, descriptor, &status) != 0)
        return nullptr;
    for (int i = 0; i < gFileCount; i++)
        if (gFiles[i].inode == status.st_ino && gFiles[i].device == status.st_dev)
            return &gFiles[i];
    return nullptr;
}

void ServedFilesReset() {
    for (int i = 0; i < gFileCount; i++)
        if (gFiles[i].kind == FILE_MEM)
            NoteBacking(&gFiles[i], MemoryDescriptor());
}

void KeepServedFiles() {
    gKeptCount = gFileCount;
}

void TakeBackServedFiles() {
    while (gFileCount > gKeptCount)
        if (gFiles[--gFileCount].kind != FILE_MEM)
            syscall(SYS_close, gFiles[gFileCount].backing);
}
