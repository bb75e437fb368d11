#include "Project/MemAcc.h"

#include "Base/Text.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Output.h"
#include "Common/Sprint.h"
#include "Platform/MemSearch.h"
#include "Project/AccessForm.h"

static uint32_t ShowMemHelp() {
    Printf(" /MEM /WD [MemAddr] [Data]: Write1-DWORD Data to MemAddr\n");
    Printf(" /MEM /RB 0xFF550: Read 1-BYTE from memory 0xFF550\n");
    Printf(" /MEM /DUMP 0xFF550: Dump memory data from 0xFF550\n");
    Printf(" /MEM /RF SMBIOS.bin 0xFF550 0x100: Dump 256 bytes to SMBIOS.bin\n");
    return EFI_INVALID_PARAMETER;
}

// Indexed by AccessWidth.
static const AccessText mTexts[ACCESS_WIDTHS] = {
    {nullptr, nullptr},
    {"Memory Read MemAddr: %X Bit%d, ", "Memory Write MemAddr: %X Bit%d "},
    {"Memory Read Byte MemAddr: %X, ", "Memory Write Byte MemAddr: %X Data:%02X, "},
    {"Memory Read Word MemAddr: %X, ", "Memory Write Word MemAddr: %X Data:%04X, "},
    {"Memory Read Dword MemAddr: %X, ", "Memory Write Dword MemAddr: %X Data:%08X, "},
};

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
        if (OutputIsLost())
            return static_cast<uint32_t>(EFI_NOT_FOUND); // as behind the last match
    }
}

static uint32_t MemSearch(bool asked) {
    uint16_t pos;
    if (!CmdFind({"S"}, &pos))
        return EFI_INVALID_PARAMETER;
    if (!asked) { // the word is the program's own name
        Printf("ERROR:Make sure format is correct!\n");
        return EFI_NOT_FOUND;
    }
    return SearchRange(OperandDword(pos, 1), OperandDword(pos, 2), CmdArgText(pos, 3));
}

uint32_t MemAccess() {
    CmdType cmd = CmdWord();
    if (HasFlag(cmd, Flag::HELP))
        return ShowMemHelp();
    if (HasFlag(cmd, Flag::DUMP))
        return static_cast<uint32_t>(DumpPages(SPACE_MEMORY, "ESC: quite, Enter: continue MemAddress:%X\n"));
    AccessForm form = FindAccess(cmd);
    if (form.width == ACCESS_NONE)
        return MemSearch(HasFlag(cmd, Flag::S));
    Place at = MemPlace(OperandDword(form.pos, 1));
    uint32_t data = OperandDword(form.pos, 2);
    if (form.width == ACCESS_BIT)
        return AccessBit(&form, mTexts, &at, data, OperandByte(form.pos, 3));
    return AccessData(&form, mTexts, &at, data);
}
