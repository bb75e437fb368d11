// A little-endian register wherever it stands, read and written in a width of 1, 2 or 4 bytes, and single
// bits of it. Which width an access has is data here; each is still one call of that width's primitive.
//
// No command reaches: IoReadBit, MemReadBit, PciReadBit, MemWriteBit, PciWriteBit.
#pragma once

#include <cstdint>

enum Space : uint8_t {
    SPACE_IO,     // at a port
    SPACE_INDEX,  // behind an index and a data port of any width
    SPACE_BYTES,  // behind such ports, where a wider value is made of consecutive byte registers
    SPACE_MEMORY, // at a physical address below 4 GiB
    SPACE_PCI,    // in the configuration space of a function
};

// Where a register is: the fields that its space uses. Numbers are as the space's primitives take them.
struct Place {
    Space space;
    uint32_t address;  // port, index port or physical address
    uint32_t dataPort; // of a pair
    uint32_t index;    // register behind a pair
    uint16_t bus, dev, fun, offset;
};

// A register at a port, behind a pair of ports, at a physical address, in configuration space. Numbers are
// taken as they are.
constexpr Place IoPlace(uint32_t port) {
    return {SPACE_IO, port, 0, 0, 0, 0, 0, 0};
}
constexpr Place IndexPlace(uint32_t indexPort, uint32_t dataPort, uint32_t index) {
    return {SPACE_INDEX, indexPort, dataPort, index, 0, 0, 0, 0};
}
constexpr Place MemPlace(uint32_t address) {
    return {SPACE_MEMORY, address, 0, 0, 0, 0, 0, 0};
}
constexpr Place PciPlace(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset) {
    return {SPACE_PCI, 0, 0, 0, bus, dev, fun, offset};
}

// One access of width bytes (1, 2, any other number is taken for 4); values are cut to the width. What a read
// gives on failure is what the space's primitive gives.
uint32_t ReadPlace(const Place *at, uint32_t width);
void WritePlace(const Place *at, uint32_t width, uint32_t value);

// Width in bytes of the access that reaches the bit, as the procedures below make it; 0 for none.
uint32_t WidthOfBit(uint32_t bit);

// Single bits. The bit number chooses the access at the register's own place: 0-7 eight bits, 8-15 sixteen,
// 16-31 thirty-two; from 32 on there is no access, reads give 0. A write reads the register, changes the bit
// and writes it back in the same width, without any check. Nothing reports a failure: where memory cannot be
// mapped bits 0-15 read 1 and bits 16-31 read 0 (the failure value of a dword has 16 bits), without the
// memory device all read 1.
uint32_t ReadPlaceBit(const Place *at, uint32_t bit);
void WritePlaceBit(const Place *at, uint32_t bit, bool set);

// The same in each space: 1 when the bit is set, else 0.
uint32_t IoReadBit(uint16_t port, uint32_t bit);
uint32_t IoIndexReadBit(uint16_t indexPort, uint16_t dataPort, uint32_t index, uint32_t bit);
uint32_t MemReadBit(uint32_t address, uint32_t bit);
uint32_t PciReadBit(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t bit);

// A value other than 0 sets the bit: of 8 bits, but 32 bits for the index/data pair.
void IoWriteBit(uint16_t port, uint32_t bit, uint8_t value);
void IoIndexWriteBit(uint16_t indexPort, uint16_t dataPort, uint32_t index, uint32_t bit, uint32_t value);
void MemWriteBit(uint32_t address, uint32_t bit, uint8_t value);
void PciWriteBit(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t bit, uint8_t value);
