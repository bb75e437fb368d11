// What a line means beside its command: words that nobody takes, and words of other commands.
#pragma once

#include "tools/check/Line.h"

// The command's switch word, "/IO".
const char *CommandName(const Line *line);

// Cautions, before all others, for words that are ignored and for those that mean another command. To be
// called behind the command, which marks its operands.
void JudgeOtherWords(Line *line);

// A caution for a "/?" that a shell may have turned into something else.
void JudgeHelpWord(Line *line);
