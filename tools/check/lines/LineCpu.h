// What /MSR and /CPUID do.
#pragma once

#include "tools/check/lines/Line.h"

// Answers for a line of that command.
void AnswerCpu(Line *line);
