#include "Main/Parser.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "TestHelp.h"

// The command word of one argument.
static CmdType WordOf(const char *word) {
    return TranslateCmd(Words({"hwreg", word}));
}

static CmdType Bit(unsigned byte, unsigned bit) {
    return static_cast<CmdType>(1) << (8 * byte + bit);
}

// A switch word, its flag's byte and bit, and those of the flag that it implies (its own once more for none).
struct KnownWord {
    const char *word;
    unsigned byte, bit, impliedByte, impliedBit;
};

static const KnownWord mKnownWords[] = {
    {"?", 0, 0, 0, 0},      {"H", 0, 0, 0, 0},        {"HELP", 0, 0, 0, 0}, {"SIO", 0, 3, 0, 3},
    {"IO", 0, 4, 0, 4},     {"MEM", 0, 5, 0, 5},      {"PCI", 0, 6, 0, 6},  {"SMB", 0, 7, 0, 7},
    {"SMBUS", 0, 7, 0, 7},  {"INDEX", 1, 0, 1, 0},    {"MSR", 1, 1, 1, 1},  {"CPUID", 1, 2, 1, 2},
    {"RTC", 1, 3, 1, 3},    {"TIMEOUT", 1, 4, 1, 3},  {"RF", 1, 5, 1, 5},   {"SMBIOS", 1, 6, 1, 6},
    {"USB", 1, 7, 1, 7},    {"RI", 2, 2, 2, 0},       {"WI", 2, 3, 2, 1},   {"RB", 2, 4, 2, 0},
    {"WB", 2, 5, 2, 1},     {"RW", 2, 6, 2, 0},       {"WW", 2, 7, 2, 1},   {"RD", 3, 0, 2, 0},
    {"RQ", 3, 1, 2, 0},     {"WD", 3, 2, 2, 1},       {"WQ", 3, 3, 2, 1},   {"NOMSG", 3, 4, 3, 4},
    {"DEBUG", 3, 5, 3, 5},  {"TEXT", 3, 6, 3, 6},     {"DUMP", 3, 7, 3, 7}, {"LOG", 4, 0, 4, 0},
    {"S", 4, 1, 4, 1},      {"SHUTDOWN", 4, 2, 1, 3}, {"F", 4, 3, 4, 3},    {"RESET", 4, 4, 4, 4},
    {"GRESET", 4, 5, 4, 4}, {"SLEEP", 4, 6, 4, 6},    {"ACPI", 5, 0, 5, 0}, {"TYPE", 5, 1, 5, 1},
    {"EDID", 5, 2, 5, 2},   {"SMN", 5, 4, 5, 3},      {"SMU", 5, 5, 5, 3},  {"FLASH", 5, 6, 5, 6},
    {"I2C", 5, 7, 5, 7},
};

TEST(Parser, EachSwitchWordSetsItsFlagAndTheImpliedOneAndNothingElse) {
    for (const KnownWord &known : mKnownWords) {
        CmdType expected = Bit(known.byte, known.bit) | Bit(known.impliedByte, known.impliedBit);
        const std::string word = known.word;
        EXPECT_EQ(WordOf(word.c_str()), expected) << word;
        EXPECT_EQ(WordOf(("/" + word).c_str()), expected) << word;
        EXPECT_EQ(WordOf(("-" + word).c_str()), expected) << word;
        EXPECT_EQ(WordOf(("\\" + word).c_str()), expected) << word;
        EXPECT_EQ(WordOf((word + "X").c_str()), 0u) << word;
        EXPECT_EQ(WordOf(("//" + word).c_str()), 0u) << word;
    }
}

TEST(Parser, AllSwitchWordsTogetherLeaveTheUnusedBitsClear) {
    std::vector<char *> argv = {const_cast<char *>("hwreg")};
    for (const KnownWord &known : mKnownWords)
        argv.push_back(const_cast<char *>(known.word));
    argv.push_back(nullptr);
    EXPECT_EQ(TranslateCmd(argv.data()), 0xFFFFFFFFFFFFu & ~(Bit(0, 1) | Bit(0, 2) | Bit(4, 7)));
}

TEST(Parser, FlagsCarryTheNameOfTheirSwitchWord) {
    EXPECT_EQ(WordOf("PCI"), Flag::PCI);
    EXPECT_EQ(WordOf("SHUTDOWN"), Flag::SHUTDOWN | Flag::RTC);
    EXPECT_EQ(WordOf("TIMEOUT"), Flag::TIMEOUT | Flag::RTC);
    EXPECT_EQ(WordOf("GRESET"), Flag::GRESET | Flag::RESET);
    EXPECT_EQ(WordOf("SMU"), Flag::SMU | Flag::NBIO);
    EXPECT_EQ(WordOf("SMN"), Flag::SMN | Flag::NBIO);
    EXPECT_EQ(WordOf("RB"), Flag::RB | Flag::READ);
    EXPECT_EQ(WordOf("WQ"), Flag::WQ | Flag::WRITE);
    EXPECT_EQ(WordOf("SMBUS"), Flag::SMB);
}

TEST(Parser, SwitchesAreTakenInAnyCaseAfterTheWordsAreUpperCased) {
    for (const char *word : {"-pci", "/PCI", "\\Pci", "pci"}) {
        char **argv = Words({"hwreg", word});
        argvToUpper(argv);
        EXPECT_EQ(TranslateCmd(argv), Flag::PCI) << word;
    }
    for (const char *word : {"//PCI", "/PC", "/PCIE", "pc"}) {
        char **argv = Words({"hwreg", word});
        argvToUpper(argv);
        EXPECT_EQ(TranslateCmd(argv), 0u) << word;
    }
}

TEST(Parser, TranslateCmdItselfIsCaseSensitive) {
    EXPECT_EQ(WordOf("/pci"), 0u);
}

TEST(Parser, FlagsAccumulateInAnyOrderAndOperandsCountToo) {
    EXPECT_EQ(TranslateCmd(Words({"hwreg", "/RB", "/WB"})), Flag::RB | Flag::READ | Flag::WB | Flag::WRITE);
    EXPECT_EQ(TranslateCmd(Words({"hwreg", "/MEM", "/RB", "F"})),
              Flag::MEM | Flag::RB | Flag::READ | Flag::F);
    EXPECT_EQ(TranslateCmd(Words({"hwreg", "0", "/RB", "/PCI", "/PCI"})),
              TranslateCmd(Words({"hwreg", "/PCI", "/RB", "0"})));
}

TEST(Parser, TheProgramNameSetsNoFlag) {
    EXPECT_EQ(TranslateCmd(Words({"IO"})), 0u);
}

TEST(Parser, AnEmptyCommandLineIsAnEmptyWord) {
    EXPECT_EQ(TranslateCmd(Words({"hwreg"})), 0u);
    EXPECT_EQ(TranslateCmd(Words({"hwreg", "", "12", "/"})), 0u);
    EXPECT_EQ(TranslateCmd(Words({})), 0u);
}

TEST(Parser, NothingBehindAWordIsLookedAt) {
    char *argv[] = {const_cast<char *>("hwreg"), const_cast<char *>(AtTheEndOfMemory(std::string(1, '\0'))),
                    nullptr};
    EXPECT_EQ(TranslateCmd(argv), 0u);
}

TEST(Parser, WordsAreUpperCasedInPlaceButNotTheProgramName) {
    char **argv = Words({"/usr/sbin/hwreg", "/pci", "0x1f", "\xE4z{"});
    argvToUpper(argv);
    EXPECT_STREQ(argv[0], "/usr/sbin/hwreg");
    EXPECT_STREQ(argv[1], "/PCI");
    EXPECT_STREQ(argv[2], "0X1F");
    EXPECT_STREQ(argv[3], "\xE4Z{");
}

TEST(Parser, WordsAfterTheSearchSwitchKeepTheirCase) {
    for (const char *search : {"/S", "/s", "-s", "\\s", "s"}) {
        char **argv = Words({"hwreg", "/smbios", search, "abc", "Def", "/pci"});
        argvToUpper(argv);
        EXPECT_STREQ(argv[1], "/SMBIOS") << search;
        EXPECT_EQ(argv[2][strlen(argv[2]) - 1], 'S') << search;
        EXPECT_STREQ(argv[3], "abc") << search;
        EXPECT_STREQ(argv[4], "Def") << search;
        EXPECT_STREQ(argv[5], "/pci") << search;
    }
}

TEST(Parser, OnlyTheWholeWordSStopsTheConversion) {
    char **argv = Words({"hwreg", "/ss", "//s", "abc"});
    argvToUpper(argv);
    EXPECT_STREQ(argv[3], "ABC");
}

TEST(Parser, UpperCasingAnEmptyVectorIsSafe) {
    char behind[] = "behind";
    char *empty[] = {nullptr, behind, nullptr};
    argvToUpper(empty);
    EXPECT_EQ(empty[0], nullptr);
    EXPECT_STREQ(behind, "behind");
    char **nameAlone = Words({"hwreg"});
    argvToUpper(nameAlone);
    EXPECT_STREQ(nameAlone[0], "hwreg");
    EXPECT_EQ(nameAlone[1], nullptr);
}

TEST(Parser, TheRecordHoldsTheVectorTheCountAndTheWord) {
    char **argv = Words({"hwreg", "/I2C", "/IO"});
    CmdArg record = {};
    EXPECT_EQ(setTypeCmdArg(&record, Flag::I2C | Flag::IO, 3, argv), &record);
    EXPECT_EQ(static_cast<char **>(record.Argv), argv);
    EXPECT_EQ(record.Argc, 3);
    const uint8_t bytes[CMD_BYTES] = {0x10, 0, 0, 0, 0, 0x80};
    for (size_t i = 0; i < CMD_BYTES; ++i)
        EXPECT_EQ(record.Cmd[i], bytes[i]) << i;
    EXPECT_EQ(record.DispFlags, 0);
}

TEST(Parser, TheCountIsCutTo8Bits) {
    CmdArg record = {};
    setTypeCmdArg(&record, 0, 260, Words({"hwreg"}));
    EXPECT_EQ(record.Argc, 4);
}

TEST(Parser, ThereIsNoRecordForNull) {
    EXPECT_EQ(setTypeCmdArg(nullptr, Flag::PCI, 1, Words({"hwreg"})), nullptr);
}

static uint8_t DispFlagsOf(CmdType cmd) {
    CmdArg record = {};
    record.DispFlags = 0xFF; // nothing of before stays
    return setTypeCmdArg(&record, cmd, 1, Words({"hwreg"}))->DispFlags;
}

TEST(Parser, DisplayFlagsFollowTheirSwitches) {
    EXPECT_EQ(DispFlagsOf(0), 0);
    EXPECT_EQ(DispFlagsOf(Flag::PCI), 0);
    EXPECT_EQ(DispFlagsOf(Flag::DUMP), DISP_DUMP);
    EXPECT_EQ(DispFlagsOf(Flag::DEBUG), DISP_DEBUG);
    EXPECT_EQ(DispFlagsOf(Flag::LOG), DISP_LOG);
    EXPECT_EQ(DispFlagsOf(Flag::TEXT), DISP_TEXT);
    EXPECT_EQ(DispFlagsOf(Flag::DUMP | Flag::DEBUG | Flag::LOG | Flag::TEXT), 0x0F);
}

TEST(Parser, NoOtherFlagIsADisplayFlag) {
    constexpr CmdType own = Flag::DUMP | Flag::DEBUG | Flag::LOG | Flag::TEXT;
    for (unsigned bit = 0; bit < 48; ++bit) {
        CmdType flag = CmdType{1} << bit;
        EXPECT_EQ(DispFlagsOf(flag) != 0, (flag & own) != 0) << bit;
        EXPECT_EQ(DispFlagsOf(own | flag), flag == Flag::NOMSG ? 0x0F & ~DISP_DUMP : 0x0F) << bit;
    }
}

TEST(Parser, NomsgTakesTheDumpFlagBackInAnyOrder) {
    EXPECT_EQ(DispFlagsOf(Flag::NOMSG), 0);
    EXPECT_EQ(DispFlagsOf(Flag::DUMP | Flag::NOMSG), 0);
    EXPECT_EQ(SetCommand({"hwreg", "/NOMSG", "/DUMP", "/LOG"})->DispFlags, DISP_LOG);
    EXPECT_EQ(SetCommand({"hwreg", "/DUMP", "/LOG", "/NOMSG"})->DispFlags, DISP_LOG);
}

TEST(Parser, AWordIsEmptyWhenItsSixBytesAreZero) {
    EXPECT_EQ(isCmdTypeNotNULL(0), 0);
    for (unsigned bit = 0; bit < 48; ++bit)
        EXPECT_EQ(isCmdTypeNotNULL(static_cast<CmdType>(1) << bit), 1) << bit;
    EXPECT_EQ(isCmdTypeNotNULL(static_cast<CmdType>(0xFFFF) << 48), 0);
}
