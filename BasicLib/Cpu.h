// Model-specific registers, CPUID and the number of logical CPUs.
#pragma once

#include <cstdint>

// Logical CPUs whose MSR node can be opened, counted from CPU 0 to the first gap; 0 without the driver.
int32_t GetCpuCount();

// Reads an MSR of a CPU (0-based, its low 16 bits as a signed number) through msr(4). Both halves are 0 on
// any failure. The pointers are not NULL.
void ReadMsr(uint32_t cpu, uint32_t index, uint32_t *high, uint32_t *low);

// Writes an MSR of a CPU. Failures are silent: read the register back to learn of them.
void WriteMsr(uint32_t cpu, uint32_t index, uint32_t high, uint32_t low);

// The same reads with the reason of a failure: 0 with the value, or the error number (errno(3)) that the
// node's open or read gave.
int TryReadMsr(uint32_t cpu, uint32_t index, uint64_t *value);

// 0 when the CPU's MSR node can be opened, else the error number.
int ProbeMsrNode(uint32_t cpu);

// CPUID on the current CPU: EAX, EBX, ECX, EDX (Intel SDM volume 2, CPUID), with sub-leaf 0 and with another
// one.
void GetCpuId(uint32_t leaf, uint32_t registers[4]);
void GetCpuIdSub(uint32_t leaf, uint32_t subleaf, uint32_t registers[4]);
