// Storage and system calls for the board. It runs inside signal handlers and under programs whose allocator
// is being tested, so it takes no heap and calls the kernel directly rather than functions that somebody may
// stand in front of.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Zeroed storage that lives until ArenaReset.
void *ArenaTake(size_t size);
void ArenaReset();

// Moves a descriptor out of the program's sight (200 or above, close-on-exec), so that the lowest free
// numbers stay the program's own. Negative descriptors are passed on.
int MoveDescriptorHigh(int descriptor);

// Ends the process with a message: the board was told or asked for something that it does not have.
[[noreturn]] void BoardFail(const char *format, ...) __attribute__((format(printf, 1, 2)));
