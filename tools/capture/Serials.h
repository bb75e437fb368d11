// What --no-serials takes out: serial numbers, UUIDs, asset tags and MAC addresses. Fixed values of the same
// length stand in their place, and checksums are right afterwards where they were before.
#pragma once

#include <cstdint>

// In 4096 bytes of configuration space: the device serial number capability (PCI Express Base 3.0, 7.12).
void HidePciSerial(uint8_t *config);

// In the bytes of a memory module (JESD21-C, annexes E, J, K and L).
void HideModuleSerial(uint8_t *bytes, uint32_t length);

// In all parts of memory (Parts.h): SMBIOS structures, ACPI tables, and wherever else the same values stand.
void HideMemorySerials();
