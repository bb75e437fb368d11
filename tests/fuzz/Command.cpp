#include "Command.h"

#include "Sandbox.h"
#include "sim/Board.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

// The program's main, renamed.
int ProgramMain(int argc, char **argv);

namespace {

constexpr int MAX_COMMANDS = 256;
constexpr int WATCHED_DESCRIPTORS = 64;

struct Line {
    const char *text;
    size_t length;
};
Line gCommands[MAX_COMMANDS];
int gCommandCount;

// What a run has to leave as it was.
struct Surroundings {
    bool open[WATCHED_DESCRIPTORS];
    int inputFlags;
    bool terminal;
    termios modes;
    sigset_t signals;
};

void LookAround(Surroundings *seen) {
    for (int i = 0; i < WATCHED_DESCRIPTORS; i++)
        seen->open[i] = fcntl(i, F_GETFD) != -1;
    seen->inputFlags = fcntl(STDIN_FILENO, F_GETFL);
    seen->terminal = tcgetattr(STDIN_FILENO, &seen->modes) == 0;
    sigprocmask(SIG_BLOCK, nullptr, &seen->signals);
}

bool SameModes(const termios *a, const termios *b) {
    return a->c_iflag == b->c_iflag && a->c_oflag == b->c_oflag && a->c_cflag == b->c_cflag &&
           a->c_lflag == b->c_lflag && memcmp(a->c_cc, b->c_cc, sizeof a->c_cc) == 0;
}

void CheckSurroundings(const Surroundings *before) {
    Surroundings after = {};
    LookAround(&after);
    if (memcmp(before->open, after.open, sizeof after.open) != 0)
        Fail("a descriptor was left open or closed", "surroundings");
    if (before->inputFlags != after.inputFlags)
        Fail("the flags of standard input were changed", "surroundings");
    if (after.terminal && !SameModes(&before->modes, &after.modes))
        Fail("the terminal's modes were changed", "surroundings");
    for (int number = 1; number < SIGRTMIN; number++)
        if (sigismember(&before->signals, number) != sigismember(&after.signals, number))
            Fail("the signal mask was changed", "surroundings");
}

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

void Fail(const char *what, const char *name) {
    fprintf(stderr, "hwreg_fuzz: %s: %s\n", name, what);
    abort();
}

void BeginWords(Words *words) {
    words->count = 0;
    words->words[0] = nullptr;
    AddWord(words, "hwreg", 5);
}

void AddWord(Words *words, const char *text, size_t length) {
    if (words->count < MAX_WORDS)
        words->words[words->count++] = strndup(text, length);
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

void LoadBoard(const char *name) {
    char path[4096];
    snprintf(path, sizeof path, "%s/boards/%s.board", HWREG_FUZZ_FOLDER, name);
    BoardLoad(path);
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
    Surroundings before = {};
    LookAround(&before);
    EnterSandbox();
    ProgramMain(words->count, words->words);
    CheckSurroundings(&before);
}
