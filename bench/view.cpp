// Shows the structures of an SMBIOS table in the hex view and does nothing else.
//
//   bench_view FILE
//
// As the program shows them with /LOG, without the line before each. FILE holds the table.
#include <cstdio>

#include "Common/ComFunc/HexView.h"
#include "Common/Global.h"
#include "Platform/SmbiosTable.h"

constexpr size_t ROOM = 0x10000;
constexpr uint8_t END_OF_TABLE = 127; // DSP0134, 7.45

int main(int argc, char **argv) {
    static uint8_t table[ROOM + SMBIOS_GUARD];
    FILE *file = argc == 2 ? fopen(argv[1], "rb") : nullptr;
    if (file == nullptr || fread(table, 1, ROOM, file) == 0)
        return 2;
    fclose(file);
    CmdArg record = {};
    record.DispFlags = DISP_DUMP | DISP_LOG;
    gCmdArg = &record;
    for (const uint8_t *at = table; at[0] != END_OF_TABLE;) {
        uint32_t length = GetStructureLength(at);
        DebugMsg(at, length);
        at += length;
    }
    return 0;
}
