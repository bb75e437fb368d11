// CPUID answered by the board. The instruction faults nowhere by itself, so where the program has one,
// another of the same length stands in memory that does (UD2), as long as a board with leaves is loaded.
#pragma once

#include <stdint.h>
#include <sys/ucontext.h>

// Puts the faulting instructions into the program, or the program's own back.
void ReplaceCpuid(bool replaced);

// EAX, EBX, ECX, EDX of a leaf.
void AnswerCpuid(uint32_t leaf, uint32_t subleaf, uint32_t registers[4]);

// At such an instruction: carries out what stood there, with the registers of the signal's context (REG_RAX
// ...), and gives true.
bool CarryOutCpuid(greg_t *registers);
