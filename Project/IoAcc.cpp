#include "Project/IoAcc.h"

#include "Base/Memory.h"
#include "Base/Types.h"
#include "BasicLib/Place.h"
#include "BasicLib/PortIo.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Console.h"
#include "Common/ComFunc/HexView.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Project/AccessForm.h"
#include "Project/IoIndexAcc.h"

constexpr uint32_t LAST_PORT = 0xFFFF;
constexpr uint32_t DUMP_BYTES = 256;

static uint32_t ShowIoHelp() {
    Printf(" /IO /RB(RW/RD) 0x80: Read 1-BYTE(WROD/DWORD) from IO 80h port\n");
    Printf(" /IO /WB(WW/WD) 0x80 0x12: Write 1-BYTE(WROD/DWORD) 0x12 to 80h port\n");
    Printf(" /IO /DUMP 0x500: Dump IO data from 0x500\n");
    Printf(" /IO /INDEX /RB 0x72 0x73 0x10: Read 1-BYTE from IO port 72h/73h 0x10\n");
    Printf(" /IO /INDEX /DUMP 0x70 0x71: Dump IO Index data from 0x70/0x71\n");
    Printf(" /IO /RF IO.bin 0 0x100: Dump IO from 0 t0 0x100 to IO.bin file\n");
    return EFI_INVALID_PARAMETER;
}

static uint32_t IoBit(uint16_t port, uint32_t bit, uint8_t value) {
    if (AccessReads(ACCESS_BIT)) {
        Printf("IO Read Port: %X Bit%d, ", port, bit);
    } else if (AccessWrites(ACCESS_BIT)) {
        Printf("IO Write Port:%X Bit%d, ", port, bit);
        Printf("wValue:%d, ", value);
        IoWriteBit(port, bit, value);
    }
    return ReportData(ACCESS_BIT, IoReadBit(port, bit));
}

static uint32_t IoByte(uint16_t port, uint8_t data) {
    if (AccessReads(ACCESS_BYTE))
        Printf("IO Read Byte Port: %X, ", port);
    else
        Printf("IO Write Byte Port:%X Data: %02X, ", port, data);
    if (AccessWrites(ACCESS_BYTE))
        IoWrite8(port, data);
    return ReportData(ACCESS_BYTE, IoRead8(port));
}

static uint32_t IoWord(uint16_t port, uint16_t data) {
    if (AccessReads(ACCESS_WORD))
        Printf("IO Read Word Port: %X, ", port);
    else
        Printf("IO Write Word Port:%X Data: %04X, ", port, data);
    if (AccessWrites(ACCESS_WORD))
        IoWrite16(port, data);
    return ReportData(ACCESS_WORD, IoRead16(port));
}

static uint32_t IoDword(uint16_t port, uint32_t data) {
    if (AccessReads(ACCESS_DWORD))
        Printf("IO Read Dword Port: %X, ", port);
    else
        Printf("IO Write Dword Port:%X Data: %08lX, ", port, Wide(data));
    if (AccessWrites(ACCESS_DWORD))
        IoWrite32(port, data);
    return ReportData(ACCESS_DWORD, IoRead32(port));
}

// Reads up to 256 ports from base on and returns how many count. Port 0xFFFF is read and sets *end, but its
// byte is never shown: intended, the page ends before it.
static uint32_t ReadPortPage(uint16_t base, uint8_t *buffer, bool *end) {
    Memset(buffer, 0, DUMP_BYTES);
    for (uint32_t j = 0; j < DUMP_BYTES; ++j) {
        uint32_t port = base + j;
        buffer[j] = static_cast<uint8_t>(IoRead8(port & LAST_PORT));
        if (port == LAST_PORT) {
            *end = true;
            return j;
        }
    }
    return DUMP_BYTES;
}

static uint32_t IoDump() {
    uint16_t pos;
    if (CmdSearchFromArgv(gCmdArg->Argv, "DUMP", &pos) != EFI_SUCCESS)
        return EFI_INVALID_PARAMETER;
    uint16_t base = static_cast<uint16_t>(CmdOperand(pos, 1));
    uint8_t *buffer = static_cast<uint8_t *>(Malloc(DUMP_BYTES));
    if (buffer == nullptr)
        return EFI_BUFFER_TOO_SMALL;
    int key = DEBUG_MSG_NO_KEY;
    bool end = false;
    while (key != KEY_ESC && !end) {
        uint32_t count = ReadPortPage(base, buffer, &end);
        if (DispHas(DISP_DUMP)) {
            Printf("ESC: quite, Enter: continue IoAddress:%04X\n", base);
            key = DebugMsg(buffer, count);
        } else {
            key = KEY_ESC; // silent: one page is read
        }
        base = static_cast<uint16_t>(base + DUMP_BYTES);
    }
    Free(buffer);
    return EFI_SUCCESS;
}

uint32_t IoAccess() {
    if (CmdHas(Flag::HELP))
        return ShowIoHelp();
    if (CmdHas(Flag::INDEX))
        return IoIndexAccess();
    uint16_t pos;
    AccessWidth width = FindAccess(&pos);
    if (width == ACCESS_NONE)
        return IoDump();
    uint16_t port = static_cast<uint16_t>(CmdOperand(pos, 1));
    uint32_t data = static_cast<uint32_t>(CmdOperand(pos, 2));
    switch (width) {
    case ACCESS_BIT:
        return IoBit(port, data, static_cast<uint8_t>(CmdOperand(pos, 3)));
    case ACCESS_BYTE:
        return IoByte(port, static_cast<uint8_t>(data));
    case ACCESS_WORD:
        return IoWord(port, static_cast<uint16_t>(data));
    default:
        return IoDword(port, data);
    }
}
