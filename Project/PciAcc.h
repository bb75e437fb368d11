// The /PCI command: registers, bits, listing and dump of PCI configuration space.
#pragma once

#include "Base/Types.h"

// Handler of /PCI. The value read, 0 after a listing; 0x80000002 after the help or without an access,
// 0x80000005 without a buffer for the listing.
uint32_t PciAccess();

// Prints the class name of the function, "Unknown PCI\n" for a class without a name. Always 0.
EFI_STATUS ShowPciClassType(uint16_t bus, uint16_t dev, uint16_t fun);

// Prints the ASPM state of the Link Control register (PCI Express Base 3.0, 7.8.7) in four characters: "DIS
// ", "L0S ", "L1  ", "L01 ", or "NA  " for a conventional function. Always 0x8000000E.
EFI_STATUS ReadPciAspm(uint16_t bus, uint16_t dev, uint16_t fun);

// Prints interrupt line and pin, six characters each. Always 0.
EFI_STATUS ReadPciInterruptPL(uint16_t bus, uint16_t dev, uint16_t fun);
