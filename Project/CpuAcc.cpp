#include "Project/CpuAcc.h"

#include "BasicLib/Cpu.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/Sprint.h"

static EFI_STATUS ShowCpuHelp() {
    Printf(" /MSR /WD [CpuNo] [MsrAddr] [EDX] [EAX]: Write CPUn MSR EDX:EAX(64 Bit) to MsrAddr\n");
    Printf(" /MSR /RD /ALL [MsrReg]: Dump All valid CPUs MsrReg\n");
    Printf(" /CPUID /RD [CpuIdIndex]: Read CPUID CpuIdIndex\n");
    return EFI_INVALID_PARAMETER;
}

static void AccessOneMsr(bool writes, int16_t cpu, uint32_t index, uint32_t *high, uint32_t *low) {
    uint32_t number = static_cast<uint32_t>(cpu);
    if (writes) {
        Printf("Cpu[%02d] Msr write to %08lX, ", number, Wide(index));
        WriteMsr(number, index, *high, *low);
    } else {
        Printf("Cpu[%02d] Msr read from %08lX, ", number, Wide(index));
    }
    ReadMsr(number, index, high, low);
    Printf("return MSR: 0x%08lX_%08lX\n", Wide(*high), Wide(*low));
}

EFI_STATUS MsrAccess(const CmdArg *record, uint8_t all, int16_t cpu, uint32_t index, uint32_t *high,
                     uint32_t *low) {
    if (record == nullptr || high == nullptr || low == nullptr)
        return EFI_INVALID_PARAMETER;
    bool writes = HasFlag(CmdWord(), Flag::WRITE);
    if (!all) {
        AccessOneMsr(writes, cpu, index, high, low);
        return EFI_SUCCESS;
    }
    for (int16_t i = 0; i < cpu; ++i)
        AccessOneMsr(writes, i, index, high, low);
    return EFI_SUCCESS;
}

uint32_t RWMsr64(const CmdArg *record) {
    uint16_t pos;
    if (!CmdFindIn(record->Argv, {"WD", "RD", "WQ", "RQ"}, &pos))
        return EFI_INVALID_PARAMETER;
    bool all = CmdFindIn(record->Argv, {"ALL", "A"}, nullptr);
    int16_t cpu = static_cast<int16_t>(all ? GetCpuCount() : static_cast<int64_t>(CmdOperand(pos, 1)));
    uint32_t index = OperandDword(pos, 2);
    uint32_t high = 0;
    uint32_t low = 0;
    if (HasFlag(CmdWord(), Flag::WRITE)) {
        high = OperandDword(pos, 3);
        low = OperandDword(pos, 4);
    }
    MsrAccess(record, all ? 1 : 0, cpu, index, &high, &low);
    return low;
}

uint32_t CpuId(const CmdArg *record) {
    uint16_t pos;
    if (!CmdFindIn(record->Argv, {"RD", "RQ"}, &pos))
        return EFI_INVALID_PARAMETER;
    uint32_t leaf = OperandDword(pos, 1);
    uint32_t regs[4];
    GetCpuId(leaf, regs);
    Printf("CPUID read from %08lX: Eax:%08lX, Ebx:%08lX, Ecx:%08lX, Edx:%08lX\n", Wide(leaf), Wide(regs[0]),
           Wide(regs[1]), Wide(regs[2]), Wide(regs[3]));
    return regs[0];
}

EFI_STATUS CpuAccEntry() {
    CmdType cmd = CmdWord();
    if (HasFlag(cmd, Flag::HELP))
        return ShowCpuHelp();
    if (HasFlag(cmd, Flag::MSR))
        return RWMsr64(gCmdArg);
    if (HasFlag(cmd, Flag::CPUID))
        return CpuId(gCmdArg);
    return EFI_SUCCESS;
}
