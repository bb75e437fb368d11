#include "tools/check/machine/Leaves.h"

#include <cstdio>
#include <cstring>

#include "BasicLib/Cpu.h"

constexpr uint32_t RANGE = 0xFFFF0000;
constexpr uint32_t HYPERVISOR_RANGE = 0x40000000;
constexpr uint32_t HYPERVISOR_BLOCK = 0xFFFFFF00; // several interfaces stand side by side, each with a block
constexpr uint32_t HYPERVISOR_BIT = 0x80000000;   // of leaf 1, ECX

static bool HasHypervisor() {
    uint32_t registers[4];
    GetCpuId(1, registers);
    return (registers[2] & HYPERVISOR_BIT) != 0;
}

bool HasLeaf(uint32_t leaf) {
    bool hypervisors = (leaf & RANGE) == HYPERVISOR_RANGE;
    if (hypervisors && !HasHypervisor())
        return false;
    uint32_t first = leaf & (hypervisors ? HYPERVISOR_BLOCK : RANGE);
    uint32_t registers[4];
    GetCpuId(first, registers); // the first leaf of a range tells its last one
    return (registers[0] & RANGE) == (first & RANGE) && leaf <= registers[0];
}

void DescribeNoLeaf(uint32_t leaf, char *text, uint32_t size) {
    static const uint32_t mZeros[4] = {0, 0, 0, 0};
    uint32_t first[4];
    uint32_t last[4];
    uint32_t shown[4];
    GetCpuId(0, first);
    GetCpuId(first[0], last);
    GetCpuId(leaf, shown);
    if (memcmp(shown, mZeros, sizeof(shown)) == 0)
        snprintf(text, size, "zeros");
    else if (memcmp(shown, last, sizeof(shown)) == 0)
        snprintf(text, size, "the data of leaf %Xh", first[0]);
    else
        snprintf(text, size, "data of no leaf");
}
