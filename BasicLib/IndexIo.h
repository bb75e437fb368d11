// Registers behind an index port and a data port: CMOS (MC146818A), Super I/O, chipset index registers.
// Each access makes two delay writes, writes the register number to the index port (8 bits wide below
// 0x100, 16 bits below 0x10000, else 32) and reads or writes the data port.
#pragma once

#include <cstdint>

// The CMOS registers of a PC, and the bank above 7Fh.
constexpr uint16_t CMOS_INDEX = 0x70;
constexpr uint16_t CMOS_DATA = 0x71;
constexpr uint16_t CMOS_INDEX_HIGH = 0x72;

// The data port in 8, 16 or 32 bits. Ports are 16 bits wide; values are cut to the width.
uint32_t IoIndexRead8(uint32_t indexPort, uint32_t dataPort, uint32_t index);
uint32_t IoIndexRead16(uint32_t indexPort, uint32_t dataPort, uint32_t index);
uint32_t IoIndexRead32(uint32_t indexPort, uint32_t dataPort, uint32_t index);
void IoIndexWrite8(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value);
void IoIndexWrite16(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value);
void IoIndexWrite32(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value);

// Values made of consecutive byte registers, little-endian. The highest register is accessed first:
// registers that latch a wider counter rely on it.
uint32_t LegacyIoIndexRead8(uint32_t indexPort, uint32_t dataPort, uint32_t index);
uint32_t LegacyIoIndexRead16(uint32_t indexPort, uint32_t dataPort, uint32_t index);
uint32_t LegacyIoIndexRead32(uint32_t indexPort, uint32_t dataPort, uint32_t index);
void LegacyIoIndexWrite8(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value);
void LegacyIoIndexWrite16(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value);
void LegacyIoIndexWrite32(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value);
