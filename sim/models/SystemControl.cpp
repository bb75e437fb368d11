// Intel 300 series chipset data sheet, volume 2, "NMI Status and Control" (61h): bits 0 to 3 can be written,
// bit 4 is the refresh cycle toggle, the rest is read-only. Here the toggle changes with each read, not with
// time.
#include "SystemControl.h"

#include "../Arena.h"
#include "../Ports.h"

namespace {

constexpr uint16_t PORT = 0x61;
constexpr uint8_t WRITABLE = 0x0F;
constexpr uint8_t REFRESH_TOGGLE = 0x10;

uint32_t Read(void *device, uint16_t, unsigned) {
    uint8_t *value = static_cast<uint8_t *>(device);
    *value ^= REFRESH_TOGGLE;
    return *value;
}

void Write(void *device, uint16_t, unsigned, uint32_t value) {
    uint8_t *stored = static_cast<uint8_t *>(device);
    *stored = static_cast<uint8_t>((*stored & ~WRITABLE) | (value & WRITABLE));
}

} // namespace

void SystemControlLine(BoardLine *) {
    ClaimPorts(PORT, 1, WIDTH_8, Read, Write, ArenaTakeRegisters(1));
}
