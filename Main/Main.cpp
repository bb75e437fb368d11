// Start-up and dispatch: opens the hardware, turns the command line into the command word, calls exactly one
// handler and exits with its status.
#include <sys/auxv.h>

#include "BasicLib/Driver.h"
#include "Common/ComFunc/Output.h"
#include "Common/ComFunc/Shell.h"
#include "Common/ComFunc/Signals.h"
#include "Common/Global.h"
#include "Main/Commands.h"
#include "Main/Help.h"
#include "Main/Parser.h"
#include "Project/ACPIAcc.h"
#include "Project/CpuAcc.h"
#include "Project/FileOp.h"
#include "Project/I2CAcc.h"
#include "Project/IoAcc.h"
#include "Project/MemAcc.h"
#include "Project/NbioSmu.h"
#include "Project/PciAcc.h"
#include "Project/Rtc.h"
#include "Project/SMBusAcc.h"
#include "Project/Smbios.h"
#include "Project/SuperIO.h"

static EFI_STATUS EnableAdvancedAcc() {
    return OpenLinuxDriver();
}

static void DisableAdvancedAcc() {
    CloseLinuxDriver();
}

static EFI_STATUS InvokeEntries() {
    switch (CommandOf(CmdWord())) {
    case COMMAND_SCREEN:
        return showHelp();
    case COMMAND_IO:
        return IoAccess();
    case COMMAND_MEMORY:
        return MemAccess();
    case COMMAND_PCI:
        return PciAccess();
    case COMMAND_SMBUS:
        return static_cast<uint8_t>(SMBusEntryPoint()); // a byte: a failure arrives as 255
    case COMMAND_CPU:
        return CpuAccEntry();
    case COMMAND_POWER:
        return RtcAndShutdownEntry();
    case COMMAND_FILE:
        return FileOptEntry();
    case COMMAND_SMBIOS:
        return SmbiosEntry();
    case COMMAND_ACPI:
        return AcpiEntry();
    case COMMAND_SIO:
        return SioListReg();
    case COMMAND_NBIO:
        return NbioEntry();
    case COMMAND_I2C:
        return static_cast<uint8_t>(I2CEntryPoint());
    default:
        return EFI_ACCESS_DENIED;
    }
}

// True for a process that has more rights than whoever started it, by the mode or the capabilities of its
// file: nobody gets the hardware by these.
static bool HasRaisedRights() {
    return getauxval(AT_SECURE) != 0;
}

int main(int argc, char **argv) {
    CmdArg record = {};
    if (HasRaisedRights())
        return static_cast<int>(EFI_NOT_READY);
    IgnoreFileSizeSignal();
    EnsureStandardDescriptors();
    if (EnableAdvancedAcc() != EFI_SUCCESS)
        return static_cast<int>(EFI_NOT_READY);
    argvToUpper(argv);
    CmdType cmd = TranslateCmd(argv);
    if (HasFlag(cmd, Flag::HELP) || !isCmdTypeNotNULL(cmd))
        ClearScreen();
    gCmdArg = setTypeCmdArg(&record, cmd, argc, argv);
    if (gCmdArg == nullptr)
        return -1;
    EFI_STATUS status = InvokeEntries();
    DisableAdvancedAcc();
    EndOutput();
    return static_cast<int>(status);
}
