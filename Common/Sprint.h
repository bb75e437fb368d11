// The program's own formatter. All messages, tables and views go through it.
//
// Conversions: d D x X i(hexadecimal) o O, each with 'l' for 64 bits; s a (8-bit text), S (16-bit text),
// c, g G (GUID), r R (64-bit status). Widths are 0..9, written with a leading zero and before d D x X l
// alone. Everything else, `%5d` or `%-4s` for example, is printed as it stands.
//
// No command reaches: OutputIntDigit.
#pragma once

#include <cstdarg>

#include "Base/Types.h"

// Formats into buffer, as much as fits; no NUL is written. Returns the count that the whole text has,
// so a result above capacity says that the text was cut. 0 for a NULL buffer or format.
size_t FormatBounded(char *buffer, size_t capacity, const char *format, va_list args);

// Formats into buffer, whose size is not checked and which is not NUL-terminated: pass one that is
// zero-filled and large enough. Returns the count of bytes, -1 for a NULL buffer or format.
int Sprintf_s_va_list(char *buffer, const char *format, va_list args);
unsigned int Sprintf_s(char *buffer, const char *format, ...);

// Formats and writes to standard output; the text may be of any length. Returns the count of bytes in
// 16 bits; 0, and nothing is written, when the buffer cannot be allocated; 0xFFFF for a NULL format.
int Printf(const char *format, ...);

// A 32-bit value as the 64-bit argument that a conversion with 'l' takes.
constexpr uint64_t Wide(uint32_t value) {
    return value;
}

// Writes value in base at buffer[*pos], with zeros in front up to width, and advances *pos (0 for a NULL
// pos). A longer number is never cut. Returns the new position, -1 for a NULL buffer or without memory.
int OutputIntDigit(uint64_t value, unsigned base, unsigned width, int upper, char *buffer, uint16_t *pos);

// Prints "ASSERT in %s on %d: %s\n" and carries on: an assertion never stops the program.
void PrintAssert(const char *source, unsigned line, const char *condition);
