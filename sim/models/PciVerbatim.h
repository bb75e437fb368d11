// A function's configuration space byte by byte, as it was read on a machine.
#pragma once

#include "../BoardFile.h"

// "config OFFSET BYTE...": bytes of the function above. Any at 100h or above gives it 4096 bytes. What can be
// written in its header follows from the header's layout; base address registers keep their value.
void PciConfigLine(BoardLine *line);

// "window OFFSET BYTE...": what the configuration window shows there, whatever is written, while the ports
// show what "config" says.
void PciWindowLine(BoardLine *line);
