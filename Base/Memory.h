// Heap blocks and byte runs.
//
// No command reaches: RTMalloc.
#pragma once

#include <cstddef>
#include <cstdint>

// A heap block of size bytes, NULL when there is none. Released with Free.
void *Malloc(size_t size);

// The same, under the name that run-time services use for memory that outlives a phase.
void *RTMalloc(size_t size);

// Releases a heap block; NULL is ignored.
void Free(void *block);

// Difference of the first pair of bytes that differ, as signed bytes; 0 when all size bytes are equal.
int Memcmp(const void *a, const void *b, size_t size);

// Fills size bytes with the low byte of value; returns the destination.
void *Memset(void *destination, int value, size_t size);

// The little-endian value at a place of any alignment.
uint16_t Load16(const void *place);
uint32_t Load32(const void *place);

// Copies size bytes between blocks that do not overlap; returns the destination. A size of 0 touches nothing.
void *Memcpy(void *destination, const void *source, size_t size);
