#include "TableCommand.h"

#include <string.h>

#include "Base/Memory.h"
#include "Common/Global.h"
#include "Main/Parser.h"
#include "Platform/AcpiTables.h"
#include "Platform/SmbiosTable.h"
#include "Project/ACPIAcc.h"
#include "Project/Smbios.h"

static void RunTableProcedures() {
    uint8_t *table;
    uint32_t length;
    GetCpuCurrentSpeed();
    if (LoadSmbios(&table, &length) == EFI_SUCCESS) {
        GetTotalStructureSize(table);
        ReleaseTable(table);
    }
    ShowSmbiosTargetType(nullptr, 4);
    ShowSmbiosAllType(nullptr);
}

static void RunAcpiProcedures() {
    PmAddressRecord record = {};
    uint32_t address;
    AcpiGetPMAddress(&record);
    FindEntryInRsdp(ACPI_RSDT_ONLY, ACPI_SIGNATURE_FADT, &address);
}

void RunTableCommand(int argc, char **argv) {
    CmdArg record = {};
    argvToUpper(argv);
    gCmdArg = setTypeCmdArg(&record, TranslateCmd(argv), argc, argv);
    if (strcmp(argv[1], "SPEED") == 0)
        RunTableProcedures();
    else if (strcmp(argv[1], "FADT") == 0)
        RunAcpiProcedures();
    else if (HasFlag(CmdWord(), Flag::SMBIOS))
        SmbiosEntry();
    else
        AcpiEntry();
    gCmdArg = nullptr;
}
