// The configuration space of every PCI function.
#pragma once

#include <cstdint>

// Puts the functions of all buses, with what --smn asks for behind the host bridge, and where the
// memory-mapped window is. What stands in the place of a window that is none becomes parts of memory
// (Parts.h).
void CapturePci();

// True once CapturePci has met an SMBus host.
bool HasSmbusHost();

// Puts the start of the page in which the window has each function that is there, one after the other: the
// first one from bus, device, function number on in 0xBBDF form; false without one.
bool NextWindowPage(uint32_t *number, uint32_t *page);
