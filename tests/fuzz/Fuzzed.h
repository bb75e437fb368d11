// What belongs to the library of the program's modules beside them.
#pragma once

#include "sim/Direct.h"

extern "C" {

// Of the board that is in place.
extern BoardWindow gWindow;

// Where the library keeps how often each edge was taken.
void FuzzedCounters(uint8_t **start, uint8_t **stop);

// The program has left what is mapped of the memory.
[[noreturn]] void FailBeyondMapping();
}
