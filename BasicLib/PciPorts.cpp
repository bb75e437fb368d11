#include "BasicLib/PciPorts.h"

#include "Base/Memory.h"
#include "BasicLib/PortIo.h"

constexpr uint32_t CONFIG_ADDRESS = 0xCF8;
constexpr uint32_t CONFIG_DATA = 0xCFC;
constexpr uint32_t CONFIG_ENABLE = 0x80000000;

// Two delays before each address: bridges that forward it are given time. The offset is added whole: its two
// low bits stay in the address, the lane follows from the data port.
static void SelectLegacy(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset) {
    uint32_t address = CONFIG_ENABLE + (static_cast<uint32_t>(bus) << 16) +
                       (static_cast<uint32_t>(dev) << 11) + (static_cast<uint32_t>(fun) << 8) + offset;
    IoDelay(2);
    IoWrite32(CONFIG_ADDRESS, address);
}

int LegacyIoPciRead(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset,
                    uint8_t *buffer) {
    if (offset > PCI_CONFIG_BYTES || buffer == nullptr)
        return 0;
    SelectLegacy(bus, dev, fun, offset);
    uint32_t lane = CONFIG_DATA + (offset & 3u);
    uint32_t value;
    switch (width) {
    case PCI_WIDTH_8:
        value = IoRead8(lane);
        break;
    case PCI_WIDTH_16:
        value = IoRead16(lane);
        break;
    case PCI_WIDTH_32:
        value = IoRead32(CONFIG_DATA); // a dword has no lane, also at an unaligned offset
        break;
    default:
        return 0;
    }
    Memcpy(buffer, &value, PciWidthBytes(width));
    return 1;
}

int LegacyIoPciWrite(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset,
                     const uint8_t *buffer) {
    if (offset > PCI_CONFIG_BYTES || buffer == nullptr)
        return 0;
    SelectLegacy(bus, dev, fun, offset);
    if (PciWidthBytes(width) == 0)
        return 0;
    uint32_t lane = CONFIG_DATA + (offset & 3u);
    uint32_t value = 0;
    Memcpy(&value, buffer, PciWidthBytes(width));
    switch (width) {
    case PCI_WIDTH_8:
        IoWrite8(lane, value);
        break;
    case PCI_WIDTH_16:
        IoWrite16(lane, value);
        break;
    default:
        IoWrite32(CONFIG_DATA, value);
        break;
    }
    return 1;
}
