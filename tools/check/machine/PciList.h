// The PCI functions as the kernel knows them, without a port access.
#pragma once

#include <cstdint>

// Reads the kernel's list. The chipset is known from then on, so that no procedure asks the ports for it.
void FindPciFunctions();

struct PciFunction {
    uint16_t bus, dev, fun, vendor, device;
    uint16_t classCode; // (base class << 8) | sub-class; 0xFFFF where it cannot be read
    char driver[32];    // that is bound to it; "" for none
};

// Vendor ID of 00:00.0, 0xFFFF without one, or without the list.
uint16_t HostBridgeVendor();

// The functions of domain 0, in the order of bus, device, function; how many.
uint32_t PciFunctions(const PciFunction **list);

// The first function with a class code; NULL without one.
const PciFunction *FunctionOfClass(uint16_t classCode);

// Reads configuration space through sysfs. False, with the bytes untouched, when that does not give all of
// them: others than root get 64 bytes of a function.
bool ReadPciConfig(uint16_t bus, uint16_t dev, uint16_t fun, uint32_t offset, void *bytes, uint32_t length);
