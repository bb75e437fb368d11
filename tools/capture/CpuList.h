// The processors of the machine, and lists of them as board files write them.
#pragma once

#include <cstdint>

constexpr uint32_t MOST_CPUS = 32768; // an MSR node's number is a signed 16-bit one

// A set of processors; the values that these have are the same.
struct CpuSet {
    uint64_t bits[MOST_CPUS / 64];
};

// Adding a processor below MOST_CPUS, and asking for any; whether two sets are the same, and whether one is
// empty.
void CpuSetAdd(CpuSet *set, uint32_t cpu);
bool CpuSetHas(const CpuSet *set, uint32_t cpu);
bool CpuSetEqual(const CpuSet *a, const CpuSet *b);
bool CpuSetEmpty(const CpuSet *set);

// The set as "0-3,5", which stays until the next call.
const char *CpuSetText(const CpuSet *set);

// Finds the processors: those with an MSR node, or without any node those on which this process may run.
void FindCpus();

// What FindCpus has found, and whether there are nodes: 0, or the error of the first one.
const CpuSet *MachineCpus();
int MsrNodesError();

// The first processor of the set from cpu on; MOST_CPUS when there is none.
uint32_t NextCpu(const CpuSet *set, uint32_t cpu);

// Lets this process run on that processor alone. 0, or the error number.
int BindToCpu(uint32_t cpu);

// Lets it run where it was before the first BindToCpu.
void UnbindFromCpu();
