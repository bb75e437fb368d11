// Configuration mechanism #1: PCI Local Bus 3.0, 3.2.2.3.2.
#pragma once

#include "../BoardFile.h"

void PciConfigPortsReset();

// "pci-ports": the address register at 0xCF8 and the data window at 0xCFC.
void PciConfigPortsLine(BoardLine *line);
bool PciConfigPortsPresent();
