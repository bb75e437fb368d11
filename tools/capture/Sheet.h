// The file that a capture becomes: text that is kept in memory until the whole is there.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint32_t SHEET_LINE_BYTES = 16;

// Begins the text. False without memory.
bool SheetBegin();

// Appends formatted text (printf(3)); a lack of memory shows at the end.
void Put(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Appends KEYWORD ADDRESS BYTE... in lines of 16 bytes; without those of zeros alone where that is said.
void PutBytes(const char *keyword, uint32_t address, const uint8_t *bytes, uint32_t length, bool withZeros);

// Appends the same for memory: every byte is named, and runs of one byte are `fill`.
void PutMemory(uint32_t address, const uint8_t *bytes, uint32_t length);

// Appends "# missing: WHAT: REASON", the reason of an error number (errno(3)).
void PutMissing(const char *what, int error);

// The name of an error number as board files have it, EPERM for one without a name there.
const char *ErrorName(int error);

// What is done at the moment, on standard error when that is a terminal; NULL takes it away.
void Progress(const char *what);

// Writes the text to the path, by a file beside it that takes its name when it is complete, or to standard
// output for NULL. False, after a message on standard error, when it cannot be written; the path is then as
// it was.
bool SheetWrite(const char *path);
