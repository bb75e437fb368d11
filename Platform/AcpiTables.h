// ACPI tables in physical memory (ACPI 6.4, 5.2): the root pointer, a table by its signature,
// the FADT's power-management values.
#pragma once

#include "Base/Types.h"

constexpr uint32_t ACPI_SIGNATURE_FADT = 0x50434146; // "FACP" in memory order

// What power control needs of the FADT.
struct PmAddressRecord {
    uint16_t pm1EventBlock; // PM1a event block, port
    uint16_t resetRegister; // port
    uint8_t resetValue;
};

enum AcpiSearchMode { ACPI_XSDT_THEN_RSDT = 1, ACPI_RSDT_ONLY = 2 };

// Bytes of the root pointer that are looked at: version 2 has 36, and the view of it shows 4 more.
constexpr uint32_t RSDP_SIZE = 40;

// Physical address of the root pointer: the first "RSD PTR" in 0xF0000-0xFFFFF, at any alignment, its
// checksum not tested. 0, 0x80000002 for a NULL output, 0x8000000E without one.
EFI_STATUS GetRSDPAddress(uint32_t *address);

// A heap copy of RSDP_SIZE bytes of the root pointer, which the caller frees with Free. 0, 0x80000009 without
// memory, or the status of GetRSDPAddress.
EFI_STATUS CopyRsdp(uint8_t **rsdp);

// Address of the first table with a signature (four characters in memory order). Where the root pointer holds
// the address 0 there is no XSDT or RSDT; one with a length below 36 bytes or of all ones has no entries, and
// of one with more than 64 KiB those within the 64 KiB count. 0 when found, 0x8000000E when not or for
// another mode, 0x80000009 without memory, or the root pointer's status.
EFI_STATUS FindEntryInRsdp(uint32_t mode, uint32_t signature, uint32_t *address);

// Fills the record from the FADT, each field cut to its width. 0, or the status of the search with the record
// untouched; 0x8000000E when the FADT that was found cannot be copied, 0x80000009 without memory.
EFI_STATUS AcpiGetPMAddress(PmAddressRecord *record);
