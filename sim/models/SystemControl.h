// Port 61h, the NMI status and control register of a PC.
#pragma once

#include "../BoardFile.h"

// "system-control": the port, all writable bits clear.
void SystemControlLine(BoardLine *line);
