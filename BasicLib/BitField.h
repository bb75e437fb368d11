// Single bits of a little-endian register. The bit number chooses the access at the register's own place:
// 0-7 eight bits, 8-15 sixteen, 16-31 thirty-two; from 32 on there is no access, reads give 0. A write
// reads the register, changes the bit and writes it back in the same width, without any check.
// Nothing reports a failure: where memory cannot be mapped bits 0-15 read 1 and bits 16-31 read 0 (the
// failure value of a dword has 16 bits), without the memory device all read 1.
#pragma once

#include <cstdint>

// 1 when the bit is set, else 0.
uint32_t IoReadBit(uint16_t port, uint32_t bit);
uint32_t IoIndexReadBit(uint16_t indexPort, uint16_t dataPort, uint32_t index, uint32_t bit);
uint32_t MemReadBit(uint32_t address, uint32_t bit);
uint32_t PciReadBit(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t bit);

// A value other than 0 sets the bit: of 8 bits, but 32 bits for the index/data pair.
void IoWriteBit(uint16_t port, uint32_t bit, uint8_t value);
void IoIndexWriteBit(uint16_t indexPort, uint16_t dataPort, uint32_t index, uint32_t bit, uint32_t value);
void MemWriteBit(uint32_t address, uint32_t bit, uint8_t value);
void PciWriteBit(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t bit, uint8_t value);
