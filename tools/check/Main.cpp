// hwreg-check: tells what hwreg can do on this machine, without doing it.
#include <sys/auxv.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Common/ComFunc/Output.h"
#include "Common/ComFunc/Signals.h"
#include "tools/check/Answer.h"
#include "tools/check/Json.h"
#include "tools/check/Options.h"
#include "tools/check/Report.h"
#include "tools/check/machine/Findings.h"

enum ExitStatus { EXIT_WORKS = 0, EXIT_REFUSED = 1, EXIT_OTHER = 2, EXIT_NOT_SAID = 3 };

constexpr int MOST_WORDS = 32; // of a representative line

static ExitStatus StatusOf(Verdict verdict) {
    return verdict == VERDICT_WORKS ? EXIT_WORKS : verdict == VERDICT_REFUSED ? EXIT_REFUSED : EXIT_OTHER;
}

// Words of hwreg's behind a place for the program's name.
static ExitStatus AnswerOne(int argc, char **argv) {
    Answer answer;
    AnswerLine(argc, argv, &answer);
    if (gOptions.json) {
        PutJsonAnswer(argc - 1, argv + 1, &answer);
        putchar('\n');
    } else {
        PutAnswer(argc - 1, argv + 1, &answer);
    }
    return StatusOf(answer.verdict);
}

static ExitStatus PutCommand(const char *line, bool first) {
    static char name[] = "hwreg";
    char text[256];
    char *words[MOST_WORDS + 2] = {name};
    char *rest = nullptr;
    int count = 1;
    snprintf(text, sizeof(text), "%s", line);
    for (char *word = strtok_r(text, " ", &rest); word != nullptr && count <= MOST_WORDS; ++count) {
        words[count] = word;
        word = strtok_r(nullptr, " ", &rest);
    }
    Answer answer;
    AnswerLine(count, words, &answer);
    if (!gOptions.json)
        PutTableLine(line, &answer);
    if (gOptions.json && !first)
        PutJsonComma();
    if (gOptions.json)
        PutJsonAnswer(count - 1, words + 1, &answer);
    return StatusOf(answer.verdict);
}

static ExitStatus Report() {
    const CommandLine *lines;
    uint32_t count = CommandLines(&lines);
    ExitStatus worst = EXIT_WORKS;
    if (gOptions.json) {
        PutJsonHead();
    } else {
        PutFindings();
        PutTableHead();
    }
    for (uint32_t i = 0; i < count; ++i) {
        ExitStatus status = PutCommand(lines[i].words, i == 0);
        worst = status > worst ? status : worst;
    }
    if (gOptions.json) {
        PutJsonEnd();
        putchar('\n');
    }
    return worst;
}

static ExitStatus Said(ExitStatus status) {
    errno = 0;
    if (ferror(stdout) == 0 && fflush(stdout) == 0)
        return status;
    fprintf(stderr, "hwreg-check: standard output: %s\n", strerror(errno == 0 ? EIO : errno));
    return EXIT_NOT_SAID;
}

static ExitStatus Say(int argc, char **argv) {
    static char name[] = "hwreg";
    if (gOptions.help) {
        ShowUsage();
        return EXIT_WORKS;
    }
    if (gOptions.version) {
        puts("hwreg-check " HWREG_VERSION);
        return EXIT_WORKS;
    }
    FindAll();
    if (gOptions.firstWord >= argc)
        return Report();
    argv[gOptions.firstWord - 1] = name;
    return AnswerOne(argc - gOptions.firstWord + 1, argv + gOptions.firstWord - 1);
}

int main(int argc, char **argv) {
    if (getauxval(AT_SECURE) != 0) // nobody gets the hardware by the mode or capabilities of this file
        return EXIT_NOT_SAID;
    IgnoreFileSizeSignal();
    EnsureStandardDescriptors();
    return ParseOptions(argc, argv) ? Said(Say(argc, argv)) : EXIT_NOT_SAID;
}
