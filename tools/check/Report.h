// What is said to people: plain text of at most 100 columns.
#pragma once

#include "tools/check/Answer.h"

// "works", "refused" or "other"; "good", "caution", "bad" or "unknown".
const char *NameOfVerdict(Verdict verdict);
const char *NameOfState(State state);

// The findings, those that are bad first, and in front of them a configuration window that is elsewhere.
void PutFindings();

// The heading of the table of commands, and a line of it.
void PutTableHead();
void PutTableLine(const char *words, const Answer *answer);

// All about one command line; the words are count of them.
void PutAnswer(int count, char **words, const Answer *answer);
