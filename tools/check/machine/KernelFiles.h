// Files of the kernel and of the system, for reading. They may be missing, cut, endless or full of any bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

constexpr size_t KERNEL_LINE = 512;

// The next line without its end. What is longer is cut, bytes that are no text are shown as "?". False at the
// end, behind too many lines, and for a NULL file.
bool NextLine(FILE *file, char line[KERNEL_LINE]);

// The first line of a file. False for one that cannot be opened or is empty.
bool FirstLine(const char *path, char line[KERNEL_LINE]);

// Copies bytes of a file from an offset on. How many there were; -1 with errno(3) for one that cannot be
// opened.
int64_t ReadBytes(const char *path, uint64_t offset, void *bytes, size_t length);

// Copies a whole file into a buffer of that size. How many bytes there were; 0 for one that cannot be opened.
// The rest of the buffer is 0.
uint32_t ReadWhole(const char *path, uint8_t *bytes, uint32_t size);

// True when a file is there, whoever may read it.
bool FileExists(const char *path);

// The running kernel's release, "6.1.0-56-amd64".
const char *KernelRelease();

// What a word "NAME=" of the kernel's command line says, the last one of several; "" for the bare word. NULL
// without the word, or the command line. It stays until the next call.
const char *KernelParameter(const char *name);

// What the kernel's configuration says of an option.
enum ConfigValue : uint8_t { CONFIG_IS_UNKNOWN, CONFIG_IS_OFF, CONFIG_IS_ON };
ConfigValue KernelConfig(const char *option);
