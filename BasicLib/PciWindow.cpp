#include "BasicLib/PciWindow.h"

#include "BasicLib/Chipset.h"
#include "BasicLib/Cpu.h"
#include "BasicLib/PciPorts.h"

constexpr uint16_t INTEL_PCIEXBAR = 0x60;
constexpr uint32_t AMD_MMIO_CFG_BASE_ADDR = 0xC0010058;
constexpr uint32_t WINDOW_BASE_MASK = 0xFFF00000;
constexpr uint32_t WINDOW_UNKNOWN = 0xFFFFFFFF;

uint32_t tempPcieBaseAddr = WINDOW_UNKNOWN;

int GetPcieBaseAddress(uint32_t *base) {
    if (tempPcieBaseAddr != WINDOW_UNKNOWN) {
        *base = tempPcieBaseAddr;
        return 1;
    }
    uint32_t found = 0;
    uint32_t high = 0;
    switch (ThisChipset()->configWindow) {
    case HOME_PCI:
        if (!LegacyIoPciRead(PCI_WIDTH_32, 0, 0, 0, INTEL_PCIEXBAR, reinterpret_cast<uint8_t *>(&found)))
            return 0;
        break;
    case HOME_MSR:
        ReadMsr(0, AMD_MMIO_CFG_BASE_ADDR, &high, &found);
        break;
    default:
        return 0;
    }
    tempPcieBaseAddr = found & WINDOW_BASE_MASK;
    *base = tempPcieBaseAddr;
    return 1;
}

uint32_t MemPciBase(uint16_t bus, uint16_t dev, uint16_t fun) {
    uint32_t base = 0;
    GetPcieBaseAddress(&base);
    return base + (static_cast<uint32_t>(bus) << 20) + (static_cast<uint32_t>(dev) << 15) +
           (static_cast<uint32_t>(fun) << 12);
}
