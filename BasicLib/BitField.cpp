#include "BasicLib/BitField.h"

#include "BasicLib/IndexIo.h"
#include "BasicLib/PciConfig.h"
#include "BasicLib/PhysMem.h"
#include "BasicLib/PortIo.h"

enum Space { SPACE_IO, SPACE_INDEX, SPACE_MEMORY, SPACE_PCI };

// Where a register is: the fields that its space uses.
struct Place {
    Space space;
    uint32_t port;  // port or index port
    uint32_t data;  // data port
    uint32_t index; // register behind the index port, or memory address
    uint16_t bus, dev, fun, offset;
};

// Width in bytes of the access that reaches the bit; 0 for none.
static unsigned WidthOfBit(uint32_t bit) {
    return bit < 8 ? 1 : bit < 16 ? 2 : bit < 32 ? 4 : 0;
}

static uint32_t ReadPlace(const Place *at, unsigned width) {
    switch (at->space) {
    case SPACE_IO:
        return width == 1 ? IoRead8(at->port) : width == 2 ? IoRead16(at->port) : IoRead32(at->port);
    case SPACE_INDEX:
        return width == 1   ? IoIndexRead8(at->port, at->data, at->index)
               : width == 2 ? IoIndexRead16(at->port, at->data, at->index)
                            : IoIndexRead32(at->port, at->data, at->index);
    case SPACE_MEMORY:
        return width == 1 ? MemRead8(at->index) : width == 2 ? MemRead16(at->index) : MemRead32(at->index);
    default:
        return width == 1   ? PciRead8(at->bus, at->dev, at->fun, at->offset)
               : width == 2 ? PciRead16(at->bus, at->dev, at->fun, at->offset)
                            : PciRead32(at->bus, at->dev, at->fun, at->offset);
    }
}

static void WritePlace8(const Place *at, uint32_t value) {
    switch (at->space) {
    case SPACE_IO:
        IoWrite8(at->port, value);
        break;
    case SPACE_INDEX:
        IoIndexWrite8(at->port, at->data, at->index, value);
        break;
    case SPACE_MEMORY:
        MemWrite8(at->index, value);
        break;
    default:
        PciWrite8(at->bus, at->dev, at->fun, at->offset, static_cast<uint8_t>(value));
        break;
    }
}

static void WritePlace16(const Place *at, uint32_t value) {
    switch (at->space) {
    case SPACE_IO:
        IoWrite16(at->port, value);
        break;
    case SPACE_INDEX:
        IoIndexWrite16(at->port, at->data, at->index, value);
        break;
    case SPACE_MEMORY:
        MemWrite16(at->index, value);
        break;
    default:
        PciWrite16(at->bus, at->dev, at->fun, at->offset, static_cast<uint16_t>(value));
        break;
    }
}

static void WritePlace32(const Place *at, uint32_t value) {
    switch (at->space) {
    case SPACE_IO:
        IoWrite32(at->port, value);
        break;
    case SPACE_INDEX:
        IoIndexWrite32(at->port, at->data, at->index, value);
        break;
    case SPACE_MEMORY:
        MemWrite32(at->index, value);
        break;
    default:
        PciWrite32(at->bus, at->dev, at->fun, at->offset, value);
        break;
    }
}

static uint32_t ReadBit(const Place *at, uint32_t bit) {
    unsigned width = WidthOfBit(bit);
    if (width == 0)
        return 0;
    return (ReadPlace(at, width) >> bit) & 1;
}

static void WriteBit(const Place *at, uint32_t bit, bool set) {
    unsigned width = WidthOfBit(bit);
    if (width == 0)
        return;
    uint32_t mask = 1u << bit;
    uint32_t old = ReadPlace(at, width);
    uint32_t value = set ? old | mask : old & ~mask;
    if (width == 1)
        WritePlace8(at, value);
    else if (width == 2)
        WritePlace16(at, value);
    else
        WritePlace32(at, value);
}

static Place IoPlace(uint16_t port) {
    return Place{SPACE_IO, port, 0, 0, 0, 0, 0, 0};
}

static Place IndexPlace(uint16_t indexPort, uint16_t dataPort, uint32_t index) {
    return Place{SPACE_INDEX, indexPort, dataPort, index, 0, 0, 0, 0};
}

static Place MemPlace(uint32_t address) {
    return Place{SPACE_MEMORY, 0, 0, address, 0, 0, 0, 0};
}

static Place PciPlace(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset) {
    return Place{SPACE_PCI, 0, 0, 0, bus, dev, fun, offset};
}

uint32_t IoReadBit(uint16_t port, uint32_t bit) {
    Place at = IoPlace(port);
    return ReadBit(&at, bit);
}

void IoWriteBit(uint16_t port, uint32_t bit, uint8_t value) {
    Place at = IoPlace(port);
    WriteBit(&at, bit, value != 0);
}

uint32_t IoIndexReadBit(uint16_t indexPort, uint16_t dataPort, uint32_t index, uint32_t bit) {
    Place at = IndexPlace(indexPort, dataPort, index);
    return ReadBit(&at, bit);
}

void IoIndexWriteBit(uint16_t indexPort, uint16_t dataPort, uint32_t index, uint32_t bit, uint32_t value) {
    Place at = IndexPlace(indexPort, dataPort, index);
    WriteBit(&at, bit, value != 0);
}

uint32_t MemReadBit(uint32_t address, uint32_t bit) {
    Place at = MemPlace(address);
    return ReadBit(&at, bit);
}

void MemWriteBit(uint32_t address, uint32_t bit, uint8_t value) {
    Place at = MemPlace(address);
    WriteBit(&at, bit, value != 0);
}

uint32_t PciReadBit(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t bit) {
    Place at = PciPlace(bus, dev, fun, offset);
    return ReadBit(&at, bit);
}

void PciWriteBit(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t bit, uint8_t value) {
    Place at = PciPlace(bus, dev, fun, offset);
    WriteBit(&at, bit, value != 0);
}
