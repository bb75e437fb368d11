// PCI configuration space through the ports 0xCF8/0xCFC (PCI Local Bus 3.0, 3.2.2.3.2: configuration
// mechanism 1), and the names of its registers.
#pragma once

#include <cstdint>

enum PciWidth : uint8_t { PCI_WIDTH_8 = 1, PCI_WIDTH_16 = 2, PCI_WIDTH_32 = 3 };

// Bytes of a PciWidth: 1, 2 or 4; 0 for any other number.
constexpr uint32_t PciWidthBytes(uint8_t width) {
    return width >= PCI_WIDTH_8 && width <= PCI_WIDTH_32 ? 1u << (width - 1) : 0;
}

constexpr uint16_t PCI_VENDOR_ID = 0x00;
constexpr uint16_t PCI_DEVICE_ID = 0x02;
constexpr uint16_t PCI_COMMAND = 0x04;
constexpr uint16_t PCI_STATUS = 0x06;
constexpr uint16_t PCI_CLASS_DEVICE = 0x0A;
constexpr uint16_t PCI_HEADER_TYPE = 0x0E;
constexpr uint16_t PCI_CB_CAPABILITY_LIST = 0x14; // CardBus bridges (PCI Local Bus 3.0, appendix D; PC Card)
constexpr uint16_t PCI_CAPABILITY_LIST = 0x34;
constexpr uint8_t HEADER_MULTI_FUNCTION = 0x80; // of the header type
constexpr uint16_t PCI_INTERRUPT_LINE = 0x3C;
constexpr uint8_t PCI_CAP_ID_EXP = 0x10;
constexpr uint16_t PCI_CONFIG_BYTES = 0x100;
constexpr uint16_t PCI_EXTENDED_BYTES = 0x1000; // with PCI Express

// One access through 0xCF8/0xCFC; the value lies in buffer in the width's size. 1; 0 with the buffer
// untouched for an offset above 0x100, a NULL buffer (no port is touched then) or another width.
int LegacyIoPciRead(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset,
                    uint8_t *buffer);
int LegacyIoPciWrite(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset,
                     const uint8_t *buffer);
