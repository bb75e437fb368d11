// The /IO /INDEX command: registers behind an index/data port pair.
#pragma once

#include <cstdint>

// Handler of /IO /INDEX: reads or writes a register or one of its bits, or shows registers 0 to 255. The
// value read back, 0 after a dump; 0x80000002 without an access, 0x80000005 without a dump buffer.
uint32_t IoIndexAccess();
