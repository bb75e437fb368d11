// What /MEM does.
#pragma once

#include "tools/check/Line.h"

void AnswerMemory(Line *line);
