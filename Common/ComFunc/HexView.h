// The two hexadecimal views in which commands show the bytes that they read: rows of 16 bytes with their
// characters (0x20..0x7F as they are, "." for the rest), lines ended by CR LF.
#pragma once

#include <cstdint>

// Bytes of a page: the views pause behind each, and commands read as much at a time.
constexpr uint32_t VIEW_PAGE_BYTES = 256;

// DebugMsg's result when nothing was shown or no key was read.
constexpr int DEBUG_MSG_NO_KEY = 255;

// The coloured view, with a pause for a key after every 256 bytes and at the end. In log mode (DISP_LOG)
// it pauses only when a key is waiting already. Returns the key of the last pause (27 is the wish to
// stop, -1 the end of input); 27 without a pause when output is lost; 255 without one, and when nothing is
// shown: DISP_DUMP clear, NULL or empty data.
int DebugMsg(const uint8_t *data, uint32_t length);

// The same layout without colours, display flags and pauses. 0, or 31 for NULL or empty data.
int DebugMsgTxt(const uint8_t *data, uint32_t length);
