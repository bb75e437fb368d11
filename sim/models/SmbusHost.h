// The SMBus host controller of Intel's chipsets, which AMD's copy.
#pragma once

#include "../BoardFile.h"

struct PciFunction;

struct SmbusHostPlace {
    LinePlace place;
    const PciFunction *function; // null for "pm"
};

void SmbusHostsReset();
// The hosts that the board file made.
const SmbusHostPlace *SmbusHosts(int *count);

// "smbus-host pci [US]": the host of the PCI function above, at its base address register 4 (offset 20h),
// answering while bit 0 of the command register and bit 0 of the host configuration (offset 40h) are set.
// Stated again after lines that change these registers. "smbus-host pm [US]": the host whose ports are placed
// by power-management register 01h and switched on by bit 4 of register 00h. A transaction takes that many
// microseconds, 5 unless given.
void SmbusHostLine(BoardLine *line);
