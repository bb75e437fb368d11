// What one command line of hwreg would do here, and whether it works.
#pragma once

#include "tools/check/lines/CommandLines.h" // IWYU pragma: export
#include "tools/check/lines/Verdict.h"      // IWYU pragma: export

// Answers for the words as hwreg would get them, argv[0] a program's name. They are not changed. FindAll must
// have been called.
void AnswerLine(int argc, char **argv, Answer *answer);
