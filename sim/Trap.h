// The instructions that a door stands in: port accesses (general protection fault), loads and stores to pages
// of devices (page fault), and what stands in the place of CPUID (invalid opcode). Intel SDM volume 3, 6.15
// for the faults, 17.3.1.4 for single-stepping.
#pragma once

#include <stdint.h>

// One access of 1, 2 or 4 bytes, logged.
uint32_t LoggedPortRead(uint16_t port, unsigned width);
void LoggedPortWrite(uint16_t port, unsigned width, uint32_t value);

// One line of the log for an access to device memory, when what was read or written lies there.
void LogMemory(bool string, bool written, uint64_t address, unsigned width);

// Takes SIGSEGV, SIGTRAP and SIGILL, once; what is no matter of the board goes to whoever had them before.
void TrapArm();
