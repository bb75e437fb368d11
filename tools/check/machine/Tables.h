// Firmware's tables: whether the commands find them, and find the right ones.
#pragma once

#include <cstdint>

#include "tools/check/machine/Smbios.h"

// Looks where the commands look, and notes what is there; and of which kind the machine's memory modules are.
void FindTables();

// What FindTables has found of the SMBIOS table and of the ACPI root pointer.
TableState SmbiosState();
TableState RsdpState();

enum SpdState : uint8_t {
    SPD_WHOLE,  // hwreg reads all of the modules' bytes
    SPD_FIRST,  // of those at A0h to AAh; of the others the first 256
    SPD_PARTLY, // their first 256 bytes, or what their hub shows in their place
    SPD_UNKNOWN,
};

// What it has found of the memory modules.
SpdState SpdOfMemory();
