#include "Ecam.h"

#include "../Arena.h"
#include "../Memory.h"
#include "PciFunction.h"

namespace {

uint32_t ReadWindow(void *device, uint64_t address, unsigned width) {
    uint64_t offset = address - *static_cast<uint64_t *>(device);
    return PciWindowRead(static_cast<uint16_t>(offset >> 12), offset & 0xFFF, width);
}

void WriteWindow(void *device, uint64_t address, unsigned width, uint32_t value) {
    uint64_t offset = address - *static_cast<uint64_t *>(device);
    PciConfigWrite(static_cast<uint16_t>(offset >> 12), offset & 0xFFF, width, value);
}

} // namespace

void EcamLine(BoardLine *line) {
    uint64_t *base = static_cast<uint64_t *>(ArenaTake(sizeof(uint64_t)));
    *base = LineNumber(line, 1, UINT32_MAX);
    ClaimMemory(*base, LineNumber(line, 2, 0x100) << 20, ReadWindow, WriteWindow, base);
}
