#include "Project/AccessForm.h"

#include "Base/Memory.h"
#include "BasicLib/PhysMem.h"
#include "BasicLib/PortIo.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Console.h"
#include "Common/ComFunc/HexView.h"
#include "Common/Sprint.h"

// A width: its switch words with their flags, its size and the format of its report.
struct WidthRow {
    char write[4];
    char read[4];
    CmdType writeFlag;
    CmdType readFlag;
    uint32_t bytes;
    uint32_t mask;
    char report[24];
};

// Indexed by AccessWidth. A bit has no size: its number chooses one.
static const WidthRow mWidths[ACCESS_WIDTHS] = {
    {"", "", 0, 0, 0, 0, ""},
    {"WI", "RI", Flag::WI, Flag::RI, 0, 0xFFFFFFFF, "return data:%d\n"},
    {"WB", "RB", Flag::WB, Flag::RB, 1, 0xFF, "return data:0x%02X\n"},
    {"WW", "RW", Flag::WW, Flag::RW, 2, 0xFFFF, "return data:0x%04X\n"},
    {"WD", "RD", Flag::WD, Flag::RD, 4, 0xFFFFFFFF, "return data:0x%08X\n"},
};

static AccessForm FormOf(AccessWidth width, CmdType cmd, uint16_t pos) {
    const WidthRow *row = &mWidths[width];
    return {width, HasFlag(cmd, row->readFlag), HasFlag(cmd, row->writeFlag), pos};
}

bool FindWidth(AccessWidth width, uint16_t *pos) {
    return CmdFind({mWidths[width].write, mWidths[width].read}, pos);
}

AccessForm FindAccess(CmdType cmd) {
    for (int width = ACCESS_BIT; width <= ACCESS_DWORD; ++width) {
        uint16_t pos;
        if (FindWidth(static_cast<AccessWidth>(width), &pos))
            return FormOf(static_cast<AccessWidth>(width), cmd, pos);
    }
    return FormOf(ACCESS_NONE, cmd, 0);
}

AccessForm AccessOfWord(CmdType cmd, const char *word, uint16_t pos) {
    for (int width = ACCESS_BIT; width <= ACCESS_DWORD; ++width) {
        if (CmdSearchFromBuffer(word, mWidths[width].write) == EFI_SUCCESS ||
            CmdSearchFromBuffer(word, mWidths[width].read) == EFI_SUCCESS)
            return FormOf(static_cast<AccessWidth>(width), cmd, pos);
    }
    return FormOf(ACCESS_NONE, cmd, pos);
}

bool FindFirstForm(CmdType cmd, AccessForm *form) {
    for (size_t i = 1; gCmdArg->Argv[i] != nullptr; ++i) {
        const char *word = gCmdArg->Argv[i];
        *form = AccessOfWord(cmd, word, static_cast<uint16_t>(i));
        if (form->width != ACCESS_NONE || CmdSearchFromBuffer(word, "DUMP") == EFI_SUCCESS)
            return true;
    }
    return false;
}

uint32_t AccessBytes(AccessWidth width) {
    return mWidths[width].bytes;
}

uint32_t CutToWidth(AccessWidth width, uint32_t value) {
    return value & mWidths[width].mask;
}

// Prints the wording with the numbers of the place and the last number behind them.
static void Announce(const char *text, const Place *at, uint32_t last) {
    switch (at->space) {
    case SPACE_INDEX:
    case SPACE_BYTES:
        Printf(text, at->address, at->dataPort, at->index, last);
        break;
    case SPACE_PCI:
        Printf(text, at->bus, at->dev, at->fun, at->offset, last);
        break;
    default:
        Printf(text, at->address, last);
        break;
    }
}

uint32_t AccessData(const AccessForm *form, const AccessText *texts, const Place *at, uint32_t data) {
    const AccessText *text = &texts[form->width];
    uint32_t bytes = AccessBytes(form->width);
    data = CutToWidth(form->width, data);
    Announce(form->reads ? text->read : text->write, at, data);
    if (form->writes)
        WritePlace(at, bytes, data);
    return ReportData(form->width, ReadPlace(at, bytes));
}

uint32_t AccessBit(const AccessForm *form, const AccessText *texts, const Place *at, uint32_t bit,
                   uint8_t value) {
    const AccessText *text = &texts[ACCESS_BIT];
    if (form->reads)
        Announce(text->read, at, bit);
    if (form->writes) {
        Announce(text->write, at, bit);
        Printf("wValue:%d, ", value);
        WritePlaceBit(at, bit, value != 0);
    }
    return ReportData(ACCESS_BIT, ReadPlaceBit(at, bit));
}

uint32_t ReportData(AccessWidth width, uint32_t value) {
    value = CutToWidth(width, value);
    Printf(mWidths[width].report, value);
    return value;
}

// Reads up to 256 ports from base on and returns how many count. Port 0xFFFF is read and sets *end, but its
// byte is never shown. Intended: saved dumps, which are compared with new ones, end one byte short.
static uint32_t ReadPortPage(uint32_t base, uint8_t *buffer, bool *end) {
    for (uint32_t j = 0; j < VIEW_PAGE_BYTES; ++j) {
        uint32_t port = base + j;
        buffer[j] = static_cast<uint8_t>(IoRead8(port));
        *end = port == LAST_PORT;
        if (*end)
            return j;
    }
    return VIEW_PAGE_BYTES;
}

// The same with memory, whose last page ends at 4 GiB.
static uint32_t ReadMemoryPage(uint32_t base, uint8_t *buffer, bool *end) {
    *end = base > UINT32_MAX - VIEW_PAGE_BYTES;
    uint32_t count = *end ? 0 - base : VIEW_PAGE_BYTES;
    MemDump(base, count, buffer);
    return count;
}

EFI_STATUS DumpPages(Space space, const char *prompt) {
    uint16_t pos;
    if (!CmdFind({"DUMP"}, &pos))
        return EFI_INVALID_PARAMETER;
    uint32_t base = space == SPACE_IO ? OperandWord(pos, 1) : OperandDword(pos, 1);
    uint8_t *buffer = static_cast<uint8_t *>(Malloc(VIEW_PAGE_BYTES));
    if (buffer == nullptr)
        return EFI_BUFFER_TOO_SMALL;
    int key = DEBUG_MSG_NO_KEY;
    bool end = false;
    for (; key != KEY_ESC && !end; base += VIEW_PAGE_BYTES) {
        Memset(buffer, 0, VIEW_PAGE_BYTES);
        uint32_t count =
            space == SPACE_IO ? ReadPortPage(base, buffer, &end) : ReadMemoryPage(base, buffer, &end);
        if (!DispHas(DISP_DUMP))
            break; // silent: one page is read
        Printf(prompt, base);
        key = DebugMsg(buffer, count);
    }
    Free(buffer);
    return EFI_SUCCESS;
}
