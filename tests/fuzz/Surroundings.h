// What a run has to leave as it was: descriptors, flags and modes of standard input, signals.
#pragma once

void NoteSurroundings();
// At the program's end.
void CheckSurroundings();
// After each run: signal actions and what else the program's end would have taken with it; where it was left
// in the middle also the rest.
void PutBackSurroundings(bool left);
