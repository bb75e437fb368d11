#include "KernelFiles.h"

#include "Arena.h"
#include "Log.h"
#include "Memory.h"
#include "OwnFiles.h"
#include "Settings.h"

#include <errno.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr size_t MAX_PATH = 255;
constexpr int MAX_FILES = 4096;
constexpr size_t MAX_CONTENTS = static_cast<size_t>(1) << 20; // of a file
constexpr size_t MAX_TAKEN = static_cast<size_t>(32) << 20;   // by all of them

// With all that is below; the last two tell of a container.
const char *const PLACES[] = {
    "/proc",
    "/sys",
    "/boot",
    "/lib/modules",
    "/usr/lib/modules",
    "/etc/modprobe.d",
    "/run/modprobe.d",
    "/lib/modprobe.d",
    "/usr/lib/modprobe.d",
    "/usr/local/lib/modprobe.d",
    "/run/systemd",
    "/run/.containerenv",
    "/.dockerenv",
};

struct KernelFile {
    const char *path;
    uint8_t *bytes;
    size_t length, room;
    int error; // 0: opens
    KernelFile *next;
};

KernelFile *gFiles;
int gFileCount;
size_t gTaken;

// True for the place itself, too.
bool IsBelow(const char *path, const char *place) {
    size_t length = strlen(place);
    return strncmp(path, place, length) == 0 && (path[length] == 0 || path[length] == '/');
}

KernelFile *Find(const char *path) {
    for (KernelFile *file = gFiles; file; file = file->next)
        if (strcmp(file->path, path) == 0)
            return file;
    return nullptr;
}

// The file that the line names, which begins empty.
KernelFile *LineFile(const BoardLine *line) {
    const char *path = LineText(line, 1);
    if (*path != '/' || strlen(path) > MAX_PATH)
        LineFail(line, "not the path of a file, from / on", path);
    if (IsBelow(path, "/dev"))
        LineFail(line, "a device and no file", path);
    if (strcmp(path, SYSTAB_SYS) == 0 || strcmp(path, SYSTAB_PROC) == 0)
        LineFail(line, "a \"systab\" line gives this file", path);
    if (KernelFile *file = Find(path))
        return file;
    if (gFileCount == MAX_FILES)
        LineFail(line, "more than 4096 files", path);
    gFileCount++;
    KernelFile *file = static_cast<KernelFile *>(ArenaTake(sizeof(KernelFile)));
    *file = {path, nullptr, 0, 0, 0, gFiles};
    return gFiles = file;
}

// Room for bytes from the offset on: the file is as long as what was put into it, and zero in between.
uint8_t *Extend(const BoardLine *line, KernelFile *file, size_t offset, size_t length) {
    size_t end = offset + length;
    if (end > MAX_CONTENTS)
        LineFail(line, "the file has more than 1 MiB", file->path);
    if (end > file->room) {
        size_t room = end < 64 ? 128 : 2 * end;
        gTaken += room;
        if (gTaken > MAX_TAKEN)
            LineFail(line, "the files have more than 16 MiB", file->path);
        uint8_t *bytes = static_cast<uint8_t *>(ArenaTake(room));
        if (file->length != 0)
            memcpy(bytes, file->bytes, file->length);
        file->bytes = bytes;
        file->room = room;
    }
    file->length = end > file->length ? end : file->length;
    file->error = 0;
    return file->bytes + offset;
}

void KernelFileLine(BoardLine *line) {
    KernelFile *file = LineFile(line);
    const char *word = LineWord(line, 2);
    int error = line->quoted[2] ? 0 : ErrorNumber(word);
    if (error != 0) {
        file->length = 0;
        file->error = error;
        return;
    }
    size_t length = strlen(LineText(line, 2));
    uint8_t *to = Extend(line, file, file->length, length + 1);
    memcpy(to, word, length);
    to[length] = '\n';
}

} // namespace

void KernelFilesReset() {
    gFiles = nullptr;
    gFileCount = 0;
    gTaken = 0;
}

bool IsKernelFile(const char *path) {
    if (Find(path))
        return true;
    if (IsBelow(path, "/proc/self"))
        return false;
    for (const char *place : PLACES)
        if (IsBelow(path, place))
            return true;
    return false;
}

int WriteKernelFile(const char *path, int descriptor) {
    const KernelFile *file = Find(path);
    if (!file)
        return WriteOwnFile(path, descriptor);
    if (file->error == 0)
        WriteText(descriptor, reinterpret_cast<const char *>(file->bytes), file->length);
    return file->error;
}

void FileLine(BoardLine *line) {
    if (LineWord(line, 1)[0] == '/')
        KernelFileLine(line);
    else
        MemoryFileLine(line);
}

void FileBytesLine(BoardLine *line) {
    KernelFile *file = LineFile(line);
    size_t offset = LineNumber(line, 2, MAX_CONTENTS - 1);
    LineWord(line, 3);
    uint8_t *to = Extend(line, file, offset, static_cast<size_t>(line->count - 3));
    for (int i = 3; i < line->count; i++)
        *to++ = LineByte(line, i);
}
