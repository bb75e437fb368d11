#include "Platform/IntelReg.h"

#include "BasicLib/PciConfig.h"
#include "Platform/PciFind.h"

// The power-management function calls itself another memory controller.
constexpr uint16_t CLASS_POWER_MANAGEMENT = 0x0580;
constexpr uint16_t ACPI_BASE = 0x40;
constexpr int ACPI_BASE_MASK = ~0x7F;

// Programmable attribute maps of the host bridge: two bits a region, read from DRAM and write to DRAM; clear
// they send the access to the flash.
constexpr uint16_t PAM0 = 0x80; // 0xF0000-0xFFFFF in bits 5:4
constexpr uint16_t PAM5 = 0x85; // 0xE0000-0xE7FFF
constexpr uint16_t PAM6 = 0x86; // 0xE8000-0xEFFFF
constexpr uint8_t PAM_HIGH_DRAM = 0x30;
constexpr uint8_t PAM_BOTH_DRAM = 0x33;
constexpr uint8_t NEVER_SAVED = 0xFF;

// What the PAM registers held before the region was opened.
static uint8_t F000Reg = NEVER_SAVED;
static uint8_t E000Reg = NEVER_SAVED;
static uint8_t E800Reg = NEVER_SAVED;

int IntelGetPMBaseAddress() {
    uint16_t bus;
    uint16_t dev;
    uint16_t fun;
    if (!SourchPciControllerByClass(&bus, &dev, &fun, CLASS_POWER_MANAGEMENT))
        return -1;
    return PciRead16(bus, dev, fun, ACPI_BASE) & ACPI_BASE_MASK;
}

// Keeps a PAM register and sets its DRAM bits.
static void OpenPam(uint16_t pam, uint8_t bits, uint8_t *saved) {
    *saved = PciRead8(0, 0, 0, pam);
    PciWrite8(0, 0, 0, pam, *saved | bits);
}

void IntelRuntimeShadowRamWrite(uint8_t enable) {
    if (enable != 0) {
        OpenPam(PAM0, PAM_HIGH_DRAM, &F000Reg);
        OpenPam(PAM5, PAM_BOTH_DRAM, &E000Reg);
        OpenPam(PAM6, PAM_BOTH_DRAM, &E800Reg);
    } else if (F000Reg != NEVER_SAVED) {
        PciWrite8(0, 0, 0, PAM0, F000Reg);
        PciWrite8(0, 0, 0, PAM5, E000Reg);
        PciWrite8(0, 0, 0, PAM6, E800Reg);
    }
}
