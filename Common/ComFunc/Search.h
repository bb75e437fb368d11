// Forward search for a pattern in a buffer, and replacement of a match.
//
// The search is one pass without backtracking: a byte that breaks a partial match is not compared with
// the pattern's first byte again, so `aab` is not found in `aaab`. Intended: the search over
// physical memory follows the same rule, and both give the same places.
//
// No command reaches: SearchFromBuffer, WSearchFromBuffer, ReplaceBufferContent.
#pragma once

#include "Base/Types.h"

// Looks for the pattern from offset 0 (fromStart non-zero) or from *pos. 0 with *pos just past the match;
// 0x8000000E with *pos = 0xFFFFFFFF when there is none; 0x80000002 for a NULL argument.
EFI_STATUS SearchFromBuffer(const void *buffer, uint32_t length, const void *pattern, uint32_t patternLength,
                            uint32_t *pos, int fromStart);

// The same with a NUL-terminated pattern.
EFI_STATUS SearchStringFromBuffer(const void *buffer, uint32_t length, const char *string, uint32_t *pos,
                                  int fromStart);

// The same over 16-bit units with a NUL-terminated pattern; length and *pos count units.
EFI_STATUS WSearchFromBuffer(const uint16_t *buffer, uint32_t length, const uint16_t *string, uint32_t *pos,
                             int fromStart);

// Replaces the first match by the replacement in a new heap block, frees the old one and hands out the
// new block and length; *pos keeps the end of the match in the old one. A search failure is returned
// as it is, 0x80000005 when no block can be had; the old block then stays.
EFI_STATUS ReplaceBufferContent(uint8_t **buffer, uint32_t *length, const void *pattern,
                                uint32_t patternLength, const void *replacement, uint32_t replacementLength,
                                uint32_t *pos, int fromStart);
