// The simulated board as seen by a test that is linked with it.
//
// Link libhwboard.so before libc (target hwboard) and load a board description; from then on iopl, the port
// instructions, /dev/mem, /dev/cpu/N/msr, the firmware's table file and system() are the board's. Without a
// loaded board everything reaches the kernel unchanged.
#pragma once

#include "AnswerDoors.h"

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Loads a board file after forgetting the one before: memory, ports, MSRs, privilege and the log start
// afresh. A mistake in the file ends the process with a message that names the line.
void BoardLoad(const char *path);

// Reads a board file as BoardLoad does and forgets it. How many mistakes it has: up to the first one, or all.
// What would be told of them stands in the text, cut to its size, a line each.
int BoardCheck(const char *path, bool all, char *text, uint64_t size);

// Forgets the board; all doors lead to the kernel again.
void BoardUnload(void);

// The log as text, one line an access (the format is described in docs/boards.md). Valid until the next
// access.
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

// One port access of 1, 2 or 4 bytes as the instruction makes it, log and all, without the fault: many times
// as fast.
uint32_t BoardPortRead(uint16_t port, unsigned width);
void BoardPortWrite(uint16_t port, unsigned width, uint32_t value);

// Microseconds that have passed on the board: one for each write to the delay port 0xED.
uint64_t BoardMicroseconds(void);

// From now on these doors (a set of the bits of AnswerDoors.h) answer from the bytes, whatever they are
// asked: each read takes as many as it is wide, the lowest first, and `rest` again and again when all are
// taken. What is written there is lost. The bytes must stay where they are.
void BoardAnswer(unsigned doors, const void *bytes, uint64_t length, uint8_t rest);

// After so many further accesses `leave` is called, which does not return: for programs that may run on for
// ever. An access to a device in memory counts as ten, by the time it takes; port accesses count even when
// they are not logged.
void BoardLimit(uint64_t accesses, void (*leave)(void));

#ifdef __cplusplus
}
#endif
