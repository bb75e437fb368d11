#include "BasicLib/Chipset.h"

#include "BasicLib/PciPorts.h"

constexpr uint16_t VENDOR_ATI = 0x1002; // the graphics maker's host bridges belong to AMD platforms

// SLP_EN with SLP_TYP 5 (AMD) or 7 (Intel).
constexpr uint8_t AMD_SLEEP_S5 = 0x34;
constexpr uint8_t INTEL_SLEEP_S5 = 0x3C;

// Ended by the row of an unknown vendor. It has SMBus registers all the same. Intended: an AMD platform
// behind a host bridge of somebody else's still reads its SMBus. "Higon" is the spelling that the help screen
// has always had.
// clang-format off
static const Chipset mChipsets[] = {
    // vendor        name       window     PM1        SMBus     shadow     S5              I2C    SMN
    {VENDOR_INTEL,   "Intel",   HOME_PCI,  HOME_PCI,  HOME_PCI, HOME_PCI,  INTEL_SLEEP_S5, false, false},
    {VENDOR_AMD,     "AMD",     HOME_MSR,  HOME_PM,   HOME_PM,  HOME_MSR,  AMD_SLEEP_S5,   true,  true},
    {VENDOR_HYGON,   "Higon",   HOME_MSR,  HOME_PM,   HOME_PM,  HOME_MSR,  AMD_SLEEP_S5,   true,  true},
    {VENDOR_UNKNOWN, "Unknown", HOME_NONE, HOME_NONE, HOME_PM,  HOME_NONE, 0,              false, false},
};
// clang-format on

uint16_t chipSetVid = 0;

// The row of a vendor ID, the last one for an ID without a row.
static const Chipset *RowOf(uint16_t vendor) {
    const Chipset *row = mChipsets;
    while (row->vendor != vendor && row->vendor != VENDOR_UNKNOWN)
        ++row;
    return row;
}

uint16_t ChipsetLpcIdentify() {
    if (chipSetVid != 0)
        return chipSetVid;
    uint16_t vendor = VENDOR_UNKNOWN;
    LegacyIoPciRead(PCI_WIDTH_16, 0, 0, 0, PCI_VENDOR_ID, reinterpret_cast<uint8_t *>(&vendor));
    SetChipset(vendor);
    return chipSetVid;
}

void SetChipset(uint16_t hostBridgeVendor) {
    chipSetVid = RowOf(hostBridgeVendor == VENDOR_ATI ? VENDOR_AMD : hostBridgeVendor)->vendor;
}

const Chipset *ThisChipset() {
    return RowOf(ChipsetLpcIdentify());
}
