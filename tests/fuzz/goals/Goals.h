// The fuzzers by goal: each calls procedures of one matter with inputs of its own shape, and compares what
// they do. The head of each file says what it asserts.
#pragma once

#include "tests/fuzz/Fuzzers.h"

void FuzzNumbers(Input input);
void FuzzSwitches(Input input);
void FuzzFormat(Input input);
void FuzzSearch(Input input);
void FuzzPages(Input input);
void FuzzMemory(Input input);
void FuzzSmbios(Input input);
void FuzzAcpi(Input input);
void FuzzPci(Input input);
void FuzzCaps(Input input);
void FuzzPorts(Input input);
void FuzzSmbus(Input input);
void FuzzI2c(Input input);
void FuzzClock(Input input);
void FuzzPlatform(Input input);
void FuzzSequences(Input input);
void FuzzBoards(Input input);
void FuzzFiles(Input input);
void FuzzDoors(Input input);
void FuzzProcedures(Input input);
