// The simulated board as seen by a test that is linked with it.
//
// Link libhwboard.so before libc (target hwboard) and load a board description; from then on iopl, the port
// instructions, /dev/mem, /dev/cpu/N/msr, the firmware's table file and system() are the board's. Without a
// loaded board everything reaches the kernel unchanged.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Loads a board file after forgetting the one before: memory, ports, MSRs, privilege and the log start
// afresh. A mistake in the file ends the process with a message that names the line.
void BoardLoad(const char *path);

// Forgets the board; all doors lead to the kernel again.
void BoardUnload(void);

// The log as text, one line an access (the format is described in README.md). Valid until the next access.
const char *BoardLog(void);
void BoardLogClear(void);

// The board's memory, past any mapping and without a trace in the log. Addresses below 4 GiB.
void BoardPoke(uint64_t address, const void *data, uint64_t length);
void BoardPeek(uint64_t address, void *data, uint64_t length);

// A port that keeps what is written to it (it becomes one if it was none), and the byte that it holds.
void BoardSetPort(uint16_t port, uint8_t value);
uint8_t BoardGetPort(uint16_t port);

// An MSR of one CPU; setting creates it, with all bits writable. Getting an absent one gives 0.
void BoardSetMsr(int cpu, uint32_t index, uint64_t value);
uint64_t BoardGetMsr(int cpu, uint32_t index);

// The stored bits of a configuration register, read-only ones included, without a trace in the log. The
// function is (bus << 8) | (device << 3) | function; width is 1, 2 or 4. An absent function reads all ones.
void BoardSetPci(uint16_t function, uint16_t offset, int width, uint32_t value);
uint32_t BoardGetPci(uint16_t function, uint16_t offset, int width);

// Microseconds that have passed on the board: one for each write to the delay port 0xED.
uint64_t BoardMicroseconds(void);

// 1 when the board's CPUID leaves are in force, 0 when the processor cannot make CPUID fault or none were
// given.
int BoardCpuidFaulting(void);

#ifdef __cplusplus
}
#endif
