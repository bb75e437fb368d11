// The /RTC, /SHUTDOWN and /TIMEOUT commands: unattended power cycling with a countdown and cycle counters.
#pragma once

#include "Base/Types.h"

// Power-off (1 or 2) or restart (4) by the operating system's shutdown command, which acts after this program
// has ended; what was printed is handed over before. 1, or 0 with nothing done for another kind.
uint32_t OsShutdown(uint32_t kind);

// Reads a counter file, 4 bytes little-endian in the current directory, and prints its count. 0 without the
// file; missing bytes count as 0.
uint32_t DisplayLogCount(const char *name);

// Writes count + 1 into a counter file, 1 after 0xFFFFFFFE, and onto the disk where the file system can. 1,
// or 0 when the 4 bytes were not written.
int RtcLogAndRtcCount(const char *name, uint32_t count);

// Counts seconds down on the CMOS clock, polling without a pause. 1 at the end, 0 when a key broke it: ESC,
// and any key as long as the end lies beyond a midnight still to come.
int TimeOut(uint32_t seconds);

// Handler of /RTC, /SHUTDOWN and /TIMEOUT. 0, 0x80000002 for the help and for a timer that is too short,
// 0x80000015 when a key broke the countdown and after every request for a restart.
EFI_STATUS RtcAndShutdownEntry();
