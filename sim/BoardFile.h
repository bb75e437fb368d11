// A line of a board file: words between blanks, '#' to the line's end is a comment, a word with blanks stands
// in double quotes. All numbers are hexadecimal, with or without 0x, but for CPU numbers, which are decimal.
#pragma once

#include <stdint.h>

constexpr int MAX_WORDS = 300;
constexpr int MAX_CPUS = 1024;
constexpr uint64_t MEMORY_END = static_cast<uint64_t>(1) << 32; // of what a board file may describe

// Where a line stands, for what can be told only when the whole board is known. The path is null for nowhere.
struct LinePlace {
    const char *path;
    int number;
};

struct BoardLine {
    const char *path;
    int number;
    bool captured; // of a capture, which tells what is there, whether anything leads to it or not
    int count;
    const char *words[MAX_WORDS];
    bool quoted[MAX_WORDS];
    mutable bool taken[MAX_WORDS]; // words that somebody has looked at: the others are too many
    const char *operands;          // what the keyword takes, for messages; null before it is known
};

// Cuts the text up to the line's end into words, in place.
void LineCut(BoardLine *line, char *at);

// Each of these takes its words. They stay valid for as long as the board is loaded.
const char *LineWord(const BoardLine *line, int index);
// The text in double quotes.
const char *LineText(const BoardLine *line, int index);
uint64_t LineNumber(const BoardLine *line, int index, uint64_t maximum);
// A number that is not 0.
uint64_t LineCount(const BoardLine *line, int index, uint64_t maximum);
// A byte of a dump: two digits, or "??" where nobody knows it, which reads FFh.
uint8_t LineByte(const BoardLine *line, int index);
// True when the word is there and is this one.
bool LineHas(const BoardLine *line, int index, const char *word);
// The same for a word that may stand in the line once.
bool LineOption(const BoardLine *line, int index, const char *word);
// An address below 4 GiB, and the length of what lies there, not 0, in the word behind it.
uint64_t LineAddress(const BoardLine *line, int index);
uint64_t LineLength(const BoardLine *line, int index, uint64_t address);
// Adds the CPUs named by the word ("5", "0-3" or "0-3,5") to the set.
void LineCpuSet(const BoardLine *line, int index, bool *set);

// Fails when a word is left that nobody has taken.
void LineComplete(const BoardLine *line);

// Reads hexadecimal digits, with or without 0x, and moves on; false when there are none or too many.
bool TakeHex(const char **at, uint64_t *value);

// Tells of a mistake: the file name, the line number, the message and the word that it is about (or null).
[[noreturn]] void LineFail(const BoardLine *line, const char *message, const char *word);
