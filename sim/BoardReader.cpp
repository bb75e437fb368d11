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

// The line that is read next.
struct NextLine {
    BoardLine line;
    char *at;
};

void CarryOut(BoardLine *line, bool first) {
    const Keyword *keyword = FindStatement(line->words[0]);
    if (gReading->ended)
        LineFail(line, "nothing may follow \"end\"", line->words[0]);
    if (!keyword)
        LineFail(line, "unknown keyword", line->words[0]);
    if (keyword->carryOut == CaptureLine && !first)
        LineFail(line, "not the first line of the file", line->words[0]);
    line->operands = keyword->operands;
    line->captured = gReading->capture;
    keyword->carryOut(line);
    LineComplete(line);
}

bool IsEmpty(const char *at) {
    at += strspn(at, " \t\r");
    return *at == 0 || *at == '\n' || *at == '#';
}

void ReadLine(void *argument) {
    NextLine *next = static_cast<NextLine *>(argument);
    char *at = next->at;
    char *newline = strchr(at, '\n');
    next->at = newline ? newline + 1 : at + strlen(at); // where it goes on after a mistake, too
    if (IsEmpty(at))
        return;
    bool first = !gReading->begun;
    gReading->begun = true;
    LineCut(&next->line, at);
    CarryOut(&next->line, first);
}

// A file of lines has no other control characters, and carriage returns only in front of a line feed.
bool IsText(const char *at) {
    uint8_t byte = static_cast<uint8_t>(*at);
    if (byte >= ' ')
        return byte != 0x7F;
    return byte == '\n' || byte == '\t' || (byte == '\r' && at[1] == '\n');
}

void NeedText(BoardLine *line, const char *contents, uint64_t length) {
    const char *end = contents + length;
    const char *at = contents;
    while (at < end && IsText(at))
        at++;
    if (at == end)
        return;
    line->number = 1;
    while (at > contents)
        line->number += *--at == '\n';
    LineFail(line, "not a text file: it has control characters", nullptr);
}

const char *WithoutMark(const char *contents) { // of UTF-8
    return strncmp(contents, "\xEF\xBB\xBF", 3) == 0 ? contents + 3 : contents;
}

void ReadLines(const char *path, char *contents, uint64_t length, int depth) {
    Reading reading = {false, false, false, depth};
    NextLine *next = static_cast<NextLine *>(ArenaTake(sizeof(NextLine)));
    next->line.path = path;
    NeedText(&next->line, contents, length);
    next->at = contents + (WithoutMark(contents) - contents);
    gReading = &reading;
    while (*next->at) {
        next->line.number++;
        MistakeTry(ReadLine, next);
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
