// Where the memory-mapped window of PCI configuration space stands (PCI Express Base 3.0, 7.2.2).
#pragma once

#include <cstdint>

// Base of the window: 0xFFFFFFFF until a lookup succeeds.
extern uint32_t tempPcieBaseAddr;

// Base of the memory-mapped window, below 4 GiB and 1 MiB aligned: Intel's PCIEXBAR (host bridge offset
// 60h), AMD's and Hygon's MSR C001_0058h. Trusted whether or not the window is enabled; an MSR that cannot be
// read gives a base of 0, and extended offsets then reach low memory. 1, or 0 for an unknown vendor with
// *base untouched.
int GetPcieBaseAddress(uint32_t *base);

// Address of the function's 4 KiB page in the window; for an unknown vendor with a base of 0.
uint32_t MemPciBase(uint16_t bus, uint16_t dev, uint16_t fun);
