// The PM1 register block of ACPI platforms: status, enable and control, 16 bits each, in a row of ports.
#pragma once

#include "../BoardFile.h"

void Pm1Reset();

// "pm1 PORT [STATUS ENABLE CONTROL]": the block, with these contents (0 without them), in place of an earlier
// one. The clock's alarm interrupt reaches the status register (RTC_STS).
void Pm1Line(BoardLine *line);
