// The words that a line of a board file may begin with.
#pragma once

#include "BoardFile.h"

struct Keyword {
    const char *word;
    const char *operands; // as docs/hwreg-board.5 shows them
    void (*carryOut)(BoardLine *line);
};

// Null for a word that is none.
const Keyword *FindKeyword(const char *word);
