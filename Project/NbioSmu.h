// The /SMN and /SMU commands.
#pragma once

#include "Base/Types.h"

// Handler of /SMN and /SMU; /SMN wins. The value read, 0, or an error status.
EFI_STATUS NbioEntry();
