// The /SMBUS command: the chipset's SMBus host controller (System Management Bus 2.0; the register block of
// Intel's ICH family, which AMD's controllers present as well) and DDR4 SPD (JESD21-C annex L, EE1004-v).
#pragma once

#include "Base/Types.h"

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

// Both 256-byte pages of a DDR4 module's SPD into a buffer of 512 bytes; size is not looked at. 0, or the
// status of the read that failed. Page 0 is selected last on every way out that has switched to page 1.
EFI_STATUS GetDDR4Spd(uint16_t base, uint8_t slave, uint8_t *buffer, uint16_t size);

// 1 when the address, bit 0 aside, is one of the memory modules', else 0.
int IsSpdAddress(uint8_t slave);

// Handler of /SMBUS. A byte: the last one read or 0xFF; -1 for a failure and for the help.
int SMBusEntryPoint();
