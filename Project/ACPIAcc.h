// The /ACPI command.
#pragma once

#include "Base/Types.h"

// Handler of /ACPI: shows the root pointer in the hex view. 0, 0x80000002 after the help, 0x8000000E without
// a root pointer, 0x80000009 without memory.
EFI_STATUS AcpiEntry();
