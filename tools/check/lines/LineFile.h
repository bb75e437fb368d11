// What /MEM /RF and /IO /RF do.
#pragma once

#include "tools/check/lines/Line.h"

// Answers for a line of that command.
void AnswerFile(Line *line);
