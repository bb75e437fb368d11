// Registers of AMD's system management network and the SMU's mailbox, on the first generation of family 17h
// and on Hygon's family 18h.
#pragma once

#include "Base/Types.h"

constexpr uint32_t SMU_ARGUMENTS = 6;

// 0 on a chipset and processor that these commands serve, else 0x8000000F.
EFI_STATUS InitSmuService();

// One SMN register of a die through the host bridge's offsets C0h (die), C4h (address) and C8h (data); the
// die is set back to 0. width is a PciWidth code, and the buffer has that size. 0, or 0x80000002 for another
// width.
EFI_STATUS AmdSmnRegisterRead(uint8_t width, uint32_t die, uint32_t reg, void *out);
EFI_STATUS AmdSmnRegisterWrite(uint8_t width, uint32_t die, uint32_t reg, const void *in);

// A 32-bit SMN register through the host bridge's index/data pair B8h/BCh; reads clear the address's low two
// bits.
void SmuRegisterRead(uint16_t bus, uint32_t smnAddress, uint32_t *out);
void SmuRegisterWrite(uint16_t bus, uint32_t smnAddress, const uint32_t *in);

// Sends one message to the SMU and waits for ever for the answer, which is returned; args receives the values
// read back. The reserved identifier 0xFF is not sent and gives 1. An answer of 0xFC is fatal: its assertion
// is printed without end.
uint32_t NbioSmuServiceRequestV9(uint32_t requestId, uint32_t args[SMU_ARGUMENTS]);
