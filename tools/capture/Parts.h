// Which pieces of physical memory a capture holds.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint32_t PART_TITLE = 64;

// A run of bytes as they were read. Behind them lie SMBIOS_GUARD zeros, for walks over tables that lie.
struct MemoryPart {
    uint32_t start;
    uint32_t length;
    uint8_t *bytes;
    char title[PART_TITLE]; // of the comment in front of it
    MemoryPart *next;
};

// Reads length bytes from start on, cut at 4 GiB. What cannot be read is told and left out, so the piece may
// become several, or none. Returns the first, NULL when there is none.
MemoryPart *AddPart(uint32_t start, uint64_t length, const char *title, ...)
    __attribute__((format(printf, 3, 4)));

// Reads length bytes into a buffer. 0, or the error of the first page that cannot be read.
int ReadPhysical(uint32_t start, uint32_t length, uint8_t *buffer);

// The first part.
MemoryPart *FirstPart();

// Writes bytes over those of an address in all parts that hold it.
void PatchParts(uint32_t address, const uint8_t *bytes, uint32_t length);

// Puts all parts.
void PutParts();
