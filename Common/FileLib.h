// File streams, and whole files as heap buffers.
//
// No command reaches: Fseek, Ftell, GetFileSize, Buffer2File, File2Buffer, File2RTBuffer,
// ReplaceFileContent.
#pragma once

#include <cstdio>

#include "Base/Types.h"

// The standard library's calls of the same role, with their results.
FILE *Fopen(const char *path, const char *mode);
int Fclose(FILE *stream);
size_t Fread(void *buffer, size_t size, size_t count, FILE *stream);
size_t Fwrite(const void *buffer, size_t size, size_t count, FILE *stream);
int Fseek(FILE *stream, long offset, int whence);
long Ftell(FILE *stream);

// A regular file, to be read or made anew. NULL for anything else, too: the program waits for nobody at the
// other end of a FIFO or a device.
FILE *OpenToRead(const char *path);
FILE *OpenAnew(const char *path);

// The same, and a sink: a device that only takes (null, zero, full: major 1 of the kernel's devices.txt).
FILE *OpenAnewOrSink(const char *path);
bool IsSink(const struct stat *file);

// Writes what the stream holds to the disk, and its directory entry in the current directory too. False when
// that fails.
bool SyncFile(FILE *stream);

// Size of a file in bytes, -1 when it cannot be opened or has no position. FILE_SIZE_LIMIT stands for that
// size and all above.
int GetFileSize(const char *path);
constexpr int FILE_SIZE_LIMIT = 0x7FFFFFFF;

// Creates or truncates the file and writes size bytes. 0, or 0x80000015 when it cannot be created or takes
// fewer bytes.
EFI_STATUS Buffer2File(const char *path, const void *buffer, uint32_t size);

// Loads a whole file into a heap block that the caller frees with Free. 0; 0x80000009 without memory for it,
// 0x80000001 for a short read or a file that does not end at its size, 0x80000015 for an absent file, with a
// *size of 0xFFFFFFFF. With create 1 an absent file is created empty, *buffer is NULL and *size 0, and the
// result is still 0x80000015: callers treat both alike. Any other failure leaves *buffer as it was.
EFI_STATUS File2Buffer(const char *path, uint8_t **buffer, uint32_t *size, int create);

// The same with a block from RTMalloc.
EFI_STATUS File2RTBuffer(const char *path, uint8_t **buffer, uint32_t *size, int create);

// Replaces every occurrence of the pattern in the file. The pattern must not be empty and the replacement
// must not contain it: the search starts over at the front after each replacement and would never end. The
// status of the last, failing search (0x8000000E when all went well), or that of the load.
EFI_STATUS ReplaceFileContent(const char *path, const void *pattern, uint32_t patternLength,
                              const void *replacement, uint32_t replacementLength);
