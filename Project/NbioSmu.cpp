#include "Project/NbioSmu.h"

#include "BasicLib/PciConfig.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Platform/Smn.h"
#include "Project/AccessForm.h"

constexpr uint32_t LAST_DIE = 16;

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
