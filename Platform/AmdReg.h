// Registers of AMD and Hygon platforms: the power-management index registers and the BIOS shadow region.
//
// No command reaches: AmdPMxRead8, AmdPMxRead32, AmdRuntimeShadowRamWrite.
#pragma once

#include <cstdint>

// Power-management registers behind the index/data ports CD6h/CD7h (AMD BKDG for family 16h models 30h-3Fh,
// 3.26.3): 1, 2 or 4 consecutive byte registers from index on.
uint8_t AmdPMxRead8(uint8_t index);
uint16_t AmdPMxRead16(uint8_t index);
uint32_t AmdPMxRead32(uint8_t index);

// Port of the PM1 event block (PMx60).
int AmdGetPMBaseAddress();

// Makes the DRAM behind 0xE0000-0xFFFFF readable and writable (enable non-zero), with the fixed-range MTRRs
// of processor 0 (AMD64 APM volume 2, 7.9), or puts the saved mapping back. A second enable saves the changed
// values; a disable without an enable writes zeros.
void AmdRuntimeShadowRamWrite(uint8_t enable);
