// Commands run through the shell.
//
// No command reaches: ExecuteWithSystem32.
#pragma once

#include "Base/Types.h"

// Clears the screen with the shell command "clear".
void ClearScreen();

// Runs a shell command; its result is ignored.
void ExecuteSystemCmd(const char *command);

// There is no such shell on this platform: runs nothing, always 0x80000003.
EFI_STATUS ExecuteWithSystem32(const char *command);
