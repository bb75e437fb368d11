// The /SMN and /SMU commands.
#pragma once

#include "Base/Types.h"

// Handler of /SMN and /SMU; /SMN wins. The value read, 0 without an access and after a message to the SMU;
// 0x80000002 after the help and for a die above 16, 0x8000000F on a chipset or processor without them.
EFI_STATUS NbioEntry();
