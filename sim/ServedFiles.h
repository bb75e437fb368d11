// The files that the board serves in place of the kernel: devices, the firmware's table file, and what
// KernelFiles.h has.
#pragma once

#include <sys/types.h>

enum FileKind { FILE_MEM, FILE_MSR, FILE_SYSTAB };

// A device or the firmware's table file. Behind each stands a real file, so that descriptors of it live as
// any others do: the lowest free number, close-on-exec, dup, inheritance. A descriptor is recognised by the
// file behind it.
struct ServedFile {
    FileKind kind;
    char path[40];
    int cpu;
    int backing;
    dev_t device;
    ino_t inode;
};

// True when the board has a say about the path.
bool IsServed(const char *path);
// Opens such a path as open(2) does, and logs that.
int OpenServed(const char *path, int flags);
// Null for a descriptor of anything else.
ServedFile *ServedFileOf(int descriptor);

// After a new board was loaded: descriptors of its memory are recognised again.
void ServedFilesReset();

// What lies behind the files that are opened for the first time from KeepServedFiles on goes again.
void KeepServedFiles();
void TakeBackServedFiles();
