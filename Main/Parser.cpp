#include "Main/Parser.h"

#include "Base/Text.h"
#include "Common/ComFunc/CmdLine.h"

// The words stand in the table itself: a pointer in it would be one more relocation at each start.
struct SwitchWord {
    char word[12];
    CmdType flags; // the word's own flag and the one it implies
};

static const SwitchWord mSwitchWords[] = {
    {"?", Flag::HELP},
    {"H", Flag::HELP},
    {"HELP", Flag::HELP},
    {"NOMSG", Flag::NOMSG},
    {"LOG", Flag::LOG},
    {"SIO", Flag::SIO},
    {"IO", Flag::IO},
    {"MEM", Flag::MEM},
    {"PCI", Flag::PCI},
    {"SMB", Flag::SMB},
    {"SMBUS", Flag::SMB},
    {"MSR", Flag::MSR},
    {"CPUID", Flag::CPUID},
    {"RI", Flag::RI | Flag::READ},
    {"RB", Flag::RB | Flag::READ},
    {"RW", Flag::RW | Flag::READ},
    {"RD", Flag::RD | Flag::READ},
    {"RQ", Flag::RQ | Flag::READ},
    {"WI", Flag::WI | Flag::WRITE},
    {"WB", Flag::WB | Flag::WRITE},
    {"WW", Flag::WW | Flag::WRITE},
    {"WD", Flag::WD | Flag::WRITE},
    {"WQ", Flag::WQ | Flag::WRITE},
    {"INDEX", Flag::INDEX},
    {"DUMP", Flag::DUMP},
    {"DEBUG", Flag::DEBUG},
    {"TEXT", Flag::TEXT},
    {"S", Flag::S},
    {"RTC", Flag::RTC},
    {"SHUTDOWN", Flag::SHUTDOWN | Flag::RTC},
    {"TIMEOUT", Flag::TIMEOUT | Flag::RTC},
    {"RF", Flag::RF},
    {"SMBIOS", Flag::SMBIOS},
    {"RESET", Flag::RESET},
    {"GRESET", Flag::GRESET | Flag::RESET},
    {"SLEEP", Flag::SLEEP},
    {"F", Flag::F},
    {"ACPI", Flag::ACPI},
    {"TYPE", Flag::TYPE},
    {"USB", Flag::USB},
    {"EDID", Flag::EDID},
    {"SMN", Flag::SMN | Flag::NBIO},
    {"SMU", Flag::SMU | Flag::NBIO},
    {"FLASH", Flag::FLASH},
    {"I2C", Flag::I2C},
};

// The first argument word behind the program name; a vector may be without even that.
static char **FirstWord(char **argv) {
    return argv[0] == nullptr ? argv : argv + 1;
}

void argvToUpper(char **argv) {
    for (char **word = FirstWord(argv); *word != nullptr; ++word) {
        lowerToUpper(word);
        if (CmdSearchFromBuffer(*word, "S") == EFI_SUCCESS)
            return;
    }
}

// No form of a switch word has its first letter further back than in second place; told from that, most of
// the table needs no search.
static bool CanMatch(const char *word, const char *key) {
    return word[0] == key[0] || (word[0] != 0 && word[1] == key[0]);
}

CmdType TranslateCmd(char **argv) {
    CmdType cmd = 0;
    for (char **word = FirstWord(argv); *word != nullptr; ++word) {
        for (const SwitchWord &known : mSwitchWords) {
            if (CanMatch(*word, known.word) && CmdSearchFromBuffer(*word, known.word) == EFI_SUCCESS)
                cmd |= known.flags;
        }
    }
    return cmd;
}

CmdArg *setTypeCmdArg(CmdArg *record, CmdType cmd, int argc, char **argv) {
    if (record == nullptr)
        return nullptr;
    record->Argc = static_cast<uint8_t>(argc);
    record->Argv = argv;
    for (size_t i = 0; i < CMD_BYTES; ++i)
        record->Cmd[i] = static_cast<uint8_t>(cmd >> (i * 8));

    unsigned flags = 0;
    if (HasFlag(cmd, Flag::DUMP))
        flags |= DISP_DUMP;
    if (HasFlag(cmd, Flag::NOMSG))
        flags &= ~static_cast<unsigned>(DISP_DUMP);
    if (HasFlag(cmd, Flag::DEBUG))
        flags |= DISP_DEBUG;
    if (HasFlag(cmd, Flag::LOG))
        flags |= DISP_LOG;
    if (HasFlag(cmd, Flag::TEXT))
        flags |= DISP_TEXT;
    record->DispFlags = static_cast<uint8_t>(flags);
    return record;
}

int isCmdTypeNotNULL(CmdType cmd) {
    return HasFlag(cmd, 0xFFFFFFFFFFFF);
}
