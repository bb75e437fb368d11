#include "Platform/ShadowRam.h"

#include "BasicLib/Chipset.h"
#include "Platform/AmdReg.h"
#include "Platform/IntelReg.h"

int ShadowRamWrite(int enable) {
    switch (ThisChipset()->shadow) {
    case HOME_MSR:
        AmdRuntimeShadowRamWrite(static_cast<uint8_t>(enable & 0xFF));
        break;
    case HOME_PCI:
        IntelRuntimeShadowRamWrite(static_cast<uint8_t>(enable & 0xFF));
        break;
    default:
        break;
    }
    return 1;
}
