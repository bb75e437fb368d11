// The words that a line of a board file may begin with.
#pragma once

#include "BoardFile.h"

// Calls the procedure that belongs to the line's first word.
void CarryOutKeyword(BoardLine *line);
