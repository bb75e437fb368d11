// What the platform's chipset is, by its maker.
#pragma once

#include <cstdint>

constexpr uint16_t VENDOR_INTEL = 0x8086;
constexpr uint16_t VENDOR_AMD = 0x1022;
constexpr uint16_t VENDOR_HYGON = 0x1D94;
constexpr uint16_t VENDOR_UNKNOWN = 0xFFFF;

// Chipset vendor of this process: 0 until identified, then one of VENDOR_*.
extern uint16_t chipSetVid;

// Vendor of the platform, by the vendor ID of bus 0 device 0 function 0: VENDOR_INTEL, VENDOR_AMD (for
// 0x1002 too), VENDOR_HYGON or VENDOR_UNKNOWN. Looked up once per process.
uint16_t ChipsetLpcIdentify();
