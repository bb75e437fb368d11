// The /IO command.
#pragma once

#include <cstdint>

// Handler of /IO: reads or writes a port or one of its bits, or shows the port space. The value read back,
// 0 after a dump, or an error status.
uint32_t IoAccess();
