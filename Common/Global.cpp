#include "Common/Global.h"

CmdArg *gCmdArg = nullptr;
const char *const gBlankSpace = "      ";
const char *gTitle = "Number\tType\tI/O\tLevel\n";

CmdType CmdWord() {
    if (gCmdArg == nullptr)
        return 0;
    CmdType word = 0;
    for (size_t i = 0; i < CMD_BYTES; ++i)
        word |= static_cast<CmdType>(gCmdArg->Cmd[i]) << (i * 8);
    return word;
}

bool DispHas(uint8_t flags) {
    return gCmdArg != nullptr && (gCmdArg->DispFlags & flags) != 0;
}

void DispSet(uint8_t flags) {
    if (gCmdArg != nullptr)
        gCmdArg->DispFlags = static_cast<uint8_t>(gCmdArg->DispFlags | flags);
}
