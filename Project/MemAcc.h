// The /MEM command.
#pragma once

#include "Base/Types.h"

// Handler of /MEM: reads or writes memory or one of its bits, shows or searches it. The value read back, 0
// after a dump, the last status of a search (never 0); 0x80000002 after the help or without an access,
// 0x80000005 without a dump buffer, 0x8000000E for an "S" that is the program's own name.
uint32_t MemAccess();
