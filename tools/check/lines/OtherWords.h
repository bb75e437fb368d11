// What a line means beside its command: words that nobody takes, and words of other commands.
#pragma once

#include "tools/check/lines/Line.h"

// The command's switch word, "/IO".
const char *CommandName(const Line *line);

// Cautions, before all others, for words that are ignored and for those that mean another command. To be
// called behind the command, which marks its operands.
void JudgeOtherWords(Line *line);

// Cautions for "--help", which is none and stands before all others, and for a "/?" that a shell may turn
// into something else.
void JudgeHelpWord(Line *line);
