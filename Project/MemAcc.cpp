#include "Project/MemAcc.h"

#include "Base/Memory.h"
#include "Base/Text.h"
#include "BasicLib/PhysMem.h"
#include "BasicLib/Place.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Console.h"
#include "Common/ComFunc/HexView.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Platform/MemSearch.h"
#include "Project/AccessForm.h"

constexpr uint32_t DUMP_BYTES = 256;

static uint32_t ShowMemHelp() {
    Printf(" /MEM /WD [MemAddr] [Data]: Write1-DWORD Data to MemAddr\n");
    Printf(" /MEM /RB 0xFF550: Read 1-BYTE from memory 0xFF550\n");
    Printf(" /MEM /DUMP 0xFF550: Dump memory data from 0xFF550\n");
    Printf(" /MEM /RF SMBIOS.bin 0xFF550 0x100: Dump 256 bytes to SMBIOS.bin\n");
    return EFI_INVALID_PARAMETER;
}

static uint32_t MemBit(uint32_t address, uint32_t bit, uint8_t value) {
    if (AccessReads(ACCESS_BIT))
        Printf("Memory Read MemAddr: %lX Bit%d, ", Wide(address), bit);
    if (AccessWrites(ACCESS_BIT)) {
        Printf("Memory Write MemAddr: %lX Bit%d ", Wide(address), bit);
        Printf("wValue:%d, ", value);
        MemWriteBit(address, bit, value);
    }
    return ReportData(ACCESS_BIT, MemReadBit(address, bit));
}

static uint32_t MemByte(uint32_t address, uint8_t data) {
    if (AccessReads(ACCESS_BYTE))
        Printf("Memory Read Byte MemAddr: %lX, ", Wide(address));
    else
        Printf("Memory Write Byte MemAddr: %lX Data:%02X, ", Wide(address), data);
    if (AccessWrites(ACCESS_BYTE))
        MemWrite8(address, data);
    return ReportData(ACCESS_BYTE, MemRead8(address));
}

static uint32_t MemWord(uint32_t address, uint16_t data) {
    if (AccessReads(ACCESS_WORD))
        Printf("Memory Read Word MemAddr: %lX, ", Wide(address));
    else
        Printf("Memory Write Word MemAddr: %lX Data:%04X, ", Wide(address), data);
    if (AccessWrites(ACCESS_WORD))
        MemWrite16(address, data);
    return ReportData(ACCESS_WORD, MemRead16(address));
}

static uint32_t MemDword(uint32_t address, uint32_t data) {
    if (AccessReads(ACCESS_DWORD))
        Printf("Memory Read Dword MemAddr: %lX, ", Wide(address));
    else
        Printf("Memory Write Dword MemAddr: %lX Data:%08lX, ", Wide(address), Wide(data));
    if (AccessWrites(ACCESS_DWORD))
        MemWrite32(address, data);
    return ReportData(ACCESS_DWORD, MemRead32(address));
}

// An empty text is found everywhere without going forward; it counts as a missing one, or the search would
// never end.
static uint32_t SearchRange(uint32_t start, uint32_t length, const char *text) {
    Printf("<- (Ctrl+C: abort!)  searching: %s ->\n", text);
    uint32_t count = 0;
    uint32_t position = 0;
    for (;;) {
        EFI_STATUS status = SearchFromMemReadByte(start, length, text, &position, 0);
        if (status != EFI_SUCCESS)
            return static_cast<uint32_t>(status);
        if (*text == 0)
            return EFI_INVALID_PARAMETER;
        ++count;
        uint32_t address = start + position - static_cast<uint32_t>(Strlen(text));
        Printf(" (%04d) %s return address: %08lX ", count, text, Wide(address));
        if (count % 2 == 0)
            Printf("\n");
    }
}

static uint32_t MemSearch() {
    uint16_t pos;
    if (CmdSearchFromArgv(gCmdArg->Argv, "S", &pos) != EFI_SUCCESS)
        return EFI_INVALID_PARAMETER;
    if (!CmdHas(Flag::S)) { // the word is the program's own name
        Printf("ERROR:Make sure format is correct!\n");
        return EFI_NOT_FOUND;
    }
    return SearchRange(static_cast<uint32_t>(CmdOperand(pos, 1)), static_cast<uint32_t>(CmdOperand(pos, 2)),
                       CmdArgText(pos, 3));
}

static uint32_t MemDumpPages() {
    uint16_t pos;
    if (CmdSearchFromArgv(gCmdArg->Argv, "DUMP", &pos) != EFI_SUCCESS)
        return EFI_INVALID_PARAMETER;
    uint32_t base = static_cast<uint32_t>(CmdOperand(pos, 1));
    uint8_t *buffer = static_cast<uint8_t *>(Malloc(DUMP_BYTES));
    if (buffer == nullptr)
        return EFI_BUFFER_TOO_SMALL;
    int key = DEBUG_MSG_NO_KEY;
    bool end = false;
    while (key != KEY_ESC && !end) {
        Memset(buffer, 0, DUMP_BYTES);
        end = base > 0xFFFFFEFF;
        uint32_t count = end ? 0 - base : DUMP_BYTES; // the last page ends at 4 GiB
        MemDump(base, count, buffer);
        if (DispHas(DISP_DUMP)) {
            Printf("ESC: quite, Enter: continue MemAddress:%lX\n", Wide(base));
            key = DebugMsg(buffer, count);
        } else {
            key = KEY_ESC; // silent: one page is read
        }
        base += DUMP_BYTES;
    }
    Free(buffer);
    return EFI_SUCCESS;
}

uint32_t MemAccess() {
    if (CmdHas(Flag::HELP))
        return ShowMemHelp();
    if (CmdHas(Flag::DUMP))
        return MemDumpPages();
    uint16_t pos;
    AccessWidth width = FindAccess(&pos);
    if (width == ACCESS_NONE)
        return MemSearch();
    uint32_t address = static_cast<uint32_t>(CmdOperand(pos, 1));
    uint32_t data = static_cast<uint32_t>(CmdOperand(pos, 2));
    switch (width) {
    case ACCESS_BIT:
        return MemBit(address, data, static_cast<uint8_t>(CmdOperand(pos, 3)));
    case ACCESS_BYTE:
        return MemByte(address, static_cast<uint8_t>(data));
    case ACCESS_WORD:
        return MemWord(address, static_cast<uint16_t>(data));
    default:
        return MemDword(address, data);
    }
}
