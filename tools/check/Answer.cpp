#include "tools/check/Answer.h"

#include <cstring>

#include "Base/Memory.h"
#include "Common/ComFunc/CmdLine.h"
#include "Main/Parser.h"
#include "tools/check/lines/LineBus.h"
#include "tools/check/lines/LineChips.h"
#include "tools/check/lines/LineCpu.h"
#include "tools/check/lines/LineCycle.h"
#include "tools/check/lines/LineFile.h"
#include "tools/check/lines/LineMemory.h"
#include "tools/check/lines/LinePci.h"
#include "tools/check/lines/LinePorts.h"
#include "tools/check/lines/LineTables.h"
#include "tools/check/lines/Operands.h"
#include "tools/check/lines/OtherWords.h"
#include "tools/check/machine/PortDoor.h"

static void AnswerScreen(Line *line) {
    Does(line, "shows the help screen");
    Ends(line, 0);
    if (HasFlag(line->cmd, Flag::HELP) || gCmdArg->Argc < 2)
        return;
    Judge(line, VERDICT_REFUSED, 0, FINDING_NONE);
    Shows(line, "the help screen");
    Why(line, "no word of the line is a switch word of hwreg");
}

static void AnswerHelp(Line *line) {
    Does(line, "shows the forms of %s", CommandName(line));
    Ends(line, line->command == COMMAND_SMBUS ? 255 : 2);
}

static void AnswerNone(Line *line) {
    Does(line, "nothing");
    Judge(line, VERDICT_REFUSED, 15, FINDING_NONE);
    Shows(line, "ends with status 15 and prints nothing");
    Why(line, "there are switch words on the line and no command among them");
}

static void AnswerNoMemory(Line *line) {
    Judge(line, VERDICT_REFUSED, STATUS_NOT_FORETOLD, FINDING_NONE);
    Shows(line, "the line was not looked at");
    Why(line, "there is no memory for its words");
}

static void AnswerCommand(Line *line) {
    switch (line->command) {
    case COMMAND_IO:
        return AnswerIo(line);
    case COMMAND_MEMORY:
        return AnswerMemory(line);
    case COMMAND_PCI:
        return AnswerPci(line);
    case COMMAND_SMBUS:
        return AnswerSmbus(line);
    case COMMAND_CPU:
        return AnswerCpu(line);
    case COMMAND_POWER:
        return AnswerCycle(line);
    case COMMAND_FILE:
        return AnswerFile(line);
    case COMMAND_SMBIOS:
        return AnswerSmbios(line);
    case COMMAND_ACPI:
        return AnswerAcpi(line);
    case COMMAND_SIO:
        return AnswerSio(line);
    case COMMAND_NBIO:
        return AnswerNbio(line);
    case COMMAND_I2C:
        return AnswerI2c(line);
    default:
        return AnswerNone(line);
    }
}

// Nobody gets past the start of hwreg without I/O privilege.
static void JudgeStart(Line *line) {
    if (IoplError() == 0)
        return;
    Judge(line, VERDICT_REFUSED, 6, FINDING_IOPL);
    Shows(line, "ends with status 6 and prints nothing");
}

static void AnswerWords(Line *line) {
    if (line->command == COMMAND_SCREEN) {
        AnswerScreen(line);
    } else if (HasFlag(line->cmd, Flag::HELP)) {
        AnswerHelp(line);
    } else {
        AnswerCommand(line);
        JudgeOtherWords(line);
    }
    JudgeHelpWord(line);
    JudgeStart(line);
}

// A copy of the words in one block, which is released with Free; NULL without memory.
static char **CopyOf(int argc, char **argv) {
    size_t count = static_cast<size_t>(argc) + 1;
    size_t bytes = count * sizeof(char *);
    for (int i = 0; i < argc; ++i)
        bytes += strlen(argv[i]) + 1;
    char **copy = static_cast<char **>(Malloc(bytes));
    if (copy == nullptr)
        return nullptr;
    char *text = reinterpret_cast<char *>(copy + count);
    for (int i = 0; i < argc; ++i) {
        size_t size = strlen(argv[i]) + 1;
        copy[i] = static_cast<char *>(memcpy(text, argv[i], size));
        text += size;
    }
    copy[argc] = nullptr;
    return copy;
}

void AnswerLine(int argc, char **argv, Answer *answer) {
    *answer = {};
    answer->status = STATUS_NOT_FORETOLD;
    Line line = {argv, 0, COMMAND_NONE, {}, answer};
    char **words = CopyOf(argc, argv);
    if (words == nullptr)
        return AnswerNoMemory(&line);
    argvToUpper(words);
    line.cmd = TranslateCmd(words);
    line.command = CommandOf(line.cmd);
    CmdArg record = {};
    gCmdArg = setTypeCmdArg(&record, line.cmd, argc, words);
    AnswerWords(&line);
    gCmdArg = nullptr;
    Free(words);
}
