#include "Main/Commands.h"

#include <gtest/gtest.h>

// The commands in the order of the reference: one of them before all that stand behind it.
struct KnownCommand {
    CmdType flag;
    Command command;
};

static const KnownCommand mKnown[] = {
    {Flag::IO, COMMAND_IO},     {Flag::MEM, COMMAND_MEMORY}, {Flag::PCI, COMMAND_PCI},
    {Flag::SMB, COMMAND_SMBUS}, {Flag::MSR, COMMAND_CPU},    {Flag::CPUID, COMMAND_CPU},
    {Flag::RTC, COMMAND_POWER}, {Flag::RF, COMMAND_FILE},    {Flag::SMBIOS, COMMAND_SMBIOS},
    {Flag::ACPI, COMMAND_ACPI}, {Flag::SIO, COMMAND_SIO},    {Flag::NBIO, COMMAND_NBIO},
    {Flag::I2C, COMMAND_I2C},
};

TEST(Commands, EachFlagMeansItsCommand) {
    for (const KnownCommand &known : mKnown)
        EXPECT_EQ(CommandOf(known.flag), known.command) << known.flag;
}

TEST(Commands, OfTwoTheEarlierOneWins) {
    constexpr size_t count = sizeof(mKnown) / sizeof(mKnown[0]);
    for (size_t first = 0; first < count; ++first) {
        for (size_t second = first + 1; second < count; ++second) {
            bool copies = mKnown[second].flag == Flag::RF && mKnown[first].command <= COMMAND_MEMORY;
            EXPECT_EQ(CommandOf(mKnown[first].flag | mKnown[second].flag),
                      copies ? COMMAND_FILE : mKnown[first].command);
        }
    }
}

TEST(Commands, FileWordTakesPortsAndMemoryButComesBehindTheOthers) {
    EXPECT_EQ(CommandOf(Flag::IO | Flag::MEM | Flag::RF), COMMAND_FILE);
    EXPECT_EQ(CommandOf(Flag::IO | Flag::RF | Flag::PCI), COMMAND_PCI);
}

TEST(Commands, HelpIsACommandOfItsOwnOnlyWithoutOne) {
    EXPECT_EQ(CommandOf(0), COMMAND_SCREEN);
    EXPECT_EQ(CommandOf(Flag::HELP), COMMAND_SCREEN);
    EXPECT_EQ(CommandOf(Flag::HELP | Flag::I2C), COMMAND_I2C);
}

TEST(Commands, AnOptionChangesNoCommand) {
    constexpr CmdType others =
        ~(Flag::IO | Flag::MEM | Flag::PCI | Flag::SMB | Flag::MSR | Flag::CPUID | Flag::RTC | Flag::RF |
          Flag::SMBIOS | Flag::ACPI | Flag::SIO | Flag::NBIO | Flag::I2C);
    for (const KnownCommand &known : mKnown)
        EXPECT_EQ(CommandOf(known.flag | others), known.command) << known.flag;
}

TEST(Commands, OptionsAloneMeanNone) {
    EXPECT_EQ(CommandOf(Flag::LOG | Flag::DUMP | Flag::USB | Flag::READ), COMMAND_NONE);
}
