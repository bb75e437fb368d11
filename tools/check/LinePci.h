// What /PCI does.
#pragma once

#include "tools/check/Line.h"

void AnswerPci(Line *line);
