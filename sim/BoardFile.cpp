#include "BoardFile.h"

#include "Arena.h"
#include "Keywords.h"
#include "Settings.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int MAX_INCLUDE_DEPTH = 16;
constexpr uint64_t CAPTURE_FORMAT = 1;
int gIncludeDepth;

// Cuts one line into words, in place; returns where the next line begins.
char *CutLine(char *at, BoardLine *line) {
    line->count = 0;
    while (*at && *at != '\n') {
        if (*at == ' ' || *at == '\t' || *at == '\r') {
            at++;
            continue;
        }
        if (*at == '#') {
            while (*at && *at != '\n')
                at++;
            break;
        }
        bool quoted = *at == '"';
        if (quoted)
            at++;
        if (line->count == MAX_WORDS)
            LineFail(line, "too many words", nullptr);
        line->words[line->count++] = at;
        while (*at && *at != '\n' && (quoted ? *at != '"' : *at != ' ' && *at != '\t' && *at != '\r'))
            at++;
        if (quoted && *at != '"')
            LineFail(line, "a quotation mark is missing", nullptr);
        if (!*at || *at == '\n')
            break;
        *at++ = 0;
    }
    if (!*at)
        return at;
    *at = 0;
    return at + 1;
}

} // namespace

// Where a file that is a capture stands: it begins with "capture" and ends with "end".
enum CaptureState { NOTHING_READ, NO_CAPTURE, CAPTURE, CAPTURE_ENDED };

// Carries out one statement; the state of the file behind it.
static CaptureState CarryOut(BoardLine *line, CaptureState state) {
    if (state == CAPTURE_ENDED)
        LineFail(line, "nothing may follow \"end\"", line->words[0]);
    if (LineHas(line, 0, "capture")) {
        if (state != NOTHING_READ)
            LineFail(line, "not the first line of the file", line->words[0]);
        if (LineNumber(line, 1, UINT32_MAX) != CAPTURE_FORMAT)
            LineFail(line, "this format of captures is not known", line->words[1]);
        return CAPTURE;
    }
    if (LineHas(line, 0, "end")) {
        if (state != CAPTURE)
            LineFail(line, "no \"capture\" line comes before", line->words[0]);
        return CAPTURE_ENDED;
    }
    if (LineHas(line, 0, "include"))
        ReadBoardFile(LinePath(line, 1), line);
    else
        CarryOutKeyword(line);
    return state == NOTHING_READ ? NO_CAPTURE : state;
}

void ReadBoardFile(const char *path, const BoardLine *from) {
    if (++gIncludeDepth > MAX_INCLUDE_DEPTH)
        BoardFail("%s: board files include each other", path);
    uint64_t length;
    char *at = reinterpret_cast<char *>(ReadWholeFile(from, path, &length));
    BoardLine line = {path, 0, 0, {}};
    char *end = at + length;
    CaptureState state = NOTHING_READ;
    while (at < end && *at) {
        line.number++;
        at = CutLine(at, &line);
        if (line.count != 0)
            state = CarryOut(&line, state);
    }
    if (state == CAPTURE)
        LineFail(&line, "the file is cut off: its last line is not \"end\"", nullptr);
    gIncludeDepth--;
}

const char *LineWord(const BoardLine *line, int index) {
    if (index >= line->count)
        LineFail(line, "a word is missing", nullptr);
    return line->words[index];
}

uint64_t LineNumber(const BoardLine *line, int index, uint64_t maximum) {
    const char *word = LineWord(line, index);
    char *end;
    errno = 0;
    unsigned long value = strtoul(word, &end, 16);
    if (end == word || *end || errno != 0 || *word == '-')
        LineFail(line, "not a hexadecimal number", word);
    if (value > maximum)
        LineFail(line, "the number is too large", word);
    return value;
}

uint8_t LineByte(const BoardLine *line, int index) {
    return LineHas(line, index, "??") ? 0xFF : static_cast<uint8_t>(LineNumber(line, index, 0xFF));
}

bool LineHas(const BoardLine *line, int index, const char *word) {
    return index < line->count && strcmp(line->words[index], word) == 0;
}

// A CPU or a range of them in front of a comma or the word's end; what is behind it, null for a mistake.
static const char *TakeCpus(const char *at, bool *set) {
    char *end;
    unsigned long first = strtoul(at, &end, 10);
    unsigned long last = first;
    if (end == at || *at == '-')
        return nullptr;
    if (*end == '-') {
        at = end + 1;
        last = strtoul(at, &end, 10);
    }
    if (end == at || (*end && *end != ',') || first > last || last >= MAX_CPUS)
        return nullptr;
    for (unsigned long cpu = first; cpu <= last; cpu++)
        set[cpu] = true;
    return end;
}

void LineCpuSet(const BoardLine *line, int index, bool *set) {
    const char *at = LineWord(line, index);
    do {
        at = TakeCpus(at, set);
        if (!at)
            LineFail(line, "not a CPU number or a range of them", line->words[index]);
    } while (*at++ == ',');
}

const char *LinePath(const BoardLine *line, int index) {
    const char *name = LineWord(line, index);
    const char *slash = strrchr(line->path, '/');
    if (*name == '/' || !slash)
        return name;
    size_t folder = static_cast<size_t>(slash + 1 - line->path);
    char *path = static_cast<char *>(ArenaTake(folder + strlen(name) + 1));
    memcpy(path, line->path, folder);
    strcpy(path + folder, name);
    return path;
}

uint8_t *ReadWholeFile(const BoardLine *line, const char *path, uint64_t *length) {
    int descriptor = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC, 0));
    struct stat status;
    if (descriptor < 0 || syscall(SYS_fstat, descriptor, &status) != 0)
        LineFail(line, "the file cannot be read", path);
    uint64_t size = static_cast<uint64_t>(status.st_size);
    uint8_t *contents = static_cast<uint8_t *>(ArenaTake(size + 1));
    uint64_t done = 0;
    while (done < size) {
        long got = syscall(SYS_read, descriptor, contents + done, size - done);
        if (got <= 0)
            LineFail(line, "the file cannot be read", path);
        done += static_cast<uint64_t>(got);
    }
    syscall(SYS_close, descriptor);
    *length = size;
    return contents;
}

void LineFail(const BoardLine *line, const char *message, const char *word) {
    if (!line)
        BoardFail("%s: %s", word, message);
    if (word)
        BoardFail("%s:%d: %s: \"%s\"", line->path, line->number, message, word);
    BoardFail("%s:%d: %s", line->path, line->number, message);
}
