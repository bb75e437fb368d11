// The search over physical memory that finds firmware tables and texts.
#pragma once

#include "Base/Types.h"

// Where firmware leaves the anchors of its tables on machines without UEFI.
constexpr uint32_t BIOS_AREA = 0xF0000;
constexpr uint32_t BIOS_AREA_SIZE = 0x10000;

// Looks for the NUL-terminated pattern in length bytes of physical memory from start on, page by page, from
// offset 0 (restart non-zero) or *position. 0 with *position just past the match; 0x80000015 when the match
// ends with the range; 0x8000000E with *position = 0xFFFFFFFF without a match; 0x80000002 for a NULL pattern.
//
// Two things are intended. The pages loaded are counted by the process and only restart = 1 sets the count
// back, while the page itself belongs to one call: going on after a match sees nothing more of that page, so
// that a text which fills memory is listed once a page. And a byte that breaks a partial match is not
// compared with the pattern's first byte again.
EFI_STATUS SearchFromMemReadByte(uint32_t start, uint32_t length, const char *pattern, uint32_t *position,
                                 uint32_t restart);
