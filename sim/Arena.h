// Storage and system calls for the board. It runs inside signal handlers and under programs whose allocator
// is being tested, so it takes no heap and calls the kernel directly rather than functions that somebody may
// stand in front of.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Zeroed storage that lives until ArenaReset.
void *ArenaTake(size_t size);
// The same for registers that processes can share: bytes, no pointers.
void *ArenaTakeRegisters(size_t size);
// The storage (0) and the registers (1) that have been taken.
void ArenaArea(int number, void **start, uint64_t *length);
// From now on these registers are those of the file, and so of each process that names it. The first one's go
// into the empty file. Once the board is loaded, and for the life of the process.
void ArenaShareRegisters(const char *path);
// Their length; writing them into a file, and making that place in it theirs. False with errno on failure.
uint64_t ArenaRegisterBytes();
bool ArenaWriteRegisters(int descriptor, uint64_t offset);
bool ArenaMapRegisters(int descriptor, uint64_t offset);
void ArenaReset();

// Moves a descriptor out of the program's sight (200 or above, close-on-exec), so that the lowest free
// numbers stay the program's own. Negative descriptors are passed on.
int MoveDescriptorHigh(int descriptor);
