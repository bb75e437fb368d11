// The ACPI tables (ACPI 6.4, 5.2): every one that the root pointer leads to, below 4 GiB.
#pragma once

#include <cstdint>

// Adds the table tree of a root pointer at that address; what was added before is not added again. Of one
// without an XSDT (revision 0) the commands take one all the same, when they have found it by their search.
void AddAcpi(uint32_t rootPointer, bool searched);

// Port of the PM1 event block as the first FADT that was added has it; 0 without one.
uint16_t Pm1OfTables();

// Addresses of the tables that were added, all of whose bytes one part holds. count below AcpiTableCount().
struct AcpiTable {
    uint32_t address;
    uint32_t signature;
    uint32_t length;
    bool sound; // its bytes add up to 0
};
uint32_t AcpiTableCount();
const AcpiTable *AcpiTableAt(uint32_t count);

// Last bus of the configuration window at a base, as the table MCFG has it; -1 when it has none.
int LastWindowBus(uint32_t base);
