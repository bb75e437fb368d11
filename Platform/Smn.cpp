#include "Platform/Smn.h"

#include "Base/Memory.h"
#include "BasicLib/Chipset.h"
#include "BasicLib/Cpu.h"
#include "BasicLib/PciConfig.h"
#include "BasicLib/PciIndirect.h"
#include "BasicLib/Place.h"
#include "Common/ComFunc/Signals.h"
#include "Common/Sprint.h"

// In the host bridge's configuration space. Every processor of a package answers through the one bridge: the
// die register chooses which, and whoever comes next (firmware, the kernel) takes die 0 for granted.
constexpr uint16_t SMN_DIE = 0xC0;
constexpr uint16_t SMN_ADDRESS = 0xC4;
constexpr Place SMN_DATA_PLACE = PciPlace(0, 0, 0, 0xC8);

// A second pair there, which always means die 0.
constexpr uint16_t SMU_INDEX = 0xB8;
constexpr uint16_t SMU_DATA = 0xBC;

// The mailbox: arguments first, then the message, which starts the SMU; a response of 0 means that it is
// still busy. It writes its results over the arguments.
constexpr uint32_t SMU_MESSAGE = 0x3B10528;
constexpr uint32_t SMU_RESPONSE = 0x3B10564;
constexpr uint32_t SMU_ARGUMENT_0 = 0x3B10598; // the others follow, 4 bytes apart
constexpr uint32_t SMU_RESERVED_ID = 0xFF;
constexpr uint32_t SMU_RESPONSE_FATAL = 0xFC;

constexpr uint32_t CPUID_EXTENDED_SIGNATURE = 0x80000001;
constexpr uint32_t SIGNATURE_MASK = 0x0FFF0F00; // families and extended model
constexpr uint32_t SIGNATURE_FAMILY_17H = 0x00800F00;
constexpr uint32_t SIGNATURE_FAMILY_18H = 0x00900F00;

EFI_STATUS InitSmuService() {
    if (!ThisChipset()->smn)
        return EFI_ACCESS_DENIED;
    uint32_t regs[4];
    GetCpuId(CPUID_EXTENDED_SIGNATURE, regs);
    uint32_t signature = regs[0] & SIGNATURE_MASK;
    bool served = signature == SIGNATURE_FAMILY_17H || signature == SIGNATURE_FAMILY_18H;
    return served ? EFI_SUCCESS : EFI_ACCESS_DENIED;
}

static void SelectSmn(uint32_t die, uint32_t reg) {
    HoldSignals(); // none may leave the die selected
    PciWrite32(0, 0, 0, SMN_DIE, die);
    PciWrite32(0, 0, 0, SMN_ADDRESS, reg);
}

static void SelectDieZero() {
    PciWrite32(0, 0, 0, SMN_DIE, 0);
    ReleaseSignals();
}

EFI_STATUS AmdSmnRegisterRead(uint8_t width, uint32_t die, uint32_t reg, void *out) {
    uint32_t bytes = PciWidthBytes(width);
    SelectSmn(die, reg);
    if (bytes != 0) {
        uint32_t value = ReadPlace(&SMN_DATA_PLACE, bytes);
        Memcpy(out, &value, bytes);
    }
    SelectDieZero();
    return bytes != 0 ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
}

EFI_STATUS AmdSmnRegisterWrite(uint8_t width, uint32_t die, uint32_t reg, const void *in) {
    uint32_t bytes = PciWidthBytes(width);
    SelectSmn(die, reg);
    if (bytes != 0) {
        uint32_t value = 0;
        Memcpy(&value, in, bytes);
        WritePlace(&SMN_DATA_PLACE, bytes, value);
    }
    SelectDieZero();
    return bytes != 0 ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
}

void SmuRegisterRead(uint16_t bus, uint32_t smnAddress, uint32_t *out) {
    PciIndirectRead(PCI_WIDTH_32, bus, 0, 0, SMU_INDEX, SMU_DATA, smnAddress & ~0x3u, out);
}

void SmuRegisterWrite(uint16_t bus, uint32_t smnAddress, const uint32_t *in) {
    PciIndirectWrite(PCI_WIDTH_32, bus, 0, 0, SMU_INDEX, SMU_DATA, smnAddress, in);
}

uint32_t NbioSmuServiceRequestV9(uint32_t requestId, uint32_t args[SMU_ARGUMENTS]) {
    if (requestId == SMU_RESERVED_ID)
        return 1;
    uint32_t response;
    SmuRegisterRead(0, SMU_RESPONSE, &response);
    response = 0;
    SmuRegisterWrite(0, SMU_RESPONSE, &response);
    for (uint32_t k = 0; k < SMU_ARGUMENTS; ++k)
        SmuRegisterWrite(0, SMU_ARGUMENT_0 + 4 * k, &args[k]);
    SmuRegisterWrite(0, SMU_MESSAGE, &requestId);
    while (response == 0)
        SmuRegisterRead(0, SMU_RESPONSE, &response);
    while (response == SMU_RESPONSE_FATAL)
        PrintAssert("./Project/NbioSmu.c", 166, "FALSE");
    for (uint32_t k = 0; k < SMU_ARGUMENTS; ++k)
        SmuRegisterRead(0, SMU_ARGUMENT_0 + 4 * k, &args[k]);
    return response;
}
