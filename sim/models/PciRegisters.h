// Registers of a function's header: PCI Local Bus 3.0, chapter 6; PCI-to-PCI Bridge Architecture 1.2, 3.2.
#pragma once

#include <stdint.h>

enum : uint16_t {
    PCI_VENDOR_ID = 0x00,
    PCI_COMMAND = 0x04,
    PCI_STATUS = 0x06,
    PCI_REVISION_ID = 0x08,
    PCI_CLASS_CODE = 0x09,
    PCI_CLASS = 0x0A, // and subclass
    PCI_CACHE_LINE_SIZE = 0x0C,
    PCI_LATENCY_TIMER = 0x0D,
    PCI_HEADER_TYPE = 0x0E,
    PCI_BASE_ADDRESS_0 = 0x10,
    PCI_BASE_ADDRESS_4 = 0x20,
    PCI_CARDBUS_CAPABILITIES = 0x14,
    PCI_PRIMARY_BUS = 0x18,
    PCI_SECONDARY_BUS = 0x19,
    PCI_SUBORDINATE_BUS = 0x1A,
    PCI_SUBSYSTEM = 0x2C,
    PCI_CAPABILITIES = 0x34,
    PCI_INTERRUPT_LINE = 0x3C,
    PCI_INTERRUPT_PIN = 0x3D,
    PCI_BRIDGE_CONTROL = 0x3E,
    PCI_HEADER_END = 0x40,
};

enum : uint8_t { LAYOUT_DEVICE, LAYOUT_BRIDGE, LAYOUT_CARDBUS };

constexpr uint8_t HEADER_LAYOUT = 0x7F;
constexpr uint8_t HEADER_MULTI_FUNCTION = 0x80;
constexpr uint16_t STATUS_CAPABILITIES = 0x0010;
