// What /IO and /IO /INDEX do.
#pragma once

#include "tools/check/lines/Line.h"

// Answers for a line of that command.
void AnswerIo(Line *line);

// Cautions for ports that others use, and for those that do something when they are written. count ports from
// there on are accessed.
void CautionOfPorts(Line *line, uint32_t port, uint32_t count, bool writes);
