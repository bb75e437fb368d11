#include "BasicLib/Place.h"

#include "BasicLib/IndexIo.h"
#include "BasicLib/PciConfig.h"
#include "BasicLib/PhysMem.h"
#include "BasicLib/PortIo.h"

uint32_t WidthOfBit(uint32_t bit) {
    return bit < 8 ? 1 : bit < 16 ? 2 : bit < 32 ? 4 : 0;
}

uint32_t ReadPlace(const Place *at, uint32_t width) {
    switch (at->space) {
    case SPACE_IO:
        return width == 1 ? IoRead8(at->address) : width == 2 ? IoRead16(at->address) : IoRead32(at->address);
    case SPACE_INDEX:
        return width == 1   ? IoIndexRead8(at->address, at->dataPort, at->index)
               : width == 2 ? IoIndexRead16(at->address, at->dataPort, at->index)
                            : IoIndexRead32(at->address, at->dataPort, at->index);
    case SPACE_BYTES:
        return width == 1   ? LegacyIoIndexRead8(at->address, at->dataPort, at->index)
               : width == 2 ? LegacyIoIndexRead16(at->address, at->dataPort, at->index)
                            : LegacyIoIndexRead32(at->address, at->dataPort, at->index);
    case SPACE_MEMORY:
        return width == 1   ? MemRead8(at->address)
               : width == 2 ? MemRead16(at->address)
                            : MemRead32(at->address);
    default:
        return width == 1   ? PciRead8(at->bus, at->dev, at->fun, at->offset)
               : width == 2 ? PciRead16(at->bus, at->dev, at->fun, at->offset)
                            : PciRead32(at->bus, at->dev, at->fun, at->offset);
    }
}

static void WritePci(const Place *at, uint32_t width, uint32_t value) {
    if (width == 1)
        PciWrite8(at->bus, at->dev, at->fun, at->offset, static_cast<uint8_t>(value));
    else if (width == 2)
        PciWrite16(at->bus, at->dev, at->fun, at->offset, static_cast<uint16_t>(value));
    else
        PciWrite32(at->bus, at->dev, at->fun, at->offset, value);
}

void WritePlace(const Place *at, uint32_t width, uint32_t value) {
    switch (at->space) {
    case SPACE_IO:
        return width == 1   ? IoWrite8(at->address, value)
               : width == 2 ? IoWrite16(at->address, value)
                            : IoWrite32(at->address, value);
    case SPACE_INDEX:
        return width == 1   ? IoIndexWrite8(at->address, at->dataPort, at->index, value)
               : width == 2 ? IoIndexWrite16(at->address, at->dataPort, at->index, value)
                            : IoIndexWrite32(at->address, at->dataPort, at->index, value);
    case SPACE_BYTES:
        return width == 1   ? LegacyIoIndexWrite8(at->address, at->dataPort, at->index, value)
               : width == 2 ? LegacyIoIndexWrite16(at->address, at->dataPort, at->index, value)
                            : LegacyIoIndexWrite32(at->address, at->dataPort, at->index, value);
    case SPACE_MEMORY:
        return width == 1   ? MemWrite8(at->address, value)
               : width == 2 ? MemWrite16(at->address, value)
                            : MemWrite32(at->address, value);
    default:
        return WritePci(at, width, value);
    }
}

uint32_t ReadPlaceBit(const Place *at, uint32_t bit) {
    uint32_t width = WidthOfBit(bit);
    return width == 0 ? 0 : (ReadPlace(at, width) >> bit) & 1;
}

void WritePlaceBit(const Place *at, uint32_t bit, bool set) {
    uint32_t width = WidthOfBit(bit);
    if (width == 0)
        return;
    uint32_t mask = 1u << bit;
    uint32_t old = ReadPlace(at, width);
    WritePlace(at, width, set ? old | mask : old & ~mask);
}

uint32_t IoReadBit(uint16_t port, uint32_t bit) {
    Place at = IoPlace(port);
    return ReadPlaceBit(&at, bit);
}

void IoWriteBit(uint16_t port, uint32_t bit, uint8_t value) {
    Place at = IoPlace(port);
    WritePlaceBit(&at, bit, value != 0);
}

uint32_t IoIndexReadBit(uint16_t indexPort, uint16_t dataPort, uint32_t index, uint32_t bit) {
    Place at = IndexPlace(indexPort, dataPort, index);
    return ReadPlaceBit(&at, bit);
}

void IoIndexWriteBit(uint16_t indexPort, uint16_t dataPort, uint32_t index, uint32_t bit, uint32_t value) {
    Place at = IndexPlace(indexPort, dataPort, index);
    WritePlaceBit(&at, bit, value != 0);
}

uint32_t MemReadBit(uint32_t address, uint32_t bit) {
    Place at = MemPlace(address);
    return ReadPlaceBit(&at, bit);
}

void MemWriteBit(uint32_t address, uint32_t bit, uint8_t value) {
    Place at = MemPlace(address);
    WritePlaceBit(&at, bit, value != 0);
}

uint32_t PciReadBit(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t bit) {
    Place at = PciPlace(bus, dev, fun, offset);
    return ReadPlaceBit(&at, bit);
}

void PciWriteBit(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t bit, uint8_t value) {
    Place at = PciPlace(bus, dev, fun, offset);
    WritePlaceBit(&at, bit, value != 0);
}
