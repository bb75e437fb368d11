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

// A row goes out in one piece: byte by byte and colour by colour a view would take five times as long. The
// room is for the longest, which has its label and a colour around each cell and each character.
constexpr size_t COLOR_ROOM = 7, CELL_ROOM = 3, LABEL_ROOM = 2 + CELL_ROOM + 2 * COLOR_ROOM, GAP_ROOM = 7;
constexpr size_t ROW_ROOM = LABEL_ROOM + ROW_BYTES * (CELL_ROOM + 1 + 4 * COLOR_ROOM) + GAP_ROOM;

struct RowText {
    ViewKind kind;
    size_t length;
    char text[ROW_ROOM + 1];
};

static void AddText(RowText *row, const char *text) {
    while (*text != 0)
        row->text[row->length++] = *text++;
}

static void AddColor(RowText *row, uint16_t number) {
    if (row->kind == VIEW_PAGED)
        AddText(row, ColorText(number));
}

static void AddDigit(RowText *row, uint32_t digit) {
    row->text[row->length++] = "0123456789ABCDEF"[digit];
}

static void AddByte(RowText *row, uint8_t byte) {
    AddDigit(row, byte >> 4);
    AddDigit(row, byte & 0x0F);
}

static void PutText(ViewKind kind, const char *text) {
    if (kind == VIEW_PAGED)
        fputs(text, stdout);
    else
        Printf("%s", text);
}

static void PutRow(RowText *row) {
    row->text[row->length] = 0;
    PutText(row->kind, row->text);
    row->length = 0;
}

static void Header(RowText *row, uint32_t length) {
    uint32_t columns = length < ROW_BYTES ? length : ROW_BYTES;
    AddText(row, "  ");
    AddColor(row, COLOR_YELLOW);
    for (uint32_t i = 0; i < ROW_BYTES; ++i) {
        AddText(row, i < columns ? " 0" : "   ");
        if (i < columns)
            AddDigit(row, i);
    }
    AddText(row, gBlankSpace);
    AddText(row, " ");
    for (uint32_t i = 0; i < columns; ++i)
        AddDigit(row, i);
    AddText(row, "\r\n00 ");
    AddColor(row, COLOR_NORMAL);
    PutRow(row);
}

static void RowLabel(RowText *row, uint64_t offset) {
    AddText(row, "\r\n");
    AddColor(row, COLOR_YELLOW);
    AddByte(row, static_cast<uint8_t>(offset >> 4));
    AddText(row, " ");
    AddColor(row, COLOR_NORMAL);
}

// The cells of count (1..16) bytes, then their characters.
static void Row(RowText *row, const uint8_t *data, uint32_t count) {
    for (uint32_t i = 0; i < ROW_BYTES; ++i) {
        AddColor(row, COLOR_BRIGHT_RED);
        if (i < count)
            AddByte(row, data[i]);
        AddText(row, i < count ? " " : "   ");
        AddColor(row, COLOR_NORMAL);
    }
    AddText(row, gBlankSpace);
    for (uint32_t i = 0; i < count; ++i) {
        bool printable = data[i] >= 0x20 && data[i] <= 0x7F;
        AddColor(row, COLOR_CYAN);
        row->text[row->length++] = printable ? static_cast<char>(data[i]) : '.';
        AddColor(row, COLOR_NORMAL);
    }
    PutRow(row);
}

// The end of a page: the paged view waits for a key here.
static int PageEnd(ViewKind kind) {
    PutText(kind, "\r\n");
    if (kind == VIEW_PAGED && OutputIsLost())
        return KEY_ESC; // nobody sees what would follow, and reading it may not be harmless
    if (kind == VIEW_PLAIN || (DispHas(DISP_LOG) && !isKeyBoardHit()))
        return DEBUG_MSG_NO_KEY;
    return getch();
}

static int ShowBytes(ViewKind kind, const uint8_t *data, uint32_t length) {
    int key = DEBUG_MSG_NO_KEY;
    RowText row;
    row.kind = kind;
    row.length = 0;
    Header(&row, length);
    for (uint64_t offset = 0; offset < length; offset += ROW_BYTES) {
        if (offset > 0)
            RowLabel(&row, offset);
        uint64_t left = length - offset;
        Row(&row, data + offset, left < ROW_BYTES ? static_cast<uint32_t>(left) : ROW_BYTES);
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
