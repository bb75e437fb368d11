// What /MEM does.
#pragma once

#include "tools/check/lines/Line.h"

// Answers for a line of that command.
void AnswerMemory(Line *line);
