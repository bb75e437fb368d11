// Where the platform's power management is (ACPI 6.4, 4.8.3): PM1 event block, reset register; and power-off
// or reset by them.
//
// No command reaches: ForcedShutdownByPMIO.
#pragma once

#include "Platform/AcpiTables.h"

// The record of this process; a field of 0 is not known yet. Written by GetPMBaseAddress alone.
extern PmAddressRecord PmAddress;

// Selectors of GetPMBaseAddress.
enum PmField { PM_EVENT_BLOCK = 0, PM_RESET_REGISTER = 1, PM_RESET_VALUE = 2 };

// One field: the PM1 event block's port, the reset register's port, the reset value; -1 for another selector.
// They come from the FADT, or without one from the chipset, with 0x06 to port CF9h for a reset.
int GetPMBaseAddress(int which);

// The PM1 event block's port from chipset registers: 0x1800, after a message, on an Intel platform that hides
// it, 0xFFFF for another vendor.
uint16_t GetPMBaseAddressByPmio();

// What a shutdown is asked to do; other numbers ask for nothing.
enum ShutdownKind : uint32_t {
    SHUTDOWN_POWER_OFF = 1,
    SHUTDOWN_POWER_OFF_TOO = 2, // by the operating system alone
    SHUTDOWN_RESTART = 4,
    SHUTDOWN_GLOBAL_RESET = 5, // by a register write alone
};

// Power-off (1), reset (4) or global reset (5) by a register write. 1, or 0 for another kind. The hardware's
// alternative to the operating system's shutdown; no command uses it.
int ForcedShutdownByPMIO(uint32_t kind);
