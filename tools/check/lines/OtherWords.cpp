#include "tools/check/lines/OtherWords.h"

#include <strings.h>

#include <cstdio>
#include <cstring>

#include "Main/Parser.h"
#include "tools/check/lines/Operands.h"

// Indexed by Command.
static const char mNames[][10] = {"/H",  "/IO",     "/MEM",  "/PCI", "/SMBUS", "/MSR", "/RTC",
                                  "/RF", "/SMBIOS", "/ACPI", "/SIO", "/SMN",   "/I2C", ""};

static const char *NameOf(Command command, CmdType cmd) {
    if (command == COMMAND_CPU && !HasFlag(cmd, Flag::MSR))
        return "/CPUID";
    if (command == COMMAND_NBIO && !HasFlag(cmd, Flag::SMN))
        return "/SMU";
    return mNames[command];
}

const char *CommandName(const Line *line) {
    return NameOf(line->command, line->cmd);
}

static CmdType FlagsOf(const char *word) {
    char *alone[] = {const_cast<char *>(""), const_cast<char *>(word), nullptr};
    return TranslateCmd(alone);
}

// True when the word means a command of which the line's own is not a form.
static bool MeansAnother(const Line *line, const char *word) {
    Command other = CommandOf(FlagsOf(word));
    if (other == COMMAND_SCREEN || other == COMMAND_NONE || other == line->command)
        return false;
    return line->command != COMMAND_FILE || (other != COMMAND_IO && other != COMMAND_MEMORY);
}

static void JudgeCommands(Line *line) {
    for (size_t i = 1; gCmdArg->Argv[i] != nullptr; ++i) {
        const char *word = gCmdArg->Argv[i];
        if (!MeansAnother(line, word))
            continue;
        FirstCaution(line, "\"%s\" means a command, too: of several on a line one is carried out, here %s",
                     word, CommandName(line));
        return;
    }
}

static void JudgeIgnored(Line *line) {
    char words[120] = "";
    for (size_t i = 1; gCmdArg->Argv[i] != nullptr && i < MOST_WORDS; ++i) {
        const char *word = gCmdArg->Argv[i];
        if (line->used[i] || FlagsOf(word) != 0)
            continue;
        size_t length = strlen(words);
        snprintf(words + length, sizeof(words) - length, "%s\"%.40s\"", length == 0 ? "" : ", ",
                 line->typed[i]);
    }
    if (words[0] != 0)
        FirstCaution(line, "ignored, being neither switch words nor in an operand's place: %s", words);
}

void JudgeOtherWords(Line *line) {
    JudgeCommands(line);
    JudgeIgnored(line);
}

// Words that ask other programs for help, and that hwreg does not know.
static bool AsksInVain(const char *word) {
    return strcasecmp(word, "--help") == 0 || strcasecmp(word, "--h") == 0 || strcmp(word, "--?") == 0;
}

void JudgeHelpWord(Line *line) {
    bool helps = HasFlag(line->cmd, Flag::HELP);
    for (size_t i = 1; gCmdArg->Argv[i] != nullptr; ++i) {
        if (!helps && AsksInVain(gCmdArg->Argv[i]))
            return FirstCaution(line, "\"%.40s\" IS NO HELP WORD, and the line is carried out: help is /H",
                                line->typed[i]);
        if (strcmp(gCmdArg->Argv[i], "/?") == 0)
            return Caution(line,
                           "unquoted, a shell turns /? into a file of one letter in / if there is one: /H");
    }
}
