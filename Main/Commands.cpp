#include "Main/Commands.h"

#include "Main/Parser.h"

// A command, the flags of which one means it, and those with which none does.
struct CommandRow {
    CmdType words;
    CmdType unless;
    Command command;
};

// In the order in which the commands are looked for, which is the program's.
static const CommandRow mCommands[] = {
    {Flag::IO, Flag::RF, COMMAND_IO},
    {Flag::MEM, Flag::RF, COMMAND_MEMORY},
    {Flag::PCI, 0, COMMAND_PCI},
    {Flag::SMB, 0, COMMAND_SMBUS},
    {Flag::MSR | Flag::CPUID, 0, COMMAND_CPU},
    {Flag::RTC, 0, COMMAND_POWER},
    {Flag::RF, 0, COMMAND_FILE},
    {Flag::SMBIOS, 0, COMMAND_SMBIOS},
    {Flag::ACPI, 0, COMMAND_ACPI},
    {Flag::SIO, 0, COMMAND_SIO},
    {Flag::NBIO, 0, COMMAND_NBIO},
    {Flag::I2C, 0, COMMAND_I2C},
    {Flag::HELP, 0, COMMAND_SCREEN},
};

Command CommandOf(CmdType cmd) {
    if (!isCmdTypeNotNULL(cmd))
        return COMMAND_SCREEN;
    for (const CommandRow &row : mCommands) {
        if (HasFlag(cmd, row.words) && !HasFlag(cmd, row.unless))
            return row.command;
    }
    return COMMAND_NONE;
}
