// Which pages of physical memory hwreg gets, and the verdict of that.
#pragma once

#include "tools/check/lines/Line.h"

// A single access at an address: it is refused with its page, or with the one behind it. True when it is.
bool JudgeAccess(Line *line, uint32_t address, AccessWidth width, uint32_t bit);

// A copy of length bytes from an address on, which ends with that status whatever it gets. Of very long
// ranges not every page is looked at. Says of single pages what is shown in their place. True when all of it
// is refused; *filler is then the byte that stands for each.
bool JudgeCopy(Line *line, uint32_t address, uint32_t length, int status, uint8_t *filler);
