// What /RTC, /SHUTDOWN and /TIMEOUT do.
#pragma once

#include "tools/check/lines/Line.h"

// Answers for a line of that command.
void AnswerCycle(Line *line);
