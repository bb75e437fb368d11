#include "BasicLib/Chipset.h"

#include "BasicLib/PciPorts.h"

constexpr uint16_t VENDOR_ATI = 0x1002; // the graphics maker's host bridges belong to AMD platforms

uint16_t chipSetVid = 0;

uint16_t ChipsetLpcIdentify() {
    if (chipSetVid != 0)
        return chipSetVid;
    uint16_t vendor = VENDOR_UNKNOWN;
    LegacyIoPciRead(PCI_WIDTH_16, 0, 0, 0, PCI_VENDOR_ID, reinterpret_cast<uint8_t *>(&vendor));
    switch (vendor) {
    case VENDOR_INTEL:
    case VENDOR_AMD:
    case VENDOR_HYGON:
        chipSetVid = vendor;
        break;
    case VENDOR_ATI:
        chipSetVid = VENDOR_AMD;
        break;
    default:
        chipSetVid = VENDOR_UNKNOWN;
        break;
    }
    return chipSetVid;
}
