#include "Log.h"

#include "Arena.h"
#include "Mistake.h"
#include "SentSignal.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr size_t KEPT_SIZE = static_cast<size_t>(1) << 30; // address space; pages arrive when touched

struct ErrorText {
    int error;
    const char *name;
};

const ErrorText ERROR_NAMES[] = {
    {EPERM, "EPERM"},   {ENOENT, "ENOENT"},   {EIO, "EIO"},       {ENXIO, "ENXIO"},   {EBADF, "EBADF"},
    {EAGAIN, "EAGAIN"}, {ENOMEM, "ENOMEM"},   {EACCES, "EACCES"}, {EFAULT, "EFAULT"}, {EBUSY, "EBUSY"},
    {EEXIST, "EEXIST"}, {ENODEV, "ENODEV"},   {EINVAL, "EINVAL"}, {ENFILE, "ENFILE"}, {EMFILE, "EMFILE"},
    {ENOSYS, "ENOSYS"}, {ENOTDIR, "ENOTDIR"},
};

int gLogDescriptor = -1;
char *gKept;
size_t gKeptLength;
bool gPauses;
uint64_t gAccessesLeft = UINT64_MAX;
void (*gLeave)();

} // namespace

void LogOpenFile(const char *path) {
    if (gLogDescriptor >= 0)
        syscall(SYS_close, gLogDescriptor);
    gLogDescriptor = -1;
    if (!path || !*path)
        return;
    int opened = static_cast<int>(
        syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    gLogDescriptor = MoveDescriptorHigh(opened);
    if (gLogDescriptor < 0)
        BoardFail("%s: the log cannot be written", path);
}

void LogKeep() {
    if (gKept)
        return;
    long at = syscall(SYS_mmap, nullptr, KEPT_SIZE, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0L);
    if (at == -1)
        BoardFail("no address space for the log");
    gKept = reinterpret_cast<char *>(at);
}

void LogClear() {
    if (gKept)
        syscall(SYS_madvise, gKept, (gKeptLength + 1 + 4095) & ~static_cast<size_t>(4095), MADV_DONTNEED);
    gKeptLength = 0;
}

const char *LogText() {
    return gKept ? gKept : "";
}

void LogPause(bool pause) {
    gPauses = pause;
}

bool LogPauses() {
    return gPauses;
}

void LimitAccesses(uint64_t accesses, void (*leave)()) {
    gAccessesLeft = accesses;
    gLeave = leave;
}

void CountAccesses(uint64_t count) {
    if (count > gAccessesLeft)
        gLeave();
    gAccessesLeft -= count;
}

void LogBegin(LogLine *line, const char *text) {
    CountAccesses(1);
    line->length = 0;
    LogAdd(line, text);
}

void LogAdd(LogLine *line, const char *text) {
    if (gPauses)
        return;
    while (*text && line->length < sizeof line->text - 1)
        line->text[line->length++] = *text++;
}

void LogAddHex(LogLine *line, uint64_t value, int digits) {
    if (gPauses)
        return;
    char text[17];
    char *at = text + 16;
    *at = 0;
    do {
        *--at = "0123456789abcdef"[value & 15];
        value >>= 4;
        digits--;
    } while (at > text && (value != 0 || digits > 0));
    LogAdd(line, at);
}

void LogAddBytes(LogLine *line, const uint8_t *bytes, unsigned count) {
    while (count-- > 0)
        LogAddHex(line, bytes[count], 2);
}

void LogAddResult(LogLine *line, int error) {
    LogAdd(line, " -> ");
    LogAdd(line, error == 0 ? "ok" : ErrorName(error));
}

void LogEnd(LogLine *line) {
    if (gPauses)
        return;
    line->text[line->length++] = '\n';
    if (gLogDescriptor >= 0)
        syscall(SYS_write, gLogDescriptor, line->text, line->length);
    if (gKept && line->length < KEPT_SIZE - gKeptLength) {
        memcpy(gKept + gKeptLength, line->text, line->length);
        gKeptLength += line->length;
    }
    SentSignalLine();
}

const char *ErrorName(int error) {
    for (const ErrorText &entry : ERROR_NAMES)
        if (entry.error == error)
            return entry.name;
    return "E?";
}

int ErrorNumber(const char *name) {
    for (const ErrorText &entry : ERROR_NAMES)
        if (strcmp(entry.name, name) == 0)
            return entry.error;
    return 0;
}
