// Registers of Intel platforms: the power-management function and the BIOS shadow region.
//
// No command reaches: IntelRuntimeShadowRamWrite.
#pragma once

#include <cstdint>

// Port of the PM1 event block: ACPI base address (offset 40h) of the first function of class 0580h. -1
// without such a function.
int IntelGetPMBaseAddress();

// Makes the DRAM behind 0xE0000-0xFFFFF readable and writable (enable non-zero) with the host bridge's PAM
// registers, or puts the saved bytes back. A disable without an enable does nothing.
void IntelRuntimeShadowRamWrite(uint8_t enable);
