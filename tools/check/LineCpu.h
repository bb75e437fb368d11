// What /MSR and /CPUID do.
#pragma once

#include "tools/check/Line.h"

void AnswerCpu(Line *line);
