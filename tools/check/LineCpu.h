// What /MSR and /CPUID do.
#pragma once

#include "tools/check/Line.h"

// Answers for a line of that command.
void AnswerCpu(Line *line);
