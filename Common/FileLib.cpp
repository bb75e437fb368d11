#include "Common/FileLib.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "Base/Memory.h"
#include "Common/ComFunc/Search.h"

FILE *Fopen(const char *path, const char *mode) {
    return fopen(path, mode);
}

int Fclose(FILE *stream) {
    return fclose(stream);
}

size_t Fread(void *buffer, size_t size, size_t count, FILE *stream) {
    return fread(buffer, size, count, stream);
}

size_t Fwrite(const void *buffer, size_t size, size_t count, FILE *stream) {
    return fwrite(buffer, size, count, stream);
}

int Fseek(FILE *stream, long offset, int whence) {
    return fseek(stream, offset, whence);
}

long Ftell(FILE *stream) {
    return ftell(stream);
}

constexpr unsigned MEMORY_DEVICES = 1;
constexpr unsigned NULL_DEVICE = 3;
constexpr unsigned ZERO_DEVICE = 5;
constexpr unsigned FULL_DEVICE = 7;

bool IsSink(const struct stat *file) {
    unsigned number = minor(file->st_rdev);
    return S_ISCHR(file->st_mode) && major(file->st_rdev) == MEMORY_DEVICES &&
           (number == NULL_DEVICE || number == ZERO_DEVICE || number == FULL_DEVICE);
}

// Opens without waiting and looks what it has got.
static FILE *OpenAndLook(const char *path, int flags, const char *mode, bool sinks) {
    int fd = open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
    if (fd == -1)
        return nullptr;
    struct stat file;
    bool fits = fstat(fd, &file) == 0 && (S_ISREG(file.st_mode) || (sinks && IsSink(&file)));
    FILE *stream = fits ? fdopen(fd, mode) : nullptr;
    if (stream == nullptr)
        close(fd);
    return stream;
}

FILE *OpenToRead(const char *path) {
    return OpenAndLook(path, O_RDONLY, "rb", false);
}

FILE *OpenAnew(const char *path) {
    return OpenAndLook(path, O_WRONLY | O_CREAT | O_TRUNC, "wb", false);
}

FILE *OpenAnewOrSink(const char *path) {
    return OpenAndLook(path, O_WRONLY | O_CREAT | O_TRUNC, "wb", true);
}

bool SyncFile(FILE *stream) {
    if (fflush(stream) != 0 || fsync(fileno(stream)) != 0)
        return false;
    int directory = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory == -1)
        return false;
    bool synced = fsync(directory) == 0;
    close(directory);
    return synced;
}

int GetFileSize(const char *path) {
    FILE *file = Fopen(path, "rb");
    if (file == nullptr)
        return -1;
    Fseek(file, 0, SEEK_END);
    long size = Ftell(file);
    Fclose(file);
    return size > FILE_SIZE_LIMIT ? FILE_SIZE_LIMIT : static_cast<int>(size);
}

EFI_STATUS Buffer2File(const char *path, const void *buffer, uint32_t size) {
    FILE *file = Fopen(path, "wb");
    if (file == nullptr)
        return EFI_ABORTED;
    size_t written = Fwrite(buffer, 1, size, file);
    bool closed = Fclose(file) == 0;
    return written == size && closed ? EFI_SUCCESS : EFI_ABORTED;
}

static EFI_STATUS ReadWhole(const char *path, uint8_t *block, uint32_t size) {
    FILE *file = Fopen(path, "rb");
    if (file == nullptr)
        return EFI_LOAD_ERROR;
    size_t got = Fread(block, 1, size, file);
    bool whole = got == size && fgetc(file) == EOF;
    Fclose(file);
    return whole ? EFI_SUCCESS : EFI_LOAD_ERROR;
}

static EFI_STATUS CreateEmpty(const char *path, uint8_t **buffer, uint32_t *size) {
    FILE *file = Fopen(path, "wb");
    if (file != nullptr)
        Fclose(file);
    *buffer = nullptr;
    *size = 0;
    return EFI_ABORTED;
}

static EFI_STATUS LoadFile(const char *path, uint8_t **buffer, uint32_t *size, int create,
                           void *(*allocate)(size_t)) {
    int length = GetFileSize(path);
    *size = static_cast<uint32_t>(length);
    if (length == -1)
        return create == 1 ? CreateEmpty(path, buffer, size) : EFI_ABORTED;
    uint8_t *block = static_cast<uint8_t *>(allocate(*size));
    if (block == nullptr)
        return EFI_OUT_OF_RESOURCES;
    EFI_STATUS status = ReadWhole(path, block, *size);
    if (status != EFI_SUCCESS) {
        Free(block);
        return status;
    }
    *buffer = block;
    return EFI_SUCCESS;
}

EFI_STATUS File2Buffer(const char *path, uint8_t **buffer, uint32_t *size, int create) {
    return LoadFile(path, buffer, size, create, Malloc);
}

EFI_STATUS File2RTBuffer(const char *path, uint8_t **buffer, uint32_t *size, int create) {
    return LoadFile(path, buffer, size, create, RTMalloc);
}

EFI_STATUS ReplaceFileContent(const char *path, const void *pattern, uint32_t patternLength,
                              const void *replacement, uint32_t replacementLength) {
    uint8_t *buffer = nullptr;
    uint32_t size = 0;
    EFI_STATUS status = File2Buffer(path, &buffer, &size, 0);
    if (status != EFI_SUCCESS)
        return status;
    uint32_t pos = 0;
    do {
        status = ReplaceBufferContent(&buffer, &size, pattern, patternLength, replacement, replacementLength,
                                      &pos, 1);
    } while (status == EFI_SUCCESS);
    Buffer2File(path, buffer, size);
    Free(buffer);
    return status;
}
