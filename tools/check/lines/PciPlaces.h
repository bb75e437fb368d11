// Which register an address of configuration space leads to, whatever was typed.
#pragma once

#include <cstdint>

#include "tools/check/lines/Line.h"
#include "tools/check/machine/PciList.h"

// An address as the command takes it: no number is checked, and what is too large spills into its neighbour.
struct PciTyped {
    uint16_t bus, dev, fun, offset;
};

// Where the access arrives.
struct PciReached {
    uint32_t bus; // above 255: nowhere, there is no such bus
    uint16_t dev, fun;
};

// Through the ports and through the window alike: the fields of the address stand in the same order.
PciReached ReachedBy(PciTyped typed);

// True when that is another function than the numbers say.
bool IsSpilled(PciTyped typed, PciReached reached);

// A caution where the kernel tells nothing of the PCI functions, and so of the chipset. True then.
bool CautionOfNoList(Line *line);

// What the kernel knows of a function; NULL when it knows none there.
const PciFunction *KnownFunction(PciReached reached);

// True when the function's capabilities are known and PCI Express is not among them.
bool IsConventional(PciReached reached);
