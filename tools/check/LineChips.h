// What /SIO, /SMN and /SMU do.
#pragma once

#include "tools/check/Line.h"

void AnswerSio(Line *line);
void AnswerNbio(Line *line);
