// Reading a board file: lines of words, '#' to the line's end is a comment, a word with blanks stands in
// double quotes. All numbers are hexadecimal, with or without 0x, but for CPU numbers, which are decimal.
#pragma once

#include <stdint.h>

constexpr int MAX_WORDS = 300;

struct BoardLine {
    const char *path;
    int number;
    int count;
    const char *words[MAX_WORDS];
};

// Reads the file, carrying out each line through the keyword table (Keywords.cpp). "include NAME" reads
// another file at that place; a relative name counts from the folder of the file that names it. `from` is the
// line that includes it, null for none. A file whose first statement is "capture 1" has "end" as its last
// one, so that one which was cut off is known.
void ReadBoardFile(const char *path, const BoardLine *from);

// The words stay valid for as long as the board is loaded.
const char *LineWord(const BoardLine *line, int index);
uint64_t LineNumber(const BoardLine *line, int index, uint64_t maximum);
// A byte of a dump: two digits, or "??" where nobody knows it, which reads FFh.
uint8_t LineByte(const BoardLine *line, int index);
// True when the word is there and is this one.
bool LineHas(const BoardLine *line, int index, const char *word);
// Adds the CPUs named by the word ("5", "0-3" or "0-3,5") to the set.
void LineCpuSet(const BoardLine *line, int index, bool *set);
// A file name, from the folder of the board file; the result stays valid.
const char *LinePath(const BoardLine *line, int index);
// The whole file into storage that stays valid, with a 0 behind it. `line` is the one that names it, null for
// none.
uint8_t *ReadWholeFile(const BoardLine *line, const char *path, uint64_t *length);

// Ends the process with the file name, the line number, the message and the word that it is about (or null).
[[noreturn]] void LineFail(const BoardLine *line, const char *message, const char *word);
