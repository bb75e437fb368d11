// The nodes of the msr driver, and what keeps them away.
#pragma once

#include <cstdint>

enum MsrNode : uint8_t {
    MSR_NODE_THERE,   // it can be opened
    MSR_NODE_COMES,   // hwreg's own "modprobe msr" will make it
    MSR_NODE_REFUSED, // it is there, and this process may not open it
    MSR_NODE_NEVER,   // it is not there and will not be
};

// Looks at the nodes, the module and what is told to it; notes it.
void FindMsrDoor();

// The node of a CPU, counted from 0.
MsrNode MsrNodeOf(uint32_t cpu);

// How many CPUs /ALL reaches: counted from CPU 0 to the first gap, after that modprobe.
uint32_t MsrCpus();

// True when the driver refuses writes (allow_writes=off), as far as it can be told.
bool MsrWritesRefused();
