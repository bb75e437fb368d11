#include "Project/IoIndexAcc.h"

#include "Base/Memory.h"
#include "BasicLib/IndexIo.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/HexView.h"
#include "Common/Sprint.h"
#include "Project/AccessForm.h"

// Indexed by AccessWidth.
static const AccessText mTexts[ACCESS_WIDTHS] = {
    {nullptr, nullptr},
    {"IOIndex/Data Read %X/%X offset %X Bit%d: ", "IOIndex/Data Write %X/%X offset %X Bit%d "},
    {"IOIndex/Data %X/%X offset %X Read Byte: ", "IOIndex/Data %X/%X offset %X Write Byte data:%02X, "},
    {"IOIndex/Data %X/%X offset %X Read Word: ", "IOIndex/Data %X/%X offset %X Write Word data:%04X, "},
    {"IOIndex/Data %X/%X offset %X Read Dword: ", "IOIndex/Data %X/%X offset %X Write Dword data:%08X, "},
};

// CMOS registers are bytes: a wider value there is made of consecutive registers. A bit is not.
static bool IsCmos(uint16_t indexPort) {
    return indexPort == CMOS_INDEX || indexPort == CMOS_INDEX_HIGH;
}

// Always registers 0 to 255, on one page without a pause, whatever the prompt says.
static uint32_t IndexDump(uint16_t indexPort, uint16_t dataPort) {
    uint8_t *buffer = static_cast<uint8_t *>(Malloc(VIEW_PAGE_BYTES));
    if (buffer == nullptr)
        return EFI_BUFFER_TOO_SMALL;
    for (uint32_t reg = 0; reg < VIEW_PAGE_BYTES; ++reg)
        buffer[reg] = static_cast<uint8_t>(IoIndexRead8(indexPort, dataPort, reg));
    if (DispHas(DISP_DUMP)) {
        Printf("ESC: quite, Enter: continue IOIndex/Data %X/%X\n", indexPort, dataPort);
        DispSet(DISP_LOG);
        DebugMsgTxt(buffer, VIEW_PAGE_BYTES);
    }
    Free(buffer);
    return EFI_SUCCESS;
}

// Unlike the other commands this one goes by the order of the words.
uint32_t IoIndexAccess() {
    AccessForm form;
    if (!FindFirstForm(CmdWord(), &form))
        return EFI_INVALID_PARAMETER;
    uint16_t indexPort = OperandWord(form.pos, 1);
    uint16_t dataPort = OperandWord(form.pos, 2);
    if (dataPort == 0 && indexPort != 0)
        dataPort = static_cast<uint16_t>(indexPort + 1);
    if (form.width == ACCESS_NONE)
        return IndexDump(indexPort, dataPort);
    Place at = IndexPlace(indexPort, dataPort, OperandDword(form.pos, 3));
    uint32_t data = OperandDword(form.pos, 4);
    if (form.width == ACCESS_BIT)
        return AccessBit(&form, mTexts, &at, data, OperandByte(form.pos, 5));
    if (IsCmos(indexPort))
        at.space = SPACE_BYTES;
    return AccessData(&form, mTexts, &at, data);
}
