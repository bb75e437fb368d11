// Which CPUID leaves this processor has.
#pragma once

#include <cstdint>

// True when the leaf is one of those that its range says it has: basic, extended, a hypervisor's or another
// maker's.
bool HasLeaf(uint32_t leaf);

// Says what a leaf that it does not have shows: "those of leaf 16h", "zeros".
void DescribeNoLeaf(uint32_t leaf, char *text, uint32_t size);
