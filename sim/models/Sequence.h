// A register whose answers are listed: for faults that no device model has.
#pragma once

#include "../BoardFile.h"

// "sequence ADDRESS VALUE...": the dword at ADDRESS, in front of the device that is there, reads these values
// one after the other, the last again and again. What is written to it is lost.
void SequenceLine(BoardLine *line);
