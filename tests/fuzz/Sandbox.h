// What keeps a run inside the process: its files lie in memory, its output goes nowhere, and it ends in
// bounded time if it was not caught in a loop that does nothing.
#pragma once

#include <stddef.h>

// Before the run. With HWREG_FUZZ_SHOW in the environment output goes where it should and is not limited.
void EnterSandbox();

// The text of the firmware's table file, in place of the board's.
void SetSystemTable(const char *text, size_t length);
