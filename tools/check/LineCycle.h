// What /RTC, /SHUTDOWN and /TIMEOUT do.
#pragma once

#include "tools/check/Line.h"

void AnswerCycle(Line *line);
