// What the register commands share: which access the command line asks for, the access itself and its report.
// Width and space are data here; a command brings its operands and its wording.
#pragma once

#include "Base/Types.h"
#include "BasicLib/Place.h"
#include "Common/Global.h"

enum AccessWidth { ACCESS_NONE, ACCESS_BIT, ACCESS_BYTE, ACCESS_WORD, ACCESS_DWORD };
constexpr size_t ACCESS_WIDTHS = ACCESS_DWORD + 1;

// The access that a command line asks for. Both directions may be asked for at once.
struct AccessForm {
    AccessWidth width;
    bool reads;
    bool writes;
    uint16_t pos; // of the switch word in the argument vector; its operands follow
};

// The wording of a command for a width: what stands before "return data:". The conversions take the numbers
// of the place in the space's order and then the data or the bit number, 32 bits each.
struct AccessText {
    const char *read;
    const char *write;
};

// Position of the width's write or read switch word in the argument vector; the write word is looked for
// first. False without one.
bool FindWidth(AccessWidth width, uint16_t *pos);

// The first width, in the order bit, byte, word, dword, whose write or read switch word is in the argument
// vector; the write word is looked for first. The directions are those of the command word cmd in that width.
// ACCESS_NONE without one.
AccessForm FindAccess(CmdType cmd);

// The form that one argument word at position pos asks for, as a write or a read; ACCESS_NONE for any other
// word.
AccessForm AccessOfWord(CmdType cmd, const char *word, uint16_t pos);

// The form of the first word behind the program name that asks for an access or a dump (ACCESS_NONE). False
// without one.
bool FindFirstForm(CmdType cmd, AccessForm *form);

// Bytes of a data width: 1, 2 or 4; 0 for a bit and for no access.
uint32_t AccessBytes(AccessWidth width);

// The value cut to the width; a bit is not cut, and no access leaves 0.
uint32_t CutToWidth(AccessWidth width, uint32_t value);

// Announces an access of byte, word or dword in the command's wording (indexed by AccessWidth), writes the
// data if that is asked for, reads and reports. Returns the value read, cut to the width.
uint32_t AccessData(const AccessForm *form, const AccessText *texts, const Place *at, uint32_t data);

// The same for a bit: of both directions each is announced. Returns the bit read.
uint32_t AccessBit(const AccessForm *form, const AccessText *texts, const Place *at, uint32_t bit,
                   uint8_t value);

// Prints "return data:" with the value in the width's format; returns the value cut to the width.
uint32_t ReportData(AccessWidth width, uint32_t value);

// Shows a space of single bytes (SPACE_IO, SPACE_MEMORY) from the operand of /DUMP on in pages of 256 bytes,
// each behind a prompt with its address, until ESC or the end of the space; without the hex view one page is
// read. 0, 0x80000002 without the word, 0x80000005 without a buffer.
EFI_STATUS DumpPages(Space space, const char *prompt);
