// What /PCI does.
#pragma once

#include "tools/check/lines/Line.h"

// Answers for a line of that command.
void AnswerPci(Line *line);
