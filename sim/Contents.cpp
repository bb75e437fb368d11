#include "Contents.h"

#include "Arena.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

uint64_t gNumber = 0xCBF29CE484222325; // FNV-1a of all contents

void NoteByte(uint8_t byte) {
    gNumber = (gNumber ^ byte) * 0x100000001B3;
}

void NoteFile(const uint8_t *contents, uint64_t length) {
    for (uint64_t i = 0; i < length; i++)
        NoteByte(contents[i]);
    for (uint64_t rest = length; rest > 0; rest >>= 8) // where one file ends and the next one begins
        NoteByte(static_cast<uint8_t>(rest));
}

// A file that is a line's own is named by the place.
[[noreturn]] void FailFor(const BoardLine *line, const char *complaint, const char *path) {
    LineFail(line, complaint, line->number == 0 ? nullptr : path);
}

} // namespace

const char *PathIn(const char *folder, const char *name) {
    if (*name == '/')
        return name;
    char *path = static_cast<char *>(ArenaTake(strlen(folder) + strlen(name) + 2));
    strcat(strcat(strcpy(path, folder), "/"), name);
    return path;
}

const char *PathBeside(const BoardLine *line, const char *name) {
    const char *slash = strrchr(line->path, '/');
    if (!slash)
        return name;
    char *folder = static_cast<char *>(ArenaTake(strlen(line->path) + 1));
    memcpy(folder, line->path, static_cast<size_t>(slash - line->path));
    return PathIn(folder, name);
}

// What is wrong with the file, null for nothing.
static const char *Complaint(int descriptor, uint64_t maximum, uint64_t *length) {
    struct stat status;
    if (syscall(SYS_fstat, descriptor, &status) != 0)
        return "the file cannot be read";
    *length = static_cast<uint64_t>(status.st_size);
    if (!S_ISREG(status.st_mode))
        return "not a regular file";
    return *length == 0 ? "the file is empty" : *length > maximum ? "the file is too large" : nullptr;
}

int OpenContents(const BoardLine *line, const char *path, uint64_t maximum, uint64_t *length) {
    // A pipe without a writer would keep the process waiting.
    int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    int descriptor = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0));
    if (descriptor < 0)
        FailFor(line, errno == ENOENT ? "there is no such file" : "the file cannot be read", path);
    const char *complaint = Complaint(descriptor, maximum, length);
    if (complaint) {
        syscall(SYS_close, descriptor);
        FailFor(line, complaint, path);
    }
    return descriptor;
}

void ReadContents(const BoardLine *line, int descriptor, const char *path, void *contents, uint64_t length) {
    uint64_t done = 0;
    long got = 1;
    while (done < length && got > 0) {
        got = syscall(SYS_read, descriptor, static_cast<uint8_t *>(contents) + done, length - done);
        done += got > 0 ? static_cast<uint64_t>(got) : 0;
    }
    syscall(SYS_close, descriptor);
    if (done < length)
        FailFor(line, "the file cannot be read", path);
    NoteFile(static_cast<const uint8_t *>(contents), length);
}

uint64_t ContentsNumber() {
    return gNumber;
}
