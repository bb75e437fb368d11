#include "Project/IoAcc.h"

#include "Common/ComFunc/CmdLine.h"
#include "Common/Sprint.h"
#include "Project/AccessForm.h"
#include "Project/IoIndexAcc.h"

static uint32_t ShowIoHelp() {
    Printf(" /IO /RB(RW/RD) 0x80: Read 1-BYTE(WROD/DWORD) from IO 80h port\n");
    Printf(" /IO /WB(WW/WD) 0x80 0x12: Write 1-BYTE(WROD/DWORD) 0x12 to 80h port\n");
    Printf(" /IO /DUMP 0x500: Dump IO data from 0x500\n");
    Printf(" /IO /INDEX /RB 0x72 0x73 0x10: Read 1-BYTE from IO port 72h/73h 0x10\n");
    Printf(" /IO /INDEX /DUMP 0x70 0x71: Dump IO Index data from 0x70/0x71\n");
    Printf(" /IO /RF IO.bin 0 0x100: Dump IO from 0 t0 0x100 to IO.bin file\n");
    return EFI_INVALID_PARAMETER;
}

// Indexed by AccessWidth.
static const AccessText mTexts[ACCESS_WIDTHS] = {
    {nullptr, nullptr},
    {"IO Read Port: %X Bit%d, ", "IO Write Port:%X Bit%d, "},
    {"IO Read Byte Port: %X, ", "IO Write Byte Port:%X Data: %02X, "},
    {"IO Read Word Port: %X, ", "IO Write Word Port:%X Data: %04X, "},
    {"IO Read Dword Port: %X, ", "IO Write Dword Port:%X Data: %08X, "},
};

uint32_t IoAccess() {
    CmdType cmd = CmdWord();
    if (HasFlag(cmd, Flag::HELP))
        return ShowIoHelp();
    if (HasFlag(cmd, Flag::INDEX))
        return IoIndexAccess();
    AccessForm form = FindAccess(cmd);
    if (form.width == ACCESS_NONE)
        return static_cast<uint32_t>(DumpPages(SPACE_IO, "ESC: quite, Enter: continue IoAddress:%04X\n"));
    Place at = IoPlace(OperandWord(form.pos, 1));
    uint32_t data = OperandDword(form.pos, 2);
    if (form.width != ACCESS_BIT)
        return AccessData(&form, mTexts, &at, data);
    if (form.reads)
        form.writes = false; // here alone a bit that is read is not written too
    return AccessBit(&form, mTexts, &at, data, OperandByte(form.pos, 3));
}
