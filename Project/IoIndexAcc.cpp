#include "Project/IoIndexAcc.h"

#include "Base/Memory.h"
#include "Base/Types.h"
#include "BasicLib/IndexIo.h"
#include "BasicLib/Place.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/HexView.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Project/AccessForm.h"

constexpr uint32_t REGISTER_COUNT = 256;
constexpr uint16_t CMOS_INDEX = 0x70;
constexpr uint16_t CMOS_INDEX_HIGH = 0x72; // the bank above 7Fh

// A register behind a pair of ports.
struct IndexRegister {
    uint16_t indexPort;
    uint16_t dataPort;
    uint32_t reg;
};

// CMOS registers are bytes: a wider value there is made of consecutive registers.
static bool IsCmos(const IndexRegister *at) {
    return at->indexPort == CMOS_INDEX || at->indexPort == CMOS_INDEX_HIGH;
}

static uint32_t IndexByte(const IndexRegister *at, uint8_t data) {
    if (AccessReads(ACCESS_BYTE))
        Printf("IOIndex/Data %X/%X offset %lX Read Byte: ", at->indexPort, at->dataPort, Wide(at->reg));
    else
        Printf("IOIndex/Data %X/%X offset %lX Write Byte data:%02X, ", at->indexPort, at->dataPort,
               Wide(at->reg), data);
    if (AccessWrites(ACCESS_BYTE))
        IoIndexWrite8(at->indexPort, at->dataPort, at->reg, data);
    return ReportData(ACCESS_BYTE, IoIndexRead8(at->indexPort, at->dataPort, at->reg));
}

static uint32_t IndexWord(const IndexRegister *at, uint16_t data) {
    auto *write = IsCmos(at) ? LegacyIoIndexWrite16 : IoIndexWrite16;
    auto *read = IsCmos(at) ? LegacyIoIndexRead16 : IoIndexRead16;
    if (AccessReads(ACCESS_WORD))
        Printf("IOIndex/Data %X/%X offset %lX Read Word: ", at->indexPort, at->dataPort, Wide(at->reg));
    else
        Printf("IOIndex/Data %X/%X offset %lX Write Word data:%04X, ", at->indexPort, at->dataPort,
               Wide(at->reg), data);
    if (AccessWrites(ACCESS_WORD))
        write(at->indexPort, at->dataPort, at->reg, data);
    return ReportData(ACCESS_WORD, read(at->indexPort, at->dataPort, at->reg));
}

static uint32_t IndexDword(const IndexRegister *at, uint32_t data) {
    auto *write = IsCmos(at) ? LegacyIoIndexWrite32 : IoIndexWrite32;
    auto *read = IsCmos(at) ? LegacyIoIndexRead32 : IoIndexRead32;
    if (AccessReads(ACCESS_DWORD))
        Printf("IOIndex/Data %X/%X offset %lX Read Dword: ", at->indexPort, at->dataPort, Wide(at->reg));
    else
        Printf("IOIndex/Data %X/%X offset %lX Write Dword data:%08lX, ", at->indexPort, at->dataPort,
               Wide(at->reg), Wide(data));
    if (AccessWrites(ACCESS_DWORD))
        write(at->indexPort, at->dataPort, at->reg, data);
    return ReportData(ACCESS_DWORD, read(at->indexPort, at->dataPort, at->reg));
}

static uint32_t IndexBit(const IndexRegister *at, uint32_t bit, uint8_t value) {
    if (AccessReads(ACCESS_BIT))
        Printf("IOIndex/Data Read %X/%X offset %lX Bit%d: ", at->indexPort, at->dataPort, Wide(at->reg), bit);
    if (AccessWrites(ACCESS_BIT)) {
        Printf("IOIndex/Data Write %X/%X offset %lX Bit%d ", at->indexPort, at->dataPort, Wide(at->reg), bit);
        Printf("wValue:%d, ", value);
        IoIndexWriteBit(at->indexPort, at->dataPort, at->reg, bit, value);
    }
    return ReportData(ACCESS_BIT, IoIndexReadBit(at->indexPort, at->dataPort, at->reg, bit));
}

// Always registers 0 to 255, on one page without a pause, whatever the prompt says.
static uint32_t IndexDump(const IndexRegister *at) {
    uint8_t *buffer = static_cast<uint8_t *>(Malloc(REGISTER_COUNT));
    if (buffer == nullptr)
        return EFI_BUFFER_TOO_SMALL;
    Memset(buffer, 0, REGISTER_COUNT);
    for (uint32_t reg = 0; reg < REGISTER_COUNT; ++reg)
        buffer[reg] = static_cast<uint8_t>(IoIndexRead8(at->indexPort, at->dataPort, reg));
    if (DispHas(DISP_DUMP)) {
        Printf("ESC: quite, Enter: continue IOIndex/Data %X/%X\n", at->indexPort, at->dataPort);
        DispSet(DISP_LOG);
        DebugMsgTxt(buffer, REGISTER_COUNT);
    }
    Free(buffer);
    return EFI_SUCCESS;
}

// The first word behind the program name that names an access or a dump: unlike the other commands this one
// goes by the order of the words. False without one.
static bool FindIndexForm(AccessWidth *width, uint16_t *pos) {
    for (size_t i = 1; gCmdArg->Argv[i] != nullptr; ++i) {
        const char *word = gCmdArg->Argv[i];
        *pos = static_cast<uint16_t>(i);
        *width = AccessOfWord(word);
        if (*width != ACCESS_NONE || CmdSearchFromBuffer(word, "DUMP") == EFI_SUCCESS)
            return true;
    }
    return false;
}

uint32_t IoIndexAccess() {
    AccessWidth width;
    uint16_t pos;
    if (!FindIndexForm(&width, &pos))
        return EFI_INVALID_PARAMETER;
    IndexRegister at = {static_cast<uint16_t>(CmdOperand(pos, 1)), static_cast<uint16_t>(CmdOperand(pos, 2)),
                        static_cast<uint32_t>(CmdOperand(pos, 3))};
    if (at.dataPort == 0 && at.indexPort != 0)
        at.dataPort = static_cast<uint16_t>(at.indexPort + 1);
    uint32_t data = static_cast<uint32_t>(CmdOperand(pos, 4));
    switch (width) {
    case ACCESS_BIT:
        return IndexBit(&at, data, static_cast<uint8_t>(CmdOperand(pos, 5)));
    case ACCESS_BYTE:
        return IndexByte(&at, static_cast<uint8_t>(data));
    case ACCESS_WORD:
        return IndexWord(&at, static_cast<uint16_t>(data));
    case ACCESS_DWORD:
        return IndexDword(&at, data);
    default:
        return IndexDump(&at);
    }
}
