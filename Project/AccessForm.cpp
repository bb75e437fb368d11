#include "Project/AccessForm.h"

#include "Common/ComFunc/CmdLine.h"
#include "Common/Global.h"
#include "Common/Sprint.h"

struct AccessWord {
    const char *write;
    const char *read;
    CmdType writeFlag;
    CmdType readFlag;
};

// Indexed by AccessWidth.
static const AccessWord mAccessWords[] = {
    {nullptr, nullptr, 0, 0},         // ACCESS_NONE
    {"WI", "RI", Flag::WI, Flag::RI}, // ACCESS_BIT
    {"WB", "RB", Flag::WB, Flag::RB}, // ACCESS_BYTE
    {"WW", "RW", Flag::WW, Flag::RW}, // ACCESS_WORD
    {"WD", "RD", Flag::WD, Flag::RD}, // ACCESS_DWORD
};

AccessWidth FindAccess(uint16_t *pos) {
    for (int width = ACCESS_BIT; width <= ACCESS_DWORD; ++width) {
        if (CmdSearchFromArgv(gCmdArg->Argv, mAccessWords[width].write, pos) == EFI_SUCCESS ||
            CmdSearchFromArgv(gCmdArg->Argv, mAccessWords[width].read, pos) == EFI_SUCCESS)
            return static_cast<AccessWidth>(width);
    }
    return ACCESS_NONE;
}

bool FindOneOf(const char *first, const char *second, const char *third, uint16_t *pos) {
    return CmdSearchFromArgv(gCmdArg->Argv, first, pos) == EFI_SUCCESS ||
           CmdSearchFromArgv(gCmdArg->Argv, second, pos) == EFI_SUCCESS ||
           CmdSearchFromArgv(gCmdArg->Argv, third, pos) == EFI_SUCCESS;
}

AccessWidth AccessOfWord(const char *word) {
    for (int width = ACCESS_BIT; width <= ACCESS_DWORD; ++width) {
        if (CmdSearchFromBuffer(word, mAccessWords[width].write) == EFI_SUCCESS ||
            CmdSearchFromBuffer(word, mAccessWords[width].read) == EFI_SUCCESS)
            return static_cast<AccessWidth>(width);
    }
    return ACCESS_NONE;
}

bool AccessReads(AccessWidth width) {
    return CmdHas(mAccessWords[width].readFlag);
}

bool AccessWrites(AccessWidth width) {
    return CmdHas(mAccessWords[width].writeFlag);
}

uint32_t ReportData(AccessWidth width, uint32_t value) {
    switch (width) {
    case ACCESS_BIT:
        Printf("return data:%d\n", value);
        return value;
    case ACCESS_BYTE:
        value &= 0xFF;
        Printf("return data:0x%02X\n", value);
        return value;
    case ACCESS_WORD:
        value &= 0xFFFF;
        Printf("return data:0x%04X\n", value);
        return value;
    default:
        Printf("return data:0x%08lX\n", Wide(value));
        return value;
    }
}
