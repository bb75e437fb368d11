// What /SIO, /SMN and /SMU do.
#pragma once

#include "tools/check/lines/Line.h"

// Each answers for a line of its command; the second for /SMU, too.
void AnswerSio(Line *line);
void AnswerNbio(Line *line);
