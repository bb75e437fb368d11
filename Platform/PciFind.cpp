#include "Platform/PciFind.h"

#include "BasicLib/PciConfig.h"
#include "Common/Sprint.h"

uint16_t GetPciClassCode(uint16_t bus, uint16_t dev, uint16_t fun) {
    return PciRead16(bus, dev, fun, PCI_CLASS_DEVICE);
}

int SourchPciControllerByClass(uint16_t *bus, uint16_t *dev, uint16_t *fun, uint16_t classCode) {
    for (uint16_t b = 0; b < PCI_BUS_COUNT; ++b) {
        for (uint16_t d = 0; d < PCI_DEVICE_COUNT; ++d) {
            for (uint16_t f = 0; f < PCI_FUNCTION_COUNT; ++f) {
                if (GetPciClassCode(b, d, f) != classCode)
                    continue;
                if (bus != nullptr)
                    *bus = b;
                if (dev != nullptr)
                    *dev = d;
                if (fun != nullptr)
                    *fun = f;
                return 1;
            }
        }
    }
    Printf("Not found ClaseCode(%04X)\n", classCode);
    return 0;
}

int isPciMultipleFunction(uint16_t bus, uint16_t dev) {
    uint8_t header = PciRead8(bus, dev, 0, PCI_HEADER_TYPE);
    return (header & HEADER_MULTI_FUNCTION) != 0 && header != 0xFF;
}
