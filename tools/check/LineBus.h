// What /SMBUS and /I2C do.
#pragma once

#include "tools/check/Line.h"

void AnswerSmbus(Line *line);
void AnswerI2c(Line *line);
