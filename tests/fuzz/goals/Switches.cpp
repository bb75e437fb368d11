// switches: command lines of words that are near to switch words, through Parser, CmdLine, Commands and
// Global. Asserted: a command line means what its words mean one by one; a word means the same behind each of
// the three signs, and nothing behind others or with one letter more; searches, texts and operands are those
// of a plain walk over the words; of the commands only one that the line names is chosen.
#include <stdlib.h>
#include <string.h>

#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Numeral.h"
#include "Goal.h"
#include "Main/Commands.h"
#include "Main/Parser.h"

namespace {

const char *const WORDS[] = {"?",      "H",     "HELP",  "NOMSG",   "LOG",     "SIO", "IO",     "MEM",
                             "PCI",    "SMB",   "SMBUS", "MSR",     "CPUID",   "RI",  "RB",     "RW",
                             "RD",     "RQ",    "WI",    "WB",      "WW",      "WD",  "WQ",     "INDEX",
                             "DUMP",   "DEBUG", "TEXT",  "S",       "RTC",     "RF",  "SMBIOS", "RESET",
                             "GRESET", "SLEEP", "F",     "ACPI",    "TYPE",    "USB", "EDID",   "SMN",
                             "SMU",    "FLASH", "I2C",   "TIMEOUT", "SHUTDOWN"};
constexpr size_t WORD_COUNT = sizeof WORDS / sizeof *WORDS;
const char *const SIGNS[] = {"", "/", "-", "\\", "//", "+", "/-", " "};
constexpr size_t GOOD_SIGNS = 4; // of these
constexpr size_t MOST_WORDS = 12;
constexpr size_t LONGEST_WORD = 24;

struct CommandLine {
    char *words[MOST_WORDS + 1];
    size_t count;
};

bool IsSwitch(const char *word) {
    for (const char *known : WORDS)
        if (strcmp(known, word) == 0)
            return true;
    return false;
}

// The word without the sign that may stand in front of a switch word.
const char *Bare(const char *word) {
    return *word == '/' || *word == '-' || *word == '\\' ? word + 1 : word;
}

bool Matches(const char *word, const char *key) {
    return strcmp(word, key) == 0 || strcmp(Bare(word), key) == 0;
}

// A word: a switch word behind a sign, with a letter more or of another case, or any text.
char *TakeWord(Input *input) {
    uint8_t choice = TakeByte(input);
    if (choice >= WORD_COUNT)
        return TakeText(input, LONGEST_WORD);
    uint8_t form = TakeByte(input);
    char text[32];
    strcpy(text, SIGNS[form & 7]);
    strcat(text, WORDS[choice]);
    if (form & 0x08)
        strcat(text, form & 0x10 ? "S" : "1");
    if (form & 0x20)
        for (char *at = text; *at; at++)
            *at = *at >= 'A' && *at <= 'Z' ? static_cast<char>(*at | 0x20) : *at;
    return strdup(text);
}

CommandLine TakeLine(Input *input) {
    CommandLine line = {};
    size_t count = TakeByte(input) % (MOST_WORDS + 1);
    for (; line.count < count; line.count++)
        line.words[line.count] = TakeWord(input);
    return line;
}

void FreeLine(CommandLine *line) {
    for (size_t i = 0; i < line->count; i++)
        free(line->words[i]);
}

CmdType MeaningOf(const char *word) {
    char name[] = "hwreg";
    char copy[LONGEST_WORD + 8];
    strcpy(copy, word);
    char *words[] = {name, copy, nullptr};
    return TranslateCmd(words);
}

// Upper case as the program makes it: from the second word on, behind the word S nothing.
void CheckUpperCase(CommandLine *line) {
    char before[MOST_WORDS][LONGEST_WORD + 8];
    for (size_t i = 0; i < line->count; i++)
        strcpy(before[i], line->words[i]);
    argvToUpper(line->words);
    bool converts = true;
    for (size_t i = 0; i < line->count; i++) {
        for (char *at = before[i]; *at && i > 0 && converts; at++)
            *at = *at >= 'a' && *at <= 'z' ? static_cast<char>(*at - 32) : *at;
        Expect(strcmp(before[i], line->words[i]) == 0, "words are upper-cased up to the word S");
        converts = converts && !(i > 0 && Matches(before[i], "S"));
    }
}

CmdType CheckMeaning(CommandLine *line) {
    CmdType sum = 0;
    for (size_t i = 1; i < line->count; i++) {
        CmdType one = MeaningOf(line->words[i]);
        bool known = IsSwitch(line->words[i]) || IsSwitch(Bare(line->words[i]));
        Expect((one != 0) == known, "a word means something when it is a switch word");
        for (size_t sign = 0; known && sign < GOOD_SIGNS; sign++) {
            char other[LONGEST_WORD + 16];
            strcpy(other, SIGNS[sign]);
            strcat(other, IsSwitch(line->words[i]) ? line->words[i] : Bare(line->words[i]));
            Expect(MeaningOf(other) == one, "a switch word means the same behind each sign");
        }
        sum |= one;
    }
    Expect(TranslateCmd(line->words) == sum, "a command line means what its words mean");
    return sum;
}

void CheckRecord(CommandLine *line, CmdType cmd, CmdArg *record) {
    Expect(setTypeCmdArg(nullptr, cmd, 0, line->words) == nullptr, "no record");
    Expect(setTypeCmdArg(record, cmd, static_cast<int>(line->count) + 0x100, line->words) == record,
           "a record");
    gCmdArg = nullptr;
    Expect(CmdWord() == 0 && !DispHas(0xFF), "nothing is known before the record is set");
    DispSet(DISP_LOG);
    gCmdArg = record;
    Expect(record->Argc == line->count && record->Argv == line->words, "the record holds the words");
    Expect(CmdWord() == cmd, "the record holds the command word");
    Expect(DispHas(DISP_DUMP) == (HasFlag(cmd, Flag::DUMP) && !HasFlag(cmd, Flag::NOMSG)), "NOMSG wins");
    Expect(DispHas(DISP_LOG) == HasFlag(cmd, Flag::LOG) && DispHas(DISP_TEXT) == HasFlag(cmd, Flag::TEXT) &&
               DispHas(DISP_DEBUG) == HasFlag(cmd, Flag::DEBUG),
           "display flags");
    DispSet(DISP_LOG);
    Expect(DispHas(DISP_LOG), "a display flag can be set later");
}

void CheckCommand(CmdType cmd) {
    Command command = CommandOf(cmd);
    Expect((isCmdTypeNotNULL(cmd) != 0) == (cmd != 0), "a command word of 0");
    Command withHelp = CommandOf(cmd | Flag::HELP);
    bool screen = cmd == 0 || command == COMMAND_NONE || command == COMMAND_SCREEN;
    Expect(withHelp == (screen ? COMMAND_SCREEN : command), "the screen only where there is no other");
    Expect(CommandOf(0) == COMMAND_SCREEN, "nothing is the screen");
    Command withPci = CommandOf(cmd | Flag::PCI);
    Expect(withPci == COMMAND_PCI || withPci == COMMAND_IO || withPci == COMMAND_MEMORY,
           "the earlier one wins");
    Expect(!HasFlag(cmd, Flag::RF) || (command != COMMAND_IO && command != COMMAND_MEMORY),
           "files go before");
}

void CheckSearch(const CommandLine *line, const char *key, const char *other) {
    bool tooLong = strlen(key) > 20;
    size_t at = line->count;
    for (size_t i = line->count; i-- > 0;) {
        bool same = !tooLong && Matches(line->words[i], key);
        EFI_STATUS expected = tooLong ? EFI_BUFFER_TOO_SMALL : same ? EFI_SUCCESS : EFI_NOT_FOUND;
        Expect(CmdSearchFromBuffer(line->words[i], key) == expected, "CmdSearchFromBuffer");
        at = same ? i : at;
    }
    uint16_t pos = 0xFFFF;
    EFI_STATUS status = CmdSearchFromArgv(const_cast<char **>(line->words), key, &pos);
    bool found = at < line->count;
    Expect(status == (line->count == 0 ? EFI_ABORTED
                      : found          ? EFI_SUCCESS
                                       : EFI_NOT_FOUND),
           "CmdSearchFromArgv");
    Expect(pos == (found ? at : 0xFFFF), "the first word that matches");
    uint16_t one = 0xFFFF;
    bool any = CmdFind({key, other}, &one);
    Expect(found ? any && one == at : any == CmdFind({other}, nullptr),
           "CmdFind takes the first key that is there");
}

void CheckOperands(const CommandLine *line, Input *input) {
    uint16_t pos = static_cast<uint16_t>(TakeByte(input) % (line->count + 1));
    unsigned count = TakeByte(input);
    const char *text = pos + count < line->count ? line->words[pos + count] : nullptr;
    Expect(CmdArgText(pos, count) == text, "CmdArgText");
    uint64_t value = str2Numeral(text);
    Expect(CmdOperand(pos, count) == value && OperandByte(pos, count) == static_cast<uint8_t>(value) &&
               OperandWord(pos, count) == static_cast<uint16_t>(value) &&
               OperandDword(pos, count) == static_cast<uint32_t>(value),
           "operands are the word's number, cut");
}

} // namespace

void FuzzSwitches(Input input) {
    CmdArg record = {};
    CommandLine line = TakeLine(&input);
    CheckUpperCase(&line);
    CmdType cmd = CheckMeaning(&line);
    CheckRecord(&line, cmd, &record);
    CheckCommand(cmd);
    CheckCommand(Take64(&input) & 0xFFFFFFFFFFFF);
    char *key = TakeWord(&input);
    char *other = TakeWord(&input);
    CheckSearch(&line, key, other);
    CheckOperands(&line, &input);
    Expect(CmdSearchFromBuffer(nullptr, "S") == EFI_ABORTED &&
               CmdSearchFromBuffer("S", nullptr) == EFI_ABORTED &&
               CmdSearchFromArgv(nullptr, "S", nullptr) == EFI_ABORTED,
           "no words");
    gCmdArg = nullptr;
    free(key);
    free(other);
    FreeLine(&line);
}
