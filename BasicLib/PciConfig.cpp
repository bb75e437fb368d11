#include "BasicLib/PciConfig.h"

#include "Base/Memory.h"
#include "BasicLib/PciWindow.h"
#include "BasicLib/PhysMem.h"
#include "Common/Sprint.h"

// Physical address of a register in the window. False for one that is not there.
static bool WindowAddress(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t *address) {
    uint32_t base;
    if (offset >= PCI_EXTENDED_BYTES || !GetPcieBaseAddress(&base))
        return false;
    *address = MemPciBase(bus, dev, fun) + offset;
    return true;
}

// The extended registers have procedures of their own (noinline), and the others take in what they call
// (flatten): a scan reads these by the thousand, and each read is a few instructions beside its port
// accesses.
__attribute__((noinline)) static uint32_t ReadWindow(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun,
                                                     uint16_t offset) {
    uint32_t address;
    if (!WindowAddress(bus, dev, fun, offset, &address))
        return 0xFFFFFFFF;
    return width == PCI_WIDTH_8    ? MemRead8(address)
           : width == PCI_WIDTH_16 ? MemRead16(address)
                                   : MemRead32(address);
}

__attribute__((noinline)) static void WriteWindow(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun,
                                                  uint16_t offset, uint32_t value) {
    uint32_t address;
    if (!WindowAddress(bus, dev, fun, offset, &address))
        return;
    return width == PCI_WIDTH_8    ? MemWrite8(address, value)
           : width == PCI_WIDTH_16 ? MemWrite16(address, value)
                                   : MemWrite32(address, value);
}

__attribute__((flatten)) static uint32_t PciRead(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun,
                                                 uint16_t offset) {
    if (offset >= PCI_CONFIG_BYTES)
        return ReadWindow(width, bus, dev, fun, offset);
    uint32_t value = 0xFFFFFFFF;
    LegacyIoPciRead(width, bus, dev, fun, offset, reinterpret_cast<uint8_t *>(&value));
    return value;
}

static void PciWrite(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset,
                     uint32_t value) {
    if (offset >= PCI_CONFIG_BYTES)
        WriteWindow(width, bus, dev, fun, offset, value);
    else
        LegacyIoPciWrite(width, bus, dev, fun, offset, reinterpret_cast<const uint8_t *>(&value));
}

uint8_t PciRead8(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset) {
    return static_cast<uint8_t>(PciRead(PCI_WIDTH_8, bus, dev, fun, offset));
}

uint16_t PciRead16(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset) {
    return static_cast<uint16_t>(PciRead(PCI_WIDTH_16, bus, dev, fun, offset));
}

uint32_t PciRead32(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset) {
    return PciRead(PCI_WIDTH_32, bus, dev, fun, offset);
}

void PciWrite8(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint8_t value) {
    PciWrite(PCI_WIDTH_8, bus, dev, fun, offset, value);
}

void PciWrite16(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint16_t value) {
    PciWrite(PCI_WIDTH_16, bus, dev, fun, offset, value);
}

void PciWrite32(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t value) {
    PciWrite(PCI_WIDTH_32, bus, dev, fun, offset, value);
}

static uint32_t WriteUnaligned(void *buffer, uint32_t value, size_t size, unsigned line) {
    if (buffer == nullptr)
        PrintAssert(BASIC_LIB_SOURCE, line, "Buffer != NULL");
    else
        Memcpy(buffer, &value, size);
    return value;
}

uint16_t EfiWriteUnaligned16(void *buffer, uint16_t value) {
    return static_cast<uint16_t>(WriteUnaligned(buffer, value, sizeof(value), 1096));
}

uint32_t EfiWriteUnaligned32(void *buffer, uint32_t value) {
    return WriteUnaligned(buffer, value, sizeof(value), 1111);
}

// A range of configuration space being read into a buffer; out is NULL when the caller gave none.
struct PciCursor {
    uint16_t bus, dev, fun;
    uint64_t offset;
    uint64_t left;
    uint8_t *out;
};

static void ReadStep(PciCursor *at, uint8_t width) {
    uint16_t offset = static_cast<uint16_t>(at->offset);
    uint32_t value = PciRead(width, at->bus, at->dev, at->fun, offset);
    uint32_t bytes = PciWidthBytes(width);
    if (at->out != nullptr) {
        if (width == PCI_WIDTH_8)
            *at->out = static_cast<uint8_t>(value);
        else if (width == PCI_WIDTH_16)
            EfiWriteUnaligned16(at->out, static_cast<uint16_t>(value));
        else
            EfiWriteUnaligned32(at->out, value);
        at->out += bytes;
    }
    at->offset += bytes;
    at->left -= bytes;
}

uint64_t PciReadBuffer(uint16_t bus, uint16_t dev, uint16_t fun, uint64_t start, uint64_t size,
                       void *buffer) {
    if (size > PCI_EXTENDED_BYTES - (start % PCI_EXTENDED_BYTES))
        PrintAssert(BASIC_LIB_SOURCE, 1132, "((StartAddress & 0xFFF) + Size) <= 0x1000");
    if (size == 0)
        return 0;
    if (buffer == nullptr)
        PrintAssert(BASIC_LIB_SOURCE, 1138, "Buffer != NULL");

    PciCursor at = {bus, dev, fun, start, size, static_cast<uint8_t *>(buffer)};
    if ((at.offset & 1) != 0)
        ReadStep(&at, PCI_WIDTH_8);
    if (at.left > 1 && (at.offset & 2) != 0)
        ReadStep(&at, PCI_WIDTH_16);
    while (at.left > 3)
        ReadStep(&at, PCI_WIDTH_32);
    if (at.left > 1)
        ReadStep(&at, PCI_WIDTH_16);
    if (at.left > 0)
        ReadStep(&at, PCI_WIDTH_8);
    return size;
}
