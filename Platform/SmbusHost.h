// The chipset's SMBus host controller (System Management Bus 2.0; the register block of Intel's ICH family,
// which AMD's controllers present as well).
#pragma once

#include "Base/Types.h"

constexpr uint32_t SMBUS_PAGE_BYTES = 256; // what one byte of offset reaches of a device

// Finds the host controller's I/O block and switches its I/O decoding on. 1 with *base; 0 without a
// controller.
int GetSMBusBaseAddress(uint16_t *base);

// One register of the block, after one delay unit.
void SmbusWrite8(uint16_t port, uint8_t value);
uint8_t SmbusRead8(uint16_t port);

// Read byte data and write byte data (System Management Bus 2.0, 5.5.5 and 5.5.4). slave is the 8-bit
// address, its bit 0 forced. 0, or 0x80000007 after a time-out or a device error, with *data untouched.
EFI_STATUS StandardSmbusRead(uint16_t base, uint8_t slave, uint8_t offset, uint8_t *data);
EFI_STATUS StandardSmbusWrite(uint16_t base, uint8_t slave, uint8_t offset, uint8_t data);

// Reads offsets 0 to 255 of a device into a buffer of SMBUS_PAGE_BYTES until one fails. 0, or the status of
// the read that failed.
EFI_STATUS SmbusReadPage(uint16_t base, uint8_t slave, uint8_t *buffer);
