#include "tools/capture/Sheet.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Base/Memory.h"
#include "Common/ComFunc/Signals.h"
#include "Common/FileLib.h"

constexpr uint32_t FILL_FROM = 2 * SHEET_LINE_BYTES; // shorter runs stay in their lines

static FILE *mText = nullptr;
static char *mBytes = nullptr;
static size_t mLength = 0;

bool SheetBegin() {
    mText = open_memstream(&mBytes, &mLength);
    return mText != nullptr;
}

void Put(const char *format, ...) {
    va_list args;
    va_start(args, format);
    vfprintf(mText, format, args);
    va_end(args);
}

// Bytes from bytes on that are the same as the first one.
static uint32_t RunLength(const uint8_t *bytes, uint32_t length) {
    uint32_t run = 0;
    while (run < length && bytes[run] == bytes[0])
        ++run;
    return run;
}

static void PutLine(const char *keyword, uint32_t address, const uint8_t *bytes, uint32_t length) {
    Put("%s %x", keyword, address);
    for (uint32_t i = 0; i < length; ++i)
        Put(" %02x", bytes[i]);
    Put("\n");
}

void PutBytes(const char *keyword, uint32_t address, const uint8_t *bytes, uint32_t length, bool withZeros) {
    for (uint32_t at = 0; at < length; at += SHEET_LINE_BYTES) {
        uint32_t count = length - at < SHEET_LINE_BYTES ? length - at : SHEET_LINE_BYTES;
        if (withZeros || bytes[at] != 0 || RunLength(bytes + at, count) < count)
            PutLine(keyword, address + at, bytes + at, count);
    }
}

void PutMemory(uint32_t address, const uint8_t *bytes, uint32_t length) {
    for (uint32_t at = 0; at < length;) {
        uint32_t run = RunLength(bytes + at, length - at);
        uint32_t count = SHEET_LINE_BYTES - (address + at) % SHEET_LINE_BYTES;
        if (count > length - at)
            count = length - at;
        if (run >= FILL_FROM) {
            count = run;
            Put("fill %x %x %02x\n", address + at, run, bytes[at]);
        } else {
            PutLine("bytes", address + at, bytes + at, count);
        }
        at += count;
    }
}

void PutMissing(const char *what, int error) {
    Put("# missing: %s: %s\n", what, strerror(error));
}

const char *ErrorName(int error) {
    switch (error) {
    case ENOENT:
    case EACCES:
    case EAGAIN:
    case EINVAL:
    case EIO:
    case ENXIO:
    case ENODEV:
    case ENOMEM:
        return strerrorname_np(error);
    default:
        return "EPERM";
    }
}

void Progress(const char *what) {
    if (isatty(STDERR_FILENO) == 1)
        fprintf(stderr, "\r\033[K%s", what == nullptr ? "" : what);
}

static bool Complain(const char *path, int error) {
    Progress(nullptr);
    fprintf(stderr, "hwreg-capture: %s: %s\n", path, strerror(error));
    return false;
}

// 0, or the error of the first write that failed.
static int WriteAll(FILE *file) {
    errno = EIO; // for a stream that fails without saying why
    return Fwrite(mBytes, 1, mLength, file) == mLength && fflush(file) == 0 ? 0 : errno;
}

// What is there and no regular file is written to as it stands: a name of /dev must not become a file.
static bool WriteThrough(const char *path) {
    FILE *file = OpenAnewOrSink(path);
    if (file == nullptr)
        return Complain(path, errno == 0 ? EINVAL : errno);
    int error = WriteAll(file);
    if (Fclose(file) != 0 && error == 0)
        error = errno;
    return error == 0 || Complain(path, error);
}

// The file beside, complete and on the disk; 0 or the error.
static int WriteBeside(int fd) {
    FILE *file = fdopen(fd, "wb");
    if (file == nullptr) {
        int error = errno;
        close(fd);
        return error;
    }
    mode_t mask = umask(0);
    umask(mask);
    int error = WriteAll(file);
    if (error == 0 && (fchmod(fd, 0666 & ~mask) != 0 || fsync(fd) != 0))
        error = errno;
    if (Fclose(file) != 0 && error == 0)
        error = errno;
    return error;
}

static bool WriteAndRename(const char *path) {
    char *beside = nullptr;
    if (asprintf(&beside, "%s.XXXXXX", path) < 0)
        return Complain(path, ENOMEM);
    HoldSignals(); // none may leave the file beside behind
    int fd = mkostemp(beside, O_CLOEXEC);
    int error = fd < 0 ? errno : WriteBeside(fd);
    if (error == 0 && rename(beside, path) != 0)
        error = errno;
    if (error != 0 && fd >= 0)
        unlink(beside);
    ReleaseSignals();
    Free(beside);
    return error == 0 || Complain(path, error);
}

bool SheetWrite(const char *path) {
    bool whole = ferror(mText) == 0;
    if (Fclose(mText) != 0 || !whole)
        return Complain(path == nullptr ? "the capture" : path, ENOMEM);
    struct stat there;
    bool written;
    if (path == nullptr) {
        int error = WriteAll(stdout);
        written = error == 0 || Complain("standard output", error);
    } else if (stat(path, &there) == 0 && !S_ISREG(there.st_mode)) {
        written = WriteThrough(path);
    } else {
        written = WriteAndRename(path);
    }
    Free(mBytes);
    return written;
}
