#include "Platform/ShadowRam.h"

#include "BasicLib/Chipset.h"
#include "Platform/AmdReg.h"
#include "Platform/IntelReg.h"

int ShadowRamWrite(int enable) {
    switch (ChipsetLpcIdentify()) {
    case VENDOR_AMD:
    case VENDOR_HYGON:
        AmdRuntimeShadowRamWrite(static_cast<uint8_t>(enable & 0xFF));
        break;
    case VENDOR_INTEL:
        IntelRuntimeShadowRamWrite(static_cast<uint8_t>(enable & 0xFF));
        break;
    default:
        break;
    }
    return 1;
}
