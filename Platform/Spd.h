// Serial presence detect of DDR4 modules (JESD21-C annex L, EE1004-v).
#pragma once

#include "Base/Types.h"

constexpr uint16_t DDR4_SPD_BYTES = 512;

// Both 256-byte pages of a DDR4 module's SPD into a buffer of 512 bytes; size is not looked at. 0, or the
// status of the read that failed. Page 0 is selected last on every way out that has switched to page 1.
EFI_STATUS GetDDR4Spd(uint16_t base, uint8_t slave, uint8_t *buffer, uint16_t size);

// 1 when the address, bit 0 aside, is one of the memory modules', else 0.
int IsSpdAddress(uint8_t slave);
