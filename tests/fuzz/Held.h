// What the program has taken of the heap and opened as streams in a run, so that it can be taken back.
#pragma once

#include <stddef.h>
#include <stdio.h>

// A block, or null; freed with those of the program.
void *HoldBlock(void *block);
FILE *HoldStream(FILE *stream);
void TakeBackHeld();

// The program's block of that number from now on, in this run, is refused; 1 is the next one.
void RefuseBlock(unsigned number);
