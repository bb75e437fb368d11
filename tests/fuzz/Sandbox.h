// What keeps a run inside the process: its files lie in memory, its output goes nowhere, it ends in bounded
// time if it was not caught in a loop that does nothing, and what it held is taken back.
#pragma once

#include <stddef.h>
#include <sys/types.h>

// Around each run. What is recorded of it: its output, and the board's log.
void SandboxBegin(bool recorded);
void SandboxEnd();

// Before the program itself, when the board is there: from here on its accesses and its output are bounded.
void EnterSandbox();
void LeaveSandbox();

// The text of the firmware's table file, in place of the board's.
void SetSystemTable(const char *text, size_t length);

// From now on, in this run, nobody takes what goes to standard output.
void LoseOutput();

// The next writes to it, so many, find that nobody has read yet.
void StallOutput(unsigned writes);

// Descriptor 0 for this run.
void SetStandardInput(int descriptor);

// The output of a recorded run.
const char *RecordedOutput(size_t *length);
// Its files, by numbers from 0 on; false behind the last one.
bool RecordedFile(int number, const char **name, int *descriptor);

// Leaves the run in the middle (Driver.cpp).
[[noreturn]] void LeaveRun();
