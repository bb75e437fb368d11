// Model-specific registers, per CPU.
#pragma once

#include "BoardFile.h"

void MsrReset();
// "msr INDEX VALUE [cpus LIST] [ro | rw MASK] [count STEP] [hidden MASK KEY BITS]"
void MsrLine(BoardLine *line);

// One RDMSR or WRMSR; false where the processor would raise #GP (absent register, write to a read-only one).
bool MsrRead(int cpu, uint32_t index, uint64_t *value);
bool MsrWrite(int cpu, uint32_t index, uint64_t value);

// The stored value; setting creates the register.
void MsrSet(int cpu, uint32_t index, uint64_t value);
uint64_t MsrGet(int cpu, uint32_t index);
