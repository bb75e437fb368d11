// What /SMBUS and /I2C do.
#pragma once

#include "tools/check/lines/Line.h"

// Each answers for a line of its command.
void AnswerSmbus(Line *line);
void AnswerI2c(Line *line);
