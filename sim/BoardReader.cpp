#include "BoardReader.h"

#include "Arena.h"
#include "Contents.h"
#include "Keywords.h"
#include "Mistake.h"

#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr uint64_t CAPTURE_FORMAT = 1;
constexpr uint64_t MAX_BOARD_FILE = static_cast<uint64_t>(64) << 20;
constexpr int MAX_DEPTH = 16;
constexpr int MAX_INCLUDES = 1000; // of a board, so that files that include others twice come to an end

// Of the file that is being read.
struct Reading {
    bool begun;   // a statement came
    bool capture; // the first one was "capture"
    bool ended;   // the last one was "end"
    int depth;
};

Reading *gReading;
int gIncludes;

// Statements that are the reader's own; all others are devices' and settings'.
const Keyword READER_KEYWORDS[] = {
    {"include", "NAME", IncludeLine},
    {"capture", "FORMAT", CaptureLine},
    {"end", "", EndLine},
};

const Keyword *FindStatement(const char *word) {
    for (const Keyword &keyword : READER_KEYWORDS)
        if (strcmp(keyword.word, word) == 0)
            return &keyword;
    return FindKeyword(word);
}

void CarryOut(void *argument) {
    BoardLine *line = static_cast<BoardLine *>(argument);
    const Keyword *keyword = FindStatement(line->words[0]);
    bool first = !gReading->begun;
    gReading->begun = true;
    if (gReading->ended)
        LineFail(line, "nothing may follow \"end\"", line->words[0]);
    if (!keyword)
        LineFail(line, "unknown keyword", line->words[0]);
    if (keyword->carryOut == CaptureLine && !first)
        LineFail(line, "not the first line of the file", line->words[0]);
    line->operands = keyword->operands;
    keyword->carryOut(line);
    LineComplete(line);
}

struct NextLine {
    BoardLine line;
    char *at;
};

void Cut(void *argument) {
    NextLine *next = static_cast<NextLine *>(argument);
    char *at = next->at;
    // Known before it is cut, for after a mistake.
    char *newline = strchr(at, '\n');
    next->at = newline ? newline + 1 : at + strlen(at);
    next->line.count = 0;
    LineCut(&next->line, at);
    if (next->line.count != 0)
        CarryOut(&next->line);
}

bool IsText(char character) {
    uint8_t byte = static_cast<uint8_t>(character);
    return byte >= ' ' ? byte != 0x7F : byte == '\n' || byte == '\t';
}

// A file of lines has no other control characters, and carriage returns only in front of a line feed.
void NeedText(BoardLine *line, const char *at, const char *end) {
    line->number = 1;
    for (; at < end; at++) {
        bool endsLine = *at == '\r' && at + 1 < end && at[1] == '\n';
        if (!IsText(*at) && !endsLine)
            LineFail(line, "not a text file: it has control characters", nullptr);
        line->number += *at == '\n';
    }
    line->number = 0;
}

const char *WithoutMark(const char *contents) { // of UTF-8
    return strncmp(contents, "\xEF\xBB\xBF", 3) == 0 ? contents + 3 : contents;
}

void ReadLines(const char *path, char *contents, uint64_t length, int depth) {
    Reading reading = {false, false, false, depth};
    NextLine *next = static_cast<NextLine *>(ArenaTake(sizeof(NextLine)));
    next->line.path = path;
    NeedText(&next->line, contents, contents + length);
    next->at = contents + (WithoutMark(contents) - contents);
    gReading = &reading;
    while (*next->at) {
        next->line.number++;
        MistakeTry(Cut, next);
        gReading = &reading; // a mistake may have come out of an included file
    }
    if (!reading.begun)
        LineFail(&next->line, "the file describes nothing", nullptr);
    if (reading.capture && !reading.ended)
        LineFail(&next->line, "the file is cut off: its last line is not \"end\"", nullptr);
}

void ReadFile(const BoardLine *from, const char *path, int depth) {
    uint64_t length;
    int descriptor = OpenContents(from, path, MAX_BOARD_FILE, &length);
    char *contents = static_cast<char *>(ArenaTake(length + 1));
    ReadContents(from, descriptor, path, contents, length);
    ReadLines(path, contents, length, depth);
}

bool Exists(const char *path) {
    return syscall(SYS_access, path, F_OK) == 0;
}

// Where the file is that an "include" names.
const char *IncludedPath(const BoardLine *line) {
    const char *name = LineWord(line, 1);
    const char *beside = PathBeside(line, name);
    const char *folder = getenv("HWBOARD_PATH");
    if (Exists(beside) || !folder)
        return beside;
    const char *installed = PathIn(folder, name);
    return Exists(installed) ? installed : beside;
}

} // namespace

void ReadBoardFile(const char *path) {
    BoardLine none = {};
    none.path = path;
    gIncludes = 0;
    ReadFile(&none, path, 0);
    MistakePlace(nullptr, 0);
}

void IncludeLine(BoardLine *line) {
    Reading *reading = gReading;
    if (reading->depth == MAX_DEPTH || gIncludes == MAX_INCLUDES)
        LineFail(line, "board files include each other", LineWord(line, 1));
    gIncludes++;
    ReadFile(line, IncludedPath(line), reading->depth + 1);
    gReading = reading;
}

void CaptureLine(BoardLine *line) {
    if (LineNumber(line, 1, UINT32_MAX) != CAPTURE_FORMAT)
        LineFail(line, "this format of captures is not known", line->words[1]);
    gReading->capture = true;
}

void EndLine(BoardLine *line) {
    if (!gReading->capture)
        LineFail(line, "no \"capture\" line comes before", line->words[0]);
    gReading->ended = true;
}
