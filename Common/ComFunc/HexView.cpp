#include "Common/ComFunc/HexView.h"

#include <cstdio>

#include "Common/ComFunc/Console.h"
#include "Common/ComFunc/Output.h"
#include "Common/Global.h"
#include "Common/Sprint.h"

constexpr uint32_t ROW_BYTES = 16;
constexpr int NO_DATA = 31;

// How a view writes: the paged one straight to standard output and in colours, the plain one by Printf.
enum ViewKind { VIEW_PAGED, VIEW_PLAIN };

static void ViewColor(ViewKind kind, uint16_t number) {
    if (kind == VIEW_PAGED)
        setColor(number);
}

static void ViewText(ViewKind kind, const char *text) {
    if (kind == VIEW_PAGED)
        fputs(text, stdout);
    else
        Printf("%s", text);
}

static void ViewNumber(ViewKind kind, const char *format, uint32_t value) {
    if (kind == VIEW_PAGED)
        printf(format, value);
    else
        Printf(format, value);
}

static void ViewNewLine(ViewKind kind) {
    if (kind == VIEW_PAGED)
        puts("\r");
    else
        Printf("\r\n");
}

static void Header(ViewKind kind, uint32_t length) {
    uint32_t columns = length < ROW_BYTES ? length : ROW_BYTES;
    ViewText(kind, "  ");
    ViewColor(kind, COLOR_YELLOW);
    for (uint32_t i = 0; i < ROW_BYTES; ++i) {
        if (i < columns)
            ViewNumber(kind, " %02X", i);
        else
            ViewText(kind, "   ");
    }
    ViewText(kind, gBlankSpace);
    ViewText(kind, " ");
    for (uint32_t i = 0; i < columns; ++i)
        ViewNumber(kind, "%X", i);
    ViewNewLine(kind);
    ViewText(kind, "00 ");
    ViewColor(kind, COLOR_NORMAL);
}

static void RowLabel(ViewKind kind, uint64_t offset) {
    ViewNewLine(kind);
    ViewColor(kind, COLOR_YELLOW);
    ViewNumber(kind, "%02X ", static_cast<uint32_t>(offset >> 4) & 0xFF);
    ViewColor(kind, COLOR_NORMAL);
}

// A byte's cell, and its character; views are mostly these two, so no format is read for them.
static void ByteCell(ViewKind kind, uint8_t byte) {
    constexpr char digits[] = "0123456789ABCDEF";
    const char cell[] = {digits[byte >> 4], digits[byte & 0x0F], ' ', 0};
    ViewText(kind, cell);
}

static void ByteCharacter(ViewKind kind, uint8_t byte) {
    bool printable = byte >= 0x20 && byte <= 0x7F;
    const char text[] = {printable ? static_cast<char>(byte) : '.', 0};
    ViewText(kind, text);
}

// One row of count (1..16) bytes: its cells, then its characters.
static void Row(ViewKind kind, const uint8_t *row, uint32_t count) {
    for (uint32_t i = 0; i < ROW_BYTES; ++i) {
        ViewColor(kind, COLOR_BRIGHT_RED);
        if (i < count)
            ByteCell(kind, row[i]);
        else
            ViewText(kind, "   ");
        ViewColor(kind, COLOR_NORMAL);
    }
    ViewText(kind, gBlankSpace);
    for (uint32_t i = 0; i < count; ++i) {
        ViewColor(kind, COLOR_CYAN);
        ByteCharacter(kind, row[i]);
        ViewColor(kind, COLOR_NORMAL);
    }
}

// The end of a page: the paged view waits for a key here.
static int PageEnd(ViewKind kind) {
    ViewNewLine(kind);
    if (kind == VIEW_PAGED && OutputIsLost())
        return KEY_ESC; // nobody sees what would follow, and reading it may not be harmless
    if (kind == VIEW_PLAIN || (DispHas(DISP_LOG) && !isKeyBoardHit()))
        return DEBUG_MSG_NO_KEY;
    return getch();
}

static int ShowBytes(ViewKind kind, const uint8_t *data, uint32_t length) {
    int key = DEBUG_MSG_NO_KEY;
    Header(kind, length);
    for (uint64_t offset = 0; offset < length; offset += ROW_BYTES) {
        if (offset > 0)
            RowLabel(kind, offset);
        uint64_t left = length - offset;
        Row(kind, data + offset, left < ROW_BYTES ? static_cast<uint32_t>(left) : ROW_BYTES);
        if ((offset + ROW_BYTES) % VIEW_PAGE_BYTES == 0)
            key = PageEnd(kind);
    }
    // A last row of 241 to 255 bytes has ended a page already and ends the view too: two pauses.
    if (length % VIEW_PAGE_BYTES != 0)
        key = PageEnd(kind);
    return key;
}

int DebugMsg(const uint8_t *data, uint32_t length) {
    if (!DispHas(DISP_DUMP) || data == nullptr || length == 0)
        return DEBUG_MSG_NO_KEY;
    return ShowBytes(VIEW_PAGED, data, length);
}

int DebugMsgTxt(const uint8_t *data, uint32_t length) {
    if (data == nullptr || length == 0)
        return NO_DATA;
    ShowBytes(VIEW_PLAIN, data, length);
    return 0;
}
