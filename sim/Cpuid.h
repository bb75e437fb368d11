// CPUID answered by the board. The instruction faults nowhere by itself, so where the program has one,
// another of the same length stands in memory that does (UD2), as long as a board with leaves is loaded.
#pragma once

#include <sys/ucontext.h>

// Puts the faulting instructions into the program, or the program's own back.
void ReplaceCpuid(bool replaced);

// At such an instruction: carries out what stood there, with the registers of the signal's context (REG_RAX
// ...), and gives true.
bool CarryOutCpuid(greg_t *registers);
