// The command word, the argument record and the strings that more than one module shows.
#pragma once

#include <cstddef>
#include <cstdint>

// The command word: six bytes of flags, carried in the low 48 bits (byte 0 is the least significant).
typedef uint64_t CmdType;

constexpr size_t CMD_BYTES = 6;

// The flag that stands in a bit (0..7) of a byte (0..5) of the command word.
constexpr CmdType CmdBit(unsigned byte, unsigned bit) {
    return static_cast<CmdType>(1) << (byte * 8 + bit);
}

// A flag carries the name of its switch word; READ, WRITE and NBIO stand for a family of words.
namespace Flag {
constexpr CmdType HELP = CmdBit(0, 0);
constexpr CmdType SIO = CmdBit(0, 3);
constexpr CmdType IO = CmdBit(0, 4);
constexpr CmdType MEM = CmdBit(0, 5);
constexpr CmdType PCI = CmdBit(0, 6);
constexpr CmdType SMB = CmdBit(0, 7);
constexpr CmdType INDEX = CmdBit(1, 0);
constexpr CmdType MSR = CmdBit(1, 1);
constexpr CmdType CPUID = CmdBit(1, 2);
constexpr CmdType RTC = CmdBit(1, 3);
constexpr CmdType TIMEOUT = CmdBit(1, 4);
constexpr CmdType RF = CmdBit(1, 5);
constexpr CmdType SMBIOS = CmdBit(1, 6);
constexpr CmdType USB = CmdBit(1, 7);
constexpr CmdType READ = CmdBit(2, 0);
constexpr CmdType WRITE = CmdBit(2, 1);
constexpr CmdType RI = CmdBit(2, 2);
constexpr CmdType WI = CmdBit(2, 3);
constexpr CmdType RB = CmdBit(2, 4);
constexpr CmdType WB = CmdBit(2, 5);
constexpr CmdType RW = CmdBit(2, 6);
constexpr CmdType WW = CmdBit(2, 7);
constexpr CmdType RD = CmdBit(3, 0);
constexpr CmdType RQ = CmdBit(3, 1);
constexpr CmdType WD = CmdBit(3, 2);
constexpr CmdType WQ = CmdBit(3, 3);
constexpr CmdType NOMSG = CmdBit(3, 4);
constexpr CmdType DEBUG = CmdBit(3, 5);
constexpr CmdType TEXT = CmdBit(3, 6);
constexpr CmdType DUMP = CmdBit(3, 7);
constexpr CmdType LOG = CmdBit(4, 0);
constexpr CmdType S = CmdBit(4, 1);
constexpr CmdType SHUTDOWN = CmdBit(4, 2);
constexpr CmdType F = CmdBit(4, 3);
constexpr CmdType RESET = CmdBit(4, 4);
constexpr CmdType GRESET = CmdBit(4, 5);
constexpr CmdType SLEEP = CmdBit(4, 6);
constexpr CmdType ACPI = CmdBit(5, 0);
constexpr CmdType TYPE = CmdBit(5, 1);
constexpr CmdType EDID = CmdBit(5, 2);
constexpr CmdType NBIO = CmdBit(5, 3);
constexpr CmdType SMN = CmdBit(5, 4);
constexpr CmdType SMU = CmdBit(5, 5);
constexpr CmdType FLASH = CmdBit(5, 6);
constexpr CmdType I2C = CmdBit(5, 7);
} // namespace Flag

enum DispFlag : uint8_t {
    DISP_DUMP = 1 << 0,  // the coloured hex view is printed
    DISP_DEBUG = 1 << 1, // debug request, carried for the handlers
    DISP_LOG = 1 << 2,   // the hex view does not stop for a key at its page pauses
    DISP_TEXT = 1 << 3,  // no escape sequences
};

// One command line. Packed: Cmd is unaligned.
struct __attribute__((packed)) CmdArg {
    char **Argv;            // the process's own vector, NULL-terminated, upper-cased in place
    uint8_t Argc;           // low 8 bits of the argument count
    uint8_t Cmd[CMD_BYTES]; // the command word, byte 0 first
    uint8_t DispFlags;      // DispFlag bits
};

// The record of this run; set once by main before a handler is called, NULL until then.
extern CmdArg *gCmdArg;

// True when any of the flags is set in the command word cmd.
constexpr bool HasFlag(CmdType cmd, CmdType flags) {
    return (cmd & flags) != 0;
}

// Separator between the byte columns and the character columns of a hex view: six spaces.
extern const char *const gBlankSpace;

// Heading that ShowTitle prints; may be pointed at another one.
extern const char *gTitle;

// The command word of gCmdArg; 0 before it is set.
CmdType CmdWord();

// True when any of the DispFlag bits is set in gCmdArg; false before it is set.
bool DispHas(uint8_t flags);

// Sets these DispFlag bits in gCmdArg from now on; does nothing before it is set.
void DispSet(uint8_t flags);
