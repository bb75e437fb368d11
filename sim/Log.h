// The record of all accesses in order. A line is composed here and written whole, with one write to a
// descriptor in append mode, so that nothing is missing when the process is killed in the middle.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Opens the file for appending; null for none.
void LogOpenFile(const char *path);
// Keeps the lines in memory as well, for LogText.
void LogKeep();
// While it pauses lines are counted, but neither composed nor written.
void LogPause(bool pause);
bool LogPauses();
void LogClear();
const char *LogText();

// `leave` is called when more than so many accesses have been counted, and does not return. A line counts as
// one.
void LimitAccesses(uint64_t accesses, void (*leave)());
void CountAccesses(uint64_t count);

struct LogLine {
    char text[512];
    size_t length;
};

void LogBegin(LogLine *line, const char *text);
void LogAdd(LogLine *line, const char *text);
// Lower-case hexadecimal with at least `digits` digits.
void LogAddHex(LogLine *line, uint64_t value, int digits);
// Little-endian bytes as one number, two digits a byte.
void LogAddBytes(LogLine *line, const uint8_t *bytes, unsigned count);
// " -> ok" for 0, " -> EPERM" and so on for an error number.
void LogAddResult(LogLine *line, int error);
void LogEnd(LogLine *line);

// The name of an error number ("EPERM"; "E?" for one without a name here), and the way back: 0 for no such
// name.
const char *ErrorName(int error);
int ErrorNumber(const char *name);
