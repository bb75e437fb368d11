// What the platform's chipset is, by its maker: a table of plain rows. Whoever does a thing differently on
// another maker's platform asks this table and not for the maker.
//
// It stands with the primitives because the configuration window, one of them, is at a place of the
// chipset's.
#pragma once

#include <cstdint>

constexpr uint16_t VENDOR_INTEL = 0x8086;
constexpr uint16_t VENDOR_AMD = 0x1022;
constexpr uint16_t VENDOR_HYGON = 0x1D94;
constexpr uint16_t VENDOR_UNKNOWN = 0xFFFF;

// Where the chipset keeps the registers of one of its services.
enum RegisterHome : uint8_t {
    HOME_NONE,
    HOME_PCI, // in the configuration space of a function
    HOME_MSR, // in model-specific registers of processor 0
    HOME_PM,  // in the power-management index registers behind CD6h/CD7h
};

struct Chipset {
    uint16_t vendor;           // PCI vendor ID
    char name[8];              // on the help screen
    RegisterHome configWindow; // base of the memory-mapped configuration window
    RegisterHome pmBlock;      // base of the PM1 event block
    RegisterHome smbusBlock;   // base of the SMBus host's registers
    RegisterHome shadow;       // attributes of the BIOS shadow region
    uint8_t sleepS5;           // second byte of PM1 control (ACPI 6.4, 4.8.3.2.1) for soft off; 0 for none
    bool dwI2c;                // DesignWare I2C cores at their fixed addresses
    bool smn;                  // system management network behind the host bridge
};

// Chipset vendor of this process: 0 until identified, then one of VENDOR_*.
extern uint16_t chipSetVid;

// Vendor of the platform, by the vendor ID of bus 0 device 0 function 0: VENDOR_INTEL, VENDOR_AMD (for
// 0x1002 too), VENDOR_HYGON or VENDOR_UNKNOWN. Looked up once per process.
uint16_t ChipsetLpcIdentify();

// Takes that vendor ID from a caller that has read it: nobody looks it up any more.
void SetChipset(uint16_t hostBridgeVendor);

// The row of that vendor; never NULL, an unknown vendor has a row of its own.
const Chipset *ThisChipset();
