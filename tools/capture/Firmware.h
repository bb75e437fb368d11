// What firmware leaves in memory: the BIOS area, SMBIOS, ACPI, and the system table file.
#pragma once

#include <cstdint>

// Reads it all into parts (Parts.h) and puts the lines of the system table file.
void ReadFirmware();

// The SMBIOS tables that were read, for what goes through them: address and length. count below
// SmbiosCount().
struct SmbiosRange {
    uint32_t address;
    uint32_t length;
};
uint32_t SmbiosCount();
SmbiosRange SmbiosAt(uint32_t count);
