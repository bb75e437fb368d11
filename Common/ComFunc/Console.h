// The terminal: colours, single keys, screen.
//
// No command reaches: setColor, GotoXY, DisplayPositionXY, ShowTitle.
#pragma once

#include "Base/Types.h"

constexpr int KEY_ESC = 27;

// Colour numbers of setColor that the program uses.
enum Color : uint16_t {
    COLOR_CYAN = 3,
    COLOR_YELLOW = 6,
    COLOR_NORMAL = 7,
    COLOR_BRIGHT_RED = 12,
};

// The escape sequence of a colour number (ECMA-48, 8.3.117 SGR), of 4 or 7 letters; numbers without a colour
// reset to normal. An empty text in text mode (DISP_TEXT).
const char *ColorText(uint16_t number);

// Writes that text.
void setColor(uint16_t number);

// Waits for one byte of a key, without echo; the terminal's modes are as before afterwards. EOF (-1) at
// the end of input. A function key arrives byte by byte, its 27 first. While signals are held, 27 also when
// one has come. A background job stops here until it is in the foreground again, and gets 27 while signals
// are held.
int getch();

// 1 when a byte is waiting on standard input, else 0; nothing is consumed and nothing waited for. Always 0 in
// a background job, which does not touch the terminal.
int isKeyBoardHit();

// The waiting key, 0 without one.
int GetKBKey();

// Cursor positioning is not supported on this platform: does nothing.
void GotoXY(uint32_t position);

// Prints the formatted text, cut to 255 bytes, at the place that GotoXY would move to.
void DisplayPositionXY(uint32_t x, uint32_t y, const char *format, ...);

// Asks for a key and prints gTitle unless it is ESC. Returns the key.
int ShowTitle();
