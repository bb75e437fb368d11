// The /SIO command.
#pragma once

#include "Base/Types.h"

// Handler of /SIO. 0 whatever was read or written, 0x80000002 after the help, 0x80000005 without a dump
// buffer; the chip is locked again on every way out.
EFI_STATUS SioListReg();
