// The kernel's lists of who has claimed which memory and ports (/proc/iomem, /proc/ioports).
#pragma once

#include <cstdint>

struct Resource {
    uint64_t first, last;
    uint32_t depth; // 0 outside of all others
    char name[64];
};

// Both lists in the order of the file, outer ranges before those within; how many. 0 where the kernel hides
// the addresses from this process.
uint32_t MemoryMap(const Resource **list);
uint32_t PortMap(const Resource **list);

// True when a range of that name overlaps.
bool MapHas(const char *name, uint64_t first, uint64_t last);

// The innermost range of memory that holds an address; NULL without one.
const Resource *ClaimantOf(uint64_t address);
