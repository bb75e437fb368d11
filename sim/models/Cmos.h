// The real-time clock and the battery-backed memory of a PC: an MC146818A behind ports 70h and 71h, with 128
// more bytes of memory behind 72h and 73h as in Intel's and AMD's chipsets.
#pragma once

#include "../BoardFile.h"

void CmosReset();

// "cmos": the clock, set to 2000-01-01 00:00:00 in BCD and 24 hours; the memory is zero.
void CmosLine(BoardLine *line);

// Lets the time pass for the clock, if there is one. True when its alarm interrupt has come since this was
// asked before.
bool CmosTakeAlarm();

// "cmos-bytes INDEX BYTE...": contents; indexes from 80h on are those of the second bank.
void CmosBytesLine(BoardLine *line);

// "cmos-time YYYY-MM-DD HH:MM:SS": sets the clock, in the form that register B asks for. It stands still
// unless a line "cmos-run" starts it.
void CmosTimeLine(BoardLine *line);

// "cmos-run delays|real [FACTOR]": the clock runs with the board's delays or with the host's time, FACTOR
// times as fast.
void CmosRunLine(BoardLine *line);

// "cmos-stop": the clock stands still.
void CmosStopLine(BoardLine *line);

// "cmos-stuck [POLLS]": register A announces an update in its next so many reads, or for ever.
void CmosStuckLine(BoardLine *line);
