// What /MEM /RF and /IO /RF do.
#pragma once

#include "tools/check/Line.h"

void AnswerFile(Line *line);
