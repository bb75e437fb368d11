#include "Project/NbioSmu.h"

#include "BasicLib/PciPorts.h"
#include "Common/ComFunc/CmdLine.h"
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

// Indexed by AccessWidth. The read message of a bit shows register and bit in each other's format: intended,
// and never seen, since on a command line /RD chooses the dword variant.
static const AccessText mTexts[ACCESS_WIDTHS] = {
    {nullptr, nullptr},
    {"SMN Read Dword Die:%X, Regester, Bit %d:%X, ",
     "SMN Write Dword Die:%X, Regester:%X, Bit %d, Data:%X, "},
    {"SMN Read Byte Die:%X, Regester:%X, ", "SMN Write Byte Die:%X, Regester:%X, Data:%02X, "},
    {"SMN Read Word Die:%X, Regester:%X, ", "SMN Write Word Die:%X, Regester:%X, Data:%04X, "},
    {"SMN Read Dword Die:%X, Regester:%X, ", "SMN Write Dword Die:%X, Regester:%X, Data:%08X, "},
};

// The variants in the order in which they are looked for, bytes first and bits last: another one than that of
// FindAccess.
struct SmnVariant {
    AccessWidth width;
    PciWidth pciWidth;
};

static const SmnVariant mVariants[] = {
    {ACCESS_BYTE, PCI_WIDTH_8},
    {ACCESS_WORD, PCI_WIDTH_16},
    {ACCESS_DWORD, PCI_WIDTH_32},
    {ACCESS_BIT, PCI_WIDTH_32},
};

// In the byte and word forms too the dword switches choose the message and whether anything is written; a
// plain byte write only reads. Intended: a narrower write is made only where the dword switch beside it
// confirms it.
static uint32_t SmnRegister(CmdType cmd, const SmnVariant *variant, uint32_t die, uint32_t reg,
                            uint32_t data) {
    const AccessText *text = &mTexts[variant->width];
    data = CutToWidth(variant->width, data);
    Printf(HasFlag(cmd, Flag::RD) ? text->read : text->write, die, reg, data);
    if (HasFlag(cmd, Flag::WD))
        AmdSmnRegisterWrite(variant->pciWidth, die, reg, &data);
    AmdSmnRegisterRead(variant->pciWidth, die, reg, &data);
    return ReportData(variant->width, data);
}

// Bits above 31 read 0 and are not written.
static uint32_t SmnBit(CmdType cmd, uint32_t die, uint32_t reg, uint32_t bit, uint32_t data) {
    const AccessText *text = &mTexts[ACCESS_BIT];
    uint32_t mask = bit < 32 ? 1u << bit : 0;
    uint32_t value = 0;
    Printf(HasFlag(cmd, Flag::RD) ? text->read : text->write, die, reg, bit, data);
    if (HasFlag(cmd, Flag::WI) && mask != 0) {
        AmdSmnRegisterRead(PCI_WIDTH_32, die, reg, &value);
        value = data != 0 ? value | mask : value & ~mask;
        AmdSmnRegisterWrite(PCI_WIDTH_32, die, reg, &value);
    }
    AmdSmnRegisterRead(PCI_WIDTH_32, die, reg, &value);
    Printf("return data:%X\n", (value & mask) != 0 ? 1 : 0);
    return value;
}

// NULL without one.
static const SmnVariant *FindVariant(uint16_t *pos) {
    for (const SmnVariant &variant : mVariants) {
        if (FindWidth(variant.width, pos))
            return &variant;
    }
    return nullptr;
}

static EFI_STATUS SmnCommand(CmdType cmd) {
    uint16_t pos;
    const SmnVariant *variant = FindVariant(&pos);
    if (variant == nullptr)
        return EFI_SUCCESS;
    uint32_t die = OperandDword(pos, 1);
    uint32_t reg = OperandDword(pos, 2);
    uint32_t data = OperandDword(pos, 3);
    if (die > LAST_DIE) {
        Printf("%s", "Invalid parameter\n");
        return EFI_INVALID_PARAMETER;
    }
    if (variant->width == ACCESS_BIT)
        return SmnBit(cmd, die, reg, data, OperandDword(pos, 4));
    return SmnRegister(cmd, variant, die, reg, data);
}

static EFI_STATUS SmuCommand() {
    uint16_t pos;
    if (!CmdFind({"WD", "RD"}, &pos))
        return EFI_SUCCESS;
    uint32_t requestId = OperandDword(pos, 1);
    uint32_t args[SMU_ARGUMENTS];
    for (uint32_t k = 0; k < SMU_ARGUMENTS; ++k)
        args[k] = OperandDword(pos, 2 + k);
    uint32_t response = NbioSmuServiceRequestV9(requestId, args);
    Printf("RequestId=%X\n", requestId);
    for (uint32_t k = 0; k < SMU_ARGUMENTS; ++k)
        Printf("SmuArg[%d]=0x%08X\n", k, args[k]);
    Printf("RxSmuMessageResponse Status=%X\n", response);
    return EFI_SUCCESS;
}

EFI_STATUS NbioEntry() {
    CmdType cmd = CmdWord();
    if (HasFlag(cmd, Flag::HELP))
        return ShowNbioHelp();
    EFI_STATUS status = InitSmuService();
    if (status != EFI_SUCCESS) {
        Printf("InitSmuService error: %X\n", static_cast<uint32_t>(status));
        return status;
    }
    if (HasFlag(cmd, Flag::SMN))
        return SmnCommand(cmd);
    if (HasFlag(cmd, Flag::SMU))
        return SmuCommand();
    return EFI_SUCCESS;
}
