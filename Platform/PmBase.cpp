#include "Platform/PmBase.h"

#include "BasicLib/Chipset.h"
#include "BasicLib/PortIo.h"
#include "Common/Sprint.h"
#include "Platform/AmdReg.h"
#include "Platform/IntelReg.h"

// The reset control register of PCI chipsets. The reset comes when RST_CPU (bit 2) is written; SYS_RST (bit
// 1) makes it a hard one.
constexpr uint16_t RESET_PORT = 0xCF9;
constexpr uint8_t RESET_CPU_AND_SYSTEM = 0x06;
constexpr uint32_t RESET_FULL = 0x08;            // power cycle
constexpr uint16_t INTEL_USUAL_PM_BASE = 0x1800; // where firmware puts it when the function is hidden
constexpr uint32_t NO_PM_BASE = 0xFFFF;

constexpr uint32_t PM1_CONTROL_HIGH = 5; // second byte of PM1 control, from the event block

PmAddressRecord PmAddress = {0, 0, 0};

uint16_t GetPMBaseAddressByPmio() {
    switch (ThisChipset()->pmBlock) {
    case HOME_PM:
        return static_cast<uint16_t>(AmdGetPMBaseAddress());
    case HOME_PCI: {
        int base = IntelGetPMBaseAddress();
        if (static_cast<uint32_t>(base) < NO_PM_BASE)
            return static_cast<uint16_t>(base);
        Printf("Error: cannot get PMBase\n");
        return INTEL_USUAL_PM_BASE;
    }
    default:
        return NO_PM_BASE;
    }
}

static void FindPmAddress() {
    if (PmAddress.pm1EventBlock != 0 && PmAddress.resetRegister != 0 && PmAddress.resetValue != 0)
        return;
    if (AcpiGetPMAddress(&PmAddress) == EFI_SUCCESS)
        return;
    PmAddress = {GetPMBaseAddressByPmio(), RESET_PORT, RESET_CPU_AND_SYSTEM};
}

int GetPMBaseAddress(int which) {
    FindPmAddress();
    switch (which) {
    case PM_EVENT_BLOCK:
        return PmAddress.pm1EventBlock;
    case PM_RESET_REGISTER:
        return PmAddress.resetRegister;
    case PM_RESET_VALUE:
        return PmAddress.resetValue;
    default:
        return -1;
    }
}

static void PowerOff(uint32_t base) {
    uint8_t sleep = ThisChipset()->sleepS5;
    if (sleep != 0)
        IoWrite8(base + PM1_CONTROL_HIGH, sleep);
}

int ForcedShutdownByPMIO(uint32_t kind) {
    uint32_t base = static_cast<uint32_t>(GetPMBaseAddress(PM_EVENT_BLOCK));
    uint32_t resetPort = static_cast<uint32_t>(GetPMBaseAddress(PM_RESET_REGISTER));
    uint32_t resetValue = static_cast<uint32_t>(GetPMBaseAddress(PM_RESET_VALUE));
    switch (kind) {
    case SHUTDOWN_RESTART:
        IoWrite8(resetPort, resetValue);
        return 1;
    case SHUTDOWN_GLOBAL_RESET:
        IoWrite8(resetPort, resetValue | RESET_FULL);
        return 1;
    case SHUTDOWN_POWER_OFF:
        PowerOff(base);
        return 1;
    default:
        return 0;
    }
}
