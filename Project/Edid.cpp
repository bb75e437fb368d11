#include "Project/Edid.h"

#include "Base/Memory.h"
#include "Common/ComFunc/HexView.h"
#include "Common/Global.h"
#include "Common/Sprint.h"

constexpr EFI_STATUS ERROR_BIT = 0x80000000;

EFI_STATUS GetEdidByLinux(uint8_t **, uint32_t *) {
    return EFI_UNSUPPORTED;
}

EFI_STATUS EdidEntry() {
    if (HasFlag(CmdWord(), Flag::HELP)) {
        Printf(" /EDID: Dump Edid(Only support EFI)\n");
        return EFI_INVALID_PARAMETER;
    }
    uint8_t *buffer = nullptr;
    uint32_t length = 0;
    EFI_STATUS status = GetEdidByLinux(&buffer, &length);
    if ((status & ERROR_BIT) == 0) {
        DispSet(DISP_DUMP | DISP_LOG);
        DebugMsg(buffer, length);
    }
    Free(buffer);
    return status;
}
