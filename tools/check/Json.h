// What is said to scripts: one JSON object (RFC 8259) in ASCII.
#pragma once

#include "tools/check/Answer.h"

// One object for a command line; the words are count of them.
void PutJsonAnswer(int count, char *const *words, const Answer *answer);

// The whole report: its head with the findings, then an answer for each command line, and its end.
void PutJsonHead();
void PutJsonComma();
void PutJsonEnd();
