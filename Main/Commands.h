// Which command a command line means.
#pragma once

#include "Common/Global.h"

enum Command : uint8_t {
    COMMAND_SCREEN, // the help screen
    COMMAND_IO,
    COMMAND_MEMORY,
    COMMAND_PCI,
    COMMAND_SMBUS,
    COMMAND_CPU,   // MSRs and CPUID
    COMMAND_POWER, // alarm, shutdown and countdown
    COMMAND_FILE,
    COMMAND_SMBIOS,
    COMMAND_ACPI,
    COMMAND_SIO,
    COMMAND_NBIO, // SMN and SMU
    COMMAND_I2C,
    COMMAND_NONE, // switch words without a command
};

// The command that the command word cmd means: of several the earlier one wins, and the help screen only
// where there is no other.
Command CommandOf(CmdType cmd);
