// PCI configuration space. Offsets 0x00-0xFF go through the ports 0xCF8/0xCFC (PCI Local Bus 3.0,
// 3.2.2.3.2), 0x100-0xFFF through the memory-mapped window (PCI Express Base 3.0, 7.2.2), whose base comes
// from the chipset. An address is bus, device, function and offset, 16 bits each and never checked: numbers
// out of range spill into the neighbouring bits. Absent and failing look alike: all ones, but
// for a window that cannot be mapped, where the dword read gives the 0xFFFF of MemRead32.
//
// No command reaches: EfiWriteUnaligned16, EfiWriteUnaligned32, PciReadBuffer.
#pragma once

#include "BasicLib/PciPorts.h"

// The register's value; all ones for an absent function, an unknown vendor beyond 0xFF and an offset
// above 0xFFF (without any access).
uint8_t PciRead8(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset);
uint16_t PciRead16(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset);
uint32_t PciRead32(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset);

// Silently dropped where the reads give all ones.
void PciWrite8(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint8_t value);
void PciWrite16(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint16_t value);
void PciWrite32(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t value);

// Stores the value at a place of any alignment and returns it. A NULL place prints an assertion and
// nothing is stored.
uint16_t EfiWriteUnaligned16(void *buffer, uint16_t value);
uint32_t EfiWriteUnaligned32(void *buffer, uint32_t value);

// Reads size bytes from start on with the widest naturally aligned accesses, and returns size. A range
// beyond 0x1000 and a NULL buffer print an assertion and the reads are still made.
uint64_t PciReadBuffer(uint16_t bus, uint16_t dev, uint16_t fun, uint64_t start, uint64_t size, void *buffer);
