// Mistakes: in a board file, of the program under test, of the simulator's own limits.
#pragma once

#include <stddef.h>

// The exit status of a process that was told or asked for something that the board does not have.
constexpr int MISTAKE_STATUS = 125;

// The line of a board file that the next messages are about: 0 for the file as a whole, a null path for none.
void MistakePlace(const char *path, int number);

// Ends the process with a message on one line: "FILE:LINE: ..." for a board file's, else "board: ...".
[[noreturn]] void BoardFail(const char *format, ...) __attribute__((format(printf, 1, 2)));

// From now on a mistake within MistakeTry is told, counted and left behind: the procedure goes no further,
// and whoever tried it does.
void MistakesCollect();
void MistakeTry(void (*procedure)(void *argument), void *argument);
// Ends the process: status 0 when there were no mistakes.
[[noreturn]] void MistakesEnd();

// Runs the procedure and comes back from its mistakes: they are told in the text, cut to its size, a line
// each, and not on standard error. The first one ends it, or, of all, each what was tried. How many there
// were.
int MistakesCatch(void (*procedure)(void *argument), void *argument, bool all, char *text, size_t size);
