// The Super I/O chip behind ports 4Eh and 4Fh: its configuration mode, in which each index is a register.
#pragma once

#include <cstdint>

constexpr uint16_t SIO_INDEX = 0x4E;
constexpr uint16_t SIO_DATA = 0x4F;
constexpr uint32_t SIO_REGISTERS = 256;

// Enters the chip's configuration mode with its key, 0xA5 twice at the index port.
void UnlockSIO();

// Leaves the configuration mode with 0xAA at the index port.
void LockSIO();

// Selects a logical device and reads configuration registers 0x00 to 0xFF into the 256-byte buffer.
void GetSIO2Buffer(uint8_t *buffer, uint8_t device);
