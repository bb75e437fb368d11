// What the port, memory and PCI commands share: which access switch word was given, where its operands
// start, and the closing "return data:" line.
#pragma once

#include <cstdint>

enum AccessWidth { ACCESS_NONE, ACCESS_BIT, ACCESS_BYTE, ACCESS_WORD, ACCESS_DWORD };

// The first width, in the order bit, byte, word, dword, whose write or read switch word is in the argument
// vector; the write word is looked for first. *pos is its index. ACCESS_NONE without one.
AccessWidth FindAccess(uint16_t *pos);

// Position of the first of three switch words that is in the argument vector; false when none is.
bool FindOneOf(const char *first, const char *second, const char *third, uint16_t *pos);

// The width that one argument word names, as a write or a read; ACCESS_NONE for any other word.
AccessWidth AccessOfWord(const char *word);

// True when the read (write) flag of the width is set in the command word.
bool AccessReads(AccessWidth width);
bool AccessWrites(AccessWidth width);

// Prints "return data:" with the value in the width's format; returns the value cut to the width.
uint32_t ReportData(AccessWidth width, uint32_t value);
