// The doors themselves have the names of libc's functions and no header of their own.
#pragma once

// After a new board was loaded: descriptors of its memory are recognised again.
void DoorsReset();
