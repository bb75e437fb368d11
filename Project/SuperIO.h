// The /SIO command: configuration registers of the Super I/O chip behind ports 4Eh and 4Fh.
#pragma once

#include "Base/Types.h"

// Enters the chip's configuration mode with its key, 0xA5 twice at the index port.
void UnlockSIO();

// Leaves the configuration mode with 0xAA at the index port.
void LockSIO();

// Selects a logical device and reads configuration registers 0x00 to 0xFF into the 256-byte buffer.
void GetSIO2Buffer(uint8_t *buffer, uint8_t device);

// Handler of /SIO. 0 whatever was read or written, 0x80000002 after the help, 0x80000005 without a dump
// buffer; the chip is locked again on every way out.
EFI_STATUS SioListReg();
