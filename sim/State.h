// The state of the machine in a file, so that one run begins where the one before has ended.
#pragma once

// Once the board is loaded, and for the life of the process: memory and registers are those in the file, and
// what changes in them changes there, whatever becomes of the process. A file that is not there or empty gets
// them as the board describes them; `anew` does that with the state of any board. No other process has the
// file at the same time: this one waits for it. Ends the process with exit status 125 and a message where the
// file is none for this board.
void StateTake(const char *path, bool anew);
