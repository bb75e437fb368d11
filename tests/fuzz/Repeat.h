// Whether a run depends on those before it: some inputs are run again in a fresh process, which has to give
// the same output, the same files, the same exit status and the same accesses.
#pragma once

#include "Fuzzers.h"

// Records the run that has just ended: its status ("left" where it was left in the middle), its output, its
// accesses, its files.
void Record(bool left);
// Writes the record to standard output.
void ShowRecord();

// Who is to run an input again, and the options, one of which may say where findings go.
void RepeatIn(const char *program, const char *name, char **options);
// Runs the input in a fresh process. Ends this one with a message where the record is another; both are
// beside the findings then.
void RepeatAndCompare(Input input);
