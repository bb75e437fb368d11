// Names of the PCI classes (PCI Code and ID Assignment 1.11, chapter 1).
#pragma once

#include <cstdint>

struct PciClassName {
    uint16_t code;    // (base class << 8) | sub-class
    const char *name; // ends with a newline
};

constexpr uint16_t PCI_CLASS_END = 0xFFFF;

// The table, ended by a row with the code PCI_CLASS_END. Its spellings are part of the output.
extern const PciClassName PciDeviceClassCode[];
