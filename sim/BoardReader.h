// Reading a board file and those that it includes, line for line.
#pragma once

#include "BoardFile.h"

// Carries out each line of the file through the keyword table (Keywords.cpp).
void ReadBoardFile(const char *path);

// "include NAME" reads another file at that place: NAME from the folder of the file that names it, else from
// the folder that HWBOARD_PATH names.
void IncludeLine(BoardLine *line);

// "capture 1", as the first statement of a file, and "end", as its last one then: one that was cut off is
// known.
void CaptureLine(BoardLine *line);
void EndLine(BoardLine *line);
