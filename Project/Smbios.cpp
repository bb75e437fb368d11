#include "Project/Smbios.h"

#include "Base/Memory.h"
#include "Base/Text.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Console.h"
#include "Common/ComFunc/HexView.h"
#include "Common/ComFunc/Search.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Platform/SmbiosTable.h"

// The caller's table, or a loaded one that *loaded keeps for its release. False when there is none.
static bool TableOrLoad(const uint8_t *given, SmbiosTable *table, uint8_t **loaded) {
    *loaded = nullptr;
    if (given != nullptr) {
        *table = {given, SmbiosTableAround(given).end};
        return true;
    }
    uint32_t length;
    if (LoadSmbios(loaded, &length) != EFI_SUCCESS)
        return false;
    *table = {*loaded, *loaded + length};
    return true;
}

static EFI_STATUS ShowType(SmbiosTable table, uint8_t type) {
    const uint8_t *structure = table.begin;
    while ((structure = FindSmbiosType(table, structure, type)) != nullptr) {
        uint32_t length = GetStructureLength(structure);
        if (DebugMsg(structure, length) == KEY_ESC)
            return EFI_SUCCESS;
        if (structure[0] == SMBIOS_TYPE_END && table.end == nullptr)
            break; // nobody knows what lies behind a table of the caller's
        structure += length;
    }
    return EFI_NOT_FOUND;
}

EFI_STATUS ShowSmbiosTargetType(const uint8_t *table, uint8_t type) {
    SmbiosTable shown;
    uint8_t *loaded;
    if (!TableOrLoad(table, &shown, &loaded))
        return EFI_ACCESS_DENIED;
    EFI_STATUS status = ShowType(shown, type);
    ReleaseTable(loaded);
    return status;
}

static void ShowAllTypes(SmbiosTable table) {
    const uint8_t *structure = table.begin;
    while (!IsSmbiosEnd(table, structure)) {
        Printf("SMBIOS Type:%03d, Length:%03d, Handle:%03d\n", structure[0], structure[1],
               Load16(structure + 2));
        uint32_t length = GetStructureLength(structure);
        if (DebugMsg(structure, length) == KEY_ESC)
            return;
        structure += length;
    }
}

EFI_STATUS ShowSmbiosAllType(const uint8_t *table) {
    SmbiosTable shown;
    uint8_t *loaded;
    if (!TableOrLoad(table, &shown, &loaded))
        return EFI_ACCESS_DENIED;
    ShowAllTypes(shown);
    ReleaseTable(loaded);
    return EFI_SUCCESS;
}

static EFI_STATUS ShowSmbiosHelp() {
    Printf(" /SMBIOS: Show some types of SMBIOS\n");
    Printf(" /SMBIOS /S [String]: Search String in SMBIOS\n");
    return EFI_INVALID_PARAMETER;
}

static EFI_STATUS FindText(const uint8_t *table, uint32_t length, const char *text) {
    uint32_t pos = 0;
    EFI_STATUS status = SearchStringFromBuffer(table, length, text, &pos, 1);
    if (status == EFI_SUCCESS)
        Printf("Found %s in SMBIOS(Offset(0x%lX))!\n", text, static_cast<uint64_t>(pos - Strlen(text)));
    return status;
}

// Firmware texts are mostly in capitals: the text is looked for in capitals first, then as it was typed.
static EFI_STATUS SearchTable(const uint8_t *table, uint32_t length) {
    uint16_t pos = 0;
    CmdFind({"S"}, &pos);
    const char *text = CmdArgText(pos, 1);
    if (text != nullptr) {
        char *upper = static_cast<char *>(Malloc(Strlen(text) + 1));
        if (upper == nullptr)
            return EFI_OUT_OF_RESOURCES;
        Strcpy(upper, text);
        lowerToUpper(&upper);
        EFI_STATUS status = FindText(table, length, upper);
        Free(upper);
        if (status == EFI_SUCCESS)
            return status;
    }
    if (FindText(table, length, text) == EFI_SUCCESS)
        return EFI_SUCCESS;
    Printf("ERROR: Cannot find %s in SMBIOS!\n", text);
    return EFI_NOT_FOUND;
}

// The last partial page is shown twice, as a full page with zeros behind the table and then with its own
// length. Intended: saved dumps, which are compared with new ones, have both.
static void DumpTable(const uint8_t *table, uint32_t length) {
    for (uint32_t offset = 0; offset < length; offset += VIEW_PAGE_BYTES) {
        if (DebugMsg(table + offset, VIEW_PAGE_BYTES) == KEY_ESC)
            return;
        uint32_t left = length - offset;
        if (left < VIEW_PAGE_BYTES)
            DebugMsg(table + offset, left);
    }
}

static void ShowAskedType(SmbiosTable table) {
    uint16_t pos = 0;
    CmdFind({"TYPE"}, &pos);
    DispSet(DISP_DUMP | DISP_LOG);
    ShowType(table, OperandByte(pos, 1));
}

EFI_STATUS SmbiosEntry() {
    CmdType cmd = CmdWord();
    if (HasFlag(cmd, Flag::HELP))
        return ShowSmbiosHelp();
    uint8_t *table;
    uint32_t length;
    if (LoadSmbios(&table, &length) != EFI_SUCCESS || table == nullptr)
        return EFI_DEVICE_ERROR;
    EFI_STATUS status = EFI_SUCCESS;
    if (HasFlag(cmd, Flag::S)) {
        status = SearchTable(table, length);
    } else if (DispHas(DISP_DUMP)) {
        DumpTable(table, length);
    } else if (HasFlag(cmd, Flag::TYPE)) {
        ShowAskedType({table, table + length});
    } else {
        DispSet(DISP_DUMP);
        ShowAllTypes({table, table + length});
    }
    ReleaseTable(table);
    return status;
}
