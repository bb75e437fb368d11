// What /SIO, /SMN and /SMU do.
#pragma once

#include "tools/check/Line.h"

// Each answers for a line of its command; the second for /SMU, too.
void AnswerSio(Line *line);
void AnswerNbio(Line *line);
