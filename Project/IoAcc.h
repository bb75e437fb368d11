// The /IO command.
#pragma once

#include <cstdint>

// Handler of /IO: reads or writes a port or one of its bits, or shows the port space. The value read back,
// 0 after a dump; 0x80000002 after the help or without an access, 0x80000005 without a dump buffer.
uint32_t IoAccess();
