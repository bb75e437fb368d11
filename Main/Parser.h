// From the argument vector to the command word and the argument record.
#pragma once

#include "Common/Global.h"

// Upper-cases the words in place, from element 1 on; the search switch "S" is the last one converted, so
// texts and file names behind it stay as typed.
void argvToUpper(char **argv);

// The command word: every word from element 1 on is tested against every switch word, operands too, and
// flags only accumulate.
CmdType TranslateCmd(char **argv);

// Fills the record (argc cut to 8 bits) and derives its display flags. Returns record, NULL for NULL.
CmdArg *setTypeCmdArg(CmdArg *record, CmdType cmd, int argc, char **argv);

// 1 when any of the six bytes is non-zero, else 0.
int isCmdTypeNotNULL(CmdType cmd);
