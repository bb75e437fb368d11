// Command lines for the program, and the program's run.
#pragma once

#include "Fuzzers.h"

// The words of a command line, each in a block of its own, so that the sanitizer sees the end of each; the
// program's name before them, a null pointer behind.
constexpr int MAX_WORDS = 300;
struct Words {
    int count;
    char *words[MAX_WORDS + 1];
};

void BeginWords(Words *words);
// Adds a word; what is too much, and what lies behind a NUL, is left out.
void AddWord(Words *words, const char *text, size_t length);
// Adds what stands between separators; empty ones count only between two of them.
void AddWords(Words *words, const char *text, size_t length, char separator);

// Reads the list NAME.commands of this folder: a board and a command line in each line, comments behind '#'.
void ReadCommands(const char *name);
// Loads the board of the line that a number stands for (counted from 0, from the start again behind the last)
// and gives the words of its command line.
void ChooseCommand(unsigned number, Words *words);

// The program from its start to its end. Descriptors, terminal, signal mask and input flags have to be
// afterwards as they were before.
void RunProgram(Words *words);
// The same for a procedure that needs the hardware, between opening and closing it.
void RunWithHardware(void (*procedure)(int count, char **words), Words *words);
// What the last one has returned.
int RunStatus();
