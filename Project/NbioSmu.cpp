#include "Project/NbioSmu.h"

#include "Base/Memory.h"
#include "BasicLib/Cpu.h"
#include "BasicLib/PciConfig.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Console.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Project/AccessForm.h"

constexpr uint16_t SMN_DIE = 0xC0;
constexpr uint16_t SMN_ADDRESS = 0xC4;
constexpr uint16_t SMN_DATA = 0xC8;
constexpr uint16_t SMU_INDEX = 0xB8;
constexpr uint16_t SMU_DATA = 0xBC;
constexpr uint32_t LAST_DIE = 16;

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
    uint16_t vendor = ChipsetLpcIdentify();
    if (vendor != VENDOR_AMD && vendor != VENDOR_HYGON)
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

static EFI_STATUS ReadSmnData(uint8_t width, void *out) {
    uint32_t value;
    switch (width) {
    case PCI_WIDTH_8:
        value = PciRead8(0, 0, 0, SMN_DATA);
        break;
    case PCI_WIDTH_16:
        value = PciRead16(0, 0, 0, SMN_DATA);
        break;
    case PCI_WIDTH_32:
        value = PciRead32(0, 0, 0, SMN_DATA);
        break;
    default:
        return EFI_INVALID_PARAMETER;
    }
    Memcpy(out, &value, 1u << (width - 1));
    return EFI_SUCCESS;
}

static EFI_STATUS WriteSmnData(uint8_t width, const void *in) {
    switch (width) {
    case PCI_WIDTH_8:
        PciWrite8(0, 0, 0, SMN_DATA, *static_cast<const uint8_t *>(in));
        return EFI_SUCCESS;
    case PCI_WIDTH_16:
        PciWrite16(0, 0, 0, SMN_DATA, Load16(in));
        return EFI_SUCCESS;
    case PCI_WIDTH_32:
        PciWrite32(0, 0, 0, SMN_DATA, Load32(in));
        return EFI_SUCCESS;
    default:
        return EFI_INVALID_PARAMETER;
    }
}

EFI_STATUS AmdSmnRegisterRead(uint8_t width, uint32_t die, uint32_t reg, void *out) {
    SelectSmn(die, reg);
    EFI_STATUS status = ReadSmnData(width, out);
    SelectDieZero();
    return status;
}

EFI_STATUS AmdSmnRegisterWrite(uint8_t width, uint32_t die, uint32_t reg, const void *in) {
    SelectSmn(die, reg);
    EFI_STATUS status = WriteSmnData(width, in);
    SelectDieZero();
    return status;
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

static EFI_STATUS ShowNbioHelp() {
    Printf(" /SMN /RD [DieNum] [RegesterInde]: Read SMN from DieNum RegesterInde\n");
    Printf(" /SMN /WD [DieNum] [RegesterIndex] [Data]: Write SMN Data to DieNum RegesterInde\n");
    Printf(" /SMN /RI [DieNum] [RegesterIndex] [BITn]: Read SMN from DieNum RegesterInde BITn\n");
    Printf(" /SMN /WI [DieNum] [RegesterIndex] [BITn] [Data]: Write SMN Data to DieNum RegesterInde BITn\n");
    Printf(" /SMU /RD/WD [RequestId] [Data0], [Data1] ...: Read/Write SMU Msg Data0 ...to RequestId\n");
    return EFI_INVALID_PARAMETER;
}

// In the byte and word forms too the dword switches choose the message and whether anything is written; a
// plain byte write only reads. Intended.
static uint32_t SmnByte(uint32_t die, uint32_t reg, uint8_t data) {
    if (CmdHas(Flag::RD))
        Printf("SMN Read Byte Die:%X, Regester:%X, ", die, reg);
    else
        Printf("SMN Write Byte Die:%X, Regester:%X, Data:%02X, ", die, reg, data);
    if (CmdHas(Flag::WD))
        AmdSmnRegisterWrite(PCI_WIDTH_8, die, reg, &data);
    AmdSmnRegisterRead(PCI_WIDTH_8, die, reg, &data);
    return ReportData(ACCESS_BYTE, data);
}

static uint32_t SmnWord(uint32_t die, uint32_t reg, uint16_t data) {
    if (CmdHas(Flag::RD))
        Printf("SMN Read Word Die:%X, Regester:%X, ", die, reg);
    else
        Printf("SMN Write Word Die:%X, Regester:%X, Data:%04X, ", die, reg, data);
    if (CmdHas(Flag::WD))
        AmdSmnRegisterWrite(PCI_WIDTH_16, die, reg, &data);
    AmdSmnRegisterRead(PCI_WIDTH_16, die, reg, &data);
    return ReportData(ACCESS_WORD, data);
}

static uint32_t SmnDword(uint32_t die, uint32_t reg, uint32_t data) {
    if (CmdHas(Flag::RD))
        Printf("SMN Read Dword Die:%X, Regester:%X, ", die, reg);
    else
        Printf("SMN Write Dword Die:%X, Regester:%X, Data:%08lX, ", die, reg, Wide(data));
    if (CmdHas(Flag::WD))
        AmdSmnRegisterWrite(PCI_WIDTH_32, die, reg, &data);
    AmdSmnRegisterRead(PCI_WIDTH_32, die, reg, &data);
    return ReportData(ACCESS_DWORD, data);
}

// Bits above 31 read 0 and are not written. The read message shows register and bit in each other's format.
// Intended, and never seen: on a command line /RD chooses the dword variant.
static uint32_t SmnBit(uint32_t die, uint32_t reg, uint32_t bit, uint32_t data) {
    uint32_t mask = bit < 32 ? 1u << bit : 0;
    uint32_t value = 0;
    if (CmdHas(Flag::RD))
        Printf("SMN Read Dword Die:%X, Regester, Bit %d:%X, ", die, reg, bit);
    else
        Printf("SMN Write Dword Die:%X, Regester:%X, Bit %d, Data:%X, ", die, reg, bit, data);
    if (CmdHas(Flag::WI) && mask != 0) {
        AmdSmnRegisterRead(PCI_WIDTH_32, die, reg, &value);
        value = data != 0 ? value | mask : value & ~mask;
        AmdSmnRegisterWrite(PCI_WIDTH_32, die, reg, &value);
    }
    AmdSmnRegisterRead(PCI_WIDTH_32, die, reg, &value);
    Printf("return data:%X\n", (value & mask) != 0 ? 1 : 0);
    return value;
}

static bool FindEither(const char *write, const char *read, uint16_t *pos) {
    return CmdSearchFromArgv(gCmdArg->Argv, write, pos) == EFI_SUCCESS ||
           CmdSearchFromArgv(gCmdArg->Argv, read, pos) == EFI_SUCCESS;
}

// The variant, bytes first and bits last: another order than FindAccess has.
static AccessWidth FindSmnVariant(uint16_t *pos) {
    if (FindEither("WB", "RB", pos))
        return ACCESS_BYTE;
    if (FindEither("WW", "RW", pos))
        return ACCESS_WORD;
    if (FindEither("WD", "RD", pos))
        return ACCESS_DWORD;
    return FindEither("WI", "RI", pos) ? ACCESS_BIT : ACCESS_NONE;
}

static EFI_STATUS SmnCommand() {
    uint16_t pos;
    AccessWidth variant = FindSmnVariant(&pos);
    if (variant == ACCESS_NONE)
        return EFI_SUCCESS;
    uint32_t die = static_cast<uint32_t>(CmdOperand(pos, 1));
    uint32_t reg = static_cast<uint32_t>(CmdOperand(pos, 2));
    uint32_t data = static_cast<uint32_t>(CmdOperand(pos, 3));
    if (die > LAST_DIE) {
        Printf("%s", "Invalid parameter\n");
        return EFI_INVALID_PARAMETER;
    }
    switch (variant) {
    case ACCESS_BYTE:
        return SmnByte(die, reg, static_cast<uint8_t>(data));
    case ACCESS_WORD:
        return SmnWord(die, reg, static_cast<uint16_t>(data));
    case ACCESS_DWORD:
        return SmnDword(die, reg, data);
    default:
        return SmnBit(die, reg, data, static_cast<uint32_t>(CmdOperand(pos, 4)));
    }
}

static EFI_STATUS SmuCommand() {
    uint16_t pos;
    if (!FindEither("WD", "RD", &pos))
        return EFI_SUCCESS;
    uint32_t requestId = static_cast<uint32_t>(CmdOperand(pos, 1));
    uint32_t args[SMU_ARGUMENTS];
    for (uint32_t k = 0; k < SMU_ARGUMENTS; ++k)
        args[k] = static_cast<uint32_t>(CmdOperand(pos, 2 + k));
    uint32_t response = NbioSmuServiceRequestV9(requestId, args);
    Printf("RequestId=%X\n", requestId);
    for (uint32_t k = 0; k < SMU_ARGUMENTS; ++k)
        Printf("SmuArg[%d]=0x%08X\n", k, args[k]);
    Printf("RxSmuMessageResponse Status=%X\n", response);
    return EFI_SUCCESS;
}

EFI_STATUS NbioEntry() {
    if (CmdHas(Flag::HELP))
        return ShowNbioHelp();
    EFI_STATUS status = InitSmuService();
    if (status != EFI_SUCCESS) {
        Printf("InitSmuService error: %X\n", static_cast<uint32_t>(status));
        return status;
    }
    if (CmdHas(Flag::SMN))
        return SmnCommand();
    if (CmdHas(Flag::SMU))
        return SmuCommand();
    return EFI_SUCCESS;
}
