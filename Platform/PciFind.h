// What functions there are on the PCI buses, and the one of a class.
#pragma once

#include "Base/Types.h"

constexpr uint16_t PCI_BUS_COUNT = 256;
constexpr uint16_t PCI_DEVICE_COUNT = 32;
constexpr uint16_t PCI_FUNCTION_COUNT = 8;

// (base class << 8) | sub-class, the register at 0x0A.
uint16_t GetPciClassCode(uint16_t bus, uint16_t dev, uint16_t fun);

// The first function, in bus, device, function order, with the class code ((base << 8) | sub-class). Every
// function of all 256 buses is probed. 1 with the outputs filled (each may be NULL); 0 after printing that
// there is none.
int SourchPciControllerByClass(uint16_t *bus, uint16_t *dev, uint16_t *fun, uint16_t classCode);

// 1 when function 0's header type says multi-function (bit 7) and is not all ones, else 0.
int isPciMultipleFunction(uint16_t bus, uint16_t dev);
