// Capability lists of PCI functions (PCI Local Bus 3.0, 6.7). They are firmware's and hostile: no walk takes
// more steps than a list can have entries.
//
// No command reaches: isPcieController, PcieFindCapId.
#pragma once

#include <cstdint>

// Offset of the PCI Express capability by a walk through the legacy ports, 0 without one. Pointers are used
// as they stand, reserved low bits included. With endAtNull the walk ends at a capability ID of 0.
uint16_t FindExpressCap(uint16_t bus, uint16_t dev, uint16_t fun, bool endAtNull);

// 1 when the function's capability list holds a PCI Express capability (ID 0x10), else 0.
int isPcieController(uint16_t bus, uint16_t dev, uint16_t fun);

// Offset of a capability (PCI Local Bus 3.0, 6.7) by a walk through the memory-mapped window; 0 without it.
uint16_t PcieFindCapId(uint16_t bus, uint16_t dev, uint16_t fun, uint8_t capId);
