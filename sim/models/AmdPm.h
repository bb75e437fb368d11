// The power-management registers of AMD's and Hygon's southbridges: 256 bytes behind the index port CD6h and
// the data port CD7h. They say, among other things, where the PM1 event block (60h) and the SMBus controller
// (00h and 01h) are.
#pragma once

#include "../BoardFile.h"

void AmdPmReset();
// Fails unless a "pm-registers" line came before.
void NeedAmdPm(const BoardLine *line);

// "pm-registers": the ports; all registers are 0.
void AmdPmLine(BoardLine *line);

// "pm-bytes INDEX BYTE...": contents.
void AmdPmBytesLine(BoardLine *line);

uint8_t AmdPmRegister(uint8_t index);

// Calls the procedure after each change of a register, for a device that is placed by them.
void AmdPmFollow(void (*changed)(void *device), void *device);
// Calls them all: the registers have become others.
void AmdPmPlaceDevices();
