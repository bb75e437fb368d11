#include "PciConfigPorts.h"

#include "../Arena.h"
#include "../Ports.h"
#include "PciFunction.h"

namespace {

constexpr uint16_t CONFIG_ADDRESS = 0xCF8;
constexpr uint16_t CONFIG_DATA = 0xCFC;
constexpr uint32_t ADDRESS_ENABLE = 0x80000000;
// Bits 30:24 are reserved; bits 1:0 do not exist, for the byte lanes come from the data port.
constexpr uint32_t ADDRESS_BITS = 0x80FFFFFC;

bool gPresent;

uint32_t ReadAddress(void *device, uint16_t, unsigned) {
    return *static_cast<uint32_t *>(device);
}

void WriteAddress(void *device, uint16_t, unsigned, uint32_t value) {
    *static_cast<uint32_t *>(device) = value & ADDRESS_BITS;
}

uint16_t Function(uint32_t address) {
    return static_cast<uint16_t>(address >> 8);
}

uint16_t Register(uint32_t address, uint16_t port) {
    return static_cast<uint16_t>((address & 0xFC) + (port - CONFIG_DATA));
}

uint32_t ReadData(void *device, uint16_t port, unsigned width) {
    uint32_t address = *static_cast<uint32_t *>(device);
    if (!(address & ADDRESS_ENABLE))
        return 0xFFFFFFFF;
    return PciConfigRead(Function(address), Register(address, port), width);
}

void WriteData(void *device, uint16_t port, unsigned width, uint32_t value) {
    uint32_t address = *static_cast<uint32_t *>(device);
    if (address & ADDRESS_ENABLE)
        PciConfigWrite(Function(address), Register(address, port), width, value);
}

} // namespace

void PciConfigPortsReset() {
    gPresent = false;
}

bool PciConfigPortsPresent() {
    return gPresent;
}

void PciConfigPortsLine(BoardLine *) {
    gPresent = true;
    void *address = ArenaTakeRegisters(sizeof(uint32_t));
    // Only a dword access reaches the address register; a narrower one belongs to whoever has the port.
    ClaimPorts(CONFIG_ADDRESS, 4, WIDTH_32, ReadAddress, WriteAddress, address);
    ClaimPorts(CONFIG_DATA, 4, WIDTH_ANY, ReadData, WriteData, address);
}
