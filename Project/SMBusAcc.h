// The /SMBUS command.
#pragma once

#include "Base/Types.h"

// Handler of /SMBUS. A byte: the last one read or 0xFF; -1 for a failure and for the help.
int SMBusEntryPoint();
