// What lasts from run to run in a process is put back before each run: the program's variables (all data of
// the library that holds its modules), the board's variables and storage, and the board's memory.
#pragma once

// Once, at the start.
void StateStart();
// Before each run: the program's variables are as they were at the start.
void StateBegin();
// In a run: a board of this folder as it is just after it was loaded.
void LoadBoard(const char *name);
// After each run.
void StateEnd();
