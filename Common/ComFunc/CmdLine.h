// Switch words and operands in the argument vector.
#pragma once

#include <initializer_list>

#include "Base/Types.h"

// Tests one argument word against one switch word: equal as it stands or behind "/", "-" or "\".
// 0 on a match, 0x8000000E without one, 0x80000005 for a switch word of more than 20 characters,
// 0x80000015 when either is NULL.
EFI_STATUS CmdSearchFromBuffer(const char *word, const char *key);

// Index of the first element (from element 0 on) that matches the switch word, stored in *pos unless pos
// is NULL. 0, 0x8000000E without a match, 0x80000015 for an empty vector or a NULL key.
EFI_STATUS CmdSearchFromArgv(char **argv, const char *key, uint16_t *pos);

// Index of the first element of gCmdArg's vector that matches the first of these switch words that is there
// at all, stored in *pos unless pos is NULL. False without one.
bool CmdFind(std::initializer_list<const char *> keys, uint16_t *pos);

// The same in another vector.
bool CmdFindIn(char **argv, std::initializer_list<const char *> keys, uint16_t *pos);

// The argument word count places after the one at position pos of gCmdArg's vector; NULL when the
// vector ends before it, however far beyond.
const char *CmdArgText(uint16_t pos, unsigned count);

// The same word as a number; a missing operand is 0.
uint64_t CmdOperand(uint16_t pos, unsigned count);

// The same cut to its low 8, 16 or 32 bits.
uint8_t OperandByte(uint16_t pos, unsigned count);
uint16_t OperandWord(uint16_t pos, unsigned count);
uint32_t OperandDword(uint16_t pos, unsigned count);
