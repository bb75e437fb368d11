// Physical memory through /dev/mem, and what refuses it.
#pragma once

#include "tools/check/machine/Note.h"

// Opens the device as hwreg does; notes what refuses it, or pages of it.
void FindMemoryDoor();

// 0, or the error number of opening /dev/mem as hwreg does. It is told also where hwreg itself comes no
// further than iopl(3).
int MemoryError();

// 0, or the error number of mapping the page of an address as hwreg does. A single access maps two pages, its
// own and the next one; copies map one at a time.
int PageError(uint32_t address);

// Which finding explains that error number for that page.
FindingName ReasonOfPage(uint32_t address, int error);

// What to do about a page that is refused for that reason.
const char *RemedyOfPage(FindingName reason);
