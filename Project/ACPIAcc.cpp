#include "Project/ACPIAcc.h"

#include "Base/Memory.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/HexView.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Platform/AcpiTables.h"

static EFI_STATUS ShowRsdp() {
    uint8_t *rsdp;
    EFI_STATUS status = CopyRsdp(&rsdp);
    if (status != EFI_SUCCESS)
        return status;
    DebugMsg(rsdp, RSDP_SIZE);
    Free(rsdp);
    return EFI_SUCCESS;
}

EFI_STATUS AcpiEntry() {
    if (HasFlag(CmdWord(), Flag::HELP)) {
        Printf(" /ACPI /dump: Dump Rsdp\n");
        return EFI_INVALID_PARAMETER;
    }
    if (CmdFind({"ACPI"}, nullptr))
        return ShowRsdp();
    return EFI_SUCCESS;
}
