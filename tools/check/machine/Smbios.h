// The SMBIOS table as the commands find it, beside the one that the kernel has found.
#pragma once

#include "Platform/SmbiosTable.h"

enum TableState : uint8_t {
    TABLE_RIGHT,
    TABLE_WRONG,   // the commands take something else for it
    TABLE_NONE,    // it is not where they look
    TABLE_REFUSED, // memory that they need is not granted
    TABLE_UNKNOWN, // it cannot be told
};

// Looks at it; why it is not right in *why, which may be "".
TableState FindSmbios(const char **why);

// Where the commands take the table from; length 0 without one.
uint32_t SmbiosAddress();

// The kernel's copy of the table, or the one in memory where the kernel has none and that is right. Begins at
// NULL without one.
SmbiosTable SmbiosOfMachine();
