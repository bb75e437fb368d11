#include "Command.h"

#include "BasicLib/Driver.h"
#include "Held.h"
#include "Sandbox.h"
#include "State.h"
#include "Surroundings.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

// The program's main, renamed.
int ProgramMain(int argc, char **argv);

namespace {

constexpr int MAX_COMMANDS = 256;

struct Line {
    const char *text;
    size_t length;
};
Line gCommands[MAX_COMMANDS];
int gCommandCount;

int gStatus;

void AddCommand(const char *line, size_t length) {
    const char *comment = static_cast<const char *>(memchr(line, '#', length));
    if (comment)
        length = static_cast<size_t>(comment - line);
    while (length > 0 && line[length - 1] == ' ')
        length--;
    if (length > 0 && gCommandCount < MAX_COMMANDS)
        gCommands[gCommandCount++] = {line, length};
}

} // namespace

void BeginWords(Words *words) {
    words->count = 0;
    words->words[0] = nullptr;
    AddWord(words, "hwreg", 5);
}

void AddWord(Words *words, const char *text, size_t length) {
    if (words->count < MAX_WORDS)
        words->words[words->count++] = static_cast<char *>(HoldBlock(strndup(text, length)));
    words->words[words->count] = nullptr;
}

void AddWords(Words *words, const char *text, size_t length, char separator) {
    const char *end = text + length;
    while (text < end) {
        const char *next =
            static_cast<const char *>(memchr(text, separator, static_cast<size_t>(end - text)));
        AddWord(words, text, static_cast<size_t>((next ? next : end) - text));
        text = next ? next + 1 : end;
    }
}

void ReadCommands(const char *name) {
    static char contents[1 << 16];
    char path[4096];
    snprintf(path, sizeof path, "%s/%s.commands", HWREG_FUZZ_FOLDER, name);
    int file = open(path, O_RDONLY | O_CLOEXEC);
    ssize_t length = file < 0 ? -1 : read(file, contents, sizeof contents);
    if (length <= 0)
        Fail("cannot be read", path);
    close(file);
    const char *end = contents + length;
    for (const char *line = contents; line < end;) {
        const char *next = static_cast<const char *>(memchr(line, '\n', static_cast<size_t>(end - line)));
        AddCommand(line, static_cast<size_t>((next ? next : end) - line));
        line = next ? next + 1 : end;
    }
}

void ChooseCommand(unsigned number, Words *words) {
    const Line *line = &gCommands[number % static_cast<unsigned>(gCommandCount)];
    size_t board = strcspn(line->text, " ");
    char name[32];
    snprintf(name, sizeof name, "%.*s", static_cast<int>(board), line->text);
    LoadBoard(name);
    BeginWords(words);
    AddWords(words, line->text + board + 1, line->length - board - 1, ' ');
}

void RunProgram(Words *words) {
    NoteSurroundings();
    EnterSandbox();
    gStatus = ProgramMain(words->count, words->words);
    CheckSurroundings();
}

void RunWithHardware(void (*procedure)(int count, char **words), Words *words) {
    NoteSurroundings();
    EnterSandbox();
    if (OpenLinuxDriver() != 0)
        Fail("refuses access", "the board");
    procedure(words->count, words->words);
    CloseLinuxDriver();
    fflush(stdout);
    gStatus = 0;
    CheckSurroundings();
}

int RunStatus() {
    return gStatus;
}
