// hwreg-capture: writes a machine's hardware and firmware into a board file.
#include <sys/auxv.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "BasicLib/Driver.h"
#include "Common/ComFunc/Signals.h"
#include "tools/capture/CpuList.h"
#include "tools/capture/Firmware.h"
#include "tools/capture/Leaves.h"
#include "tools/capture/Modules.h"
#include "tools/capture/Msrs.h"
#include "tools/capture/Options.h"
#include "tools/capture/Parts.h"
#include "tools/capture/Pci.h"
#include "tools/capture/Ports.h"
#include "tools/capture/Resources.h"
#include "tools/capture/Serials.h"
#include "tools/capture/Sheet.h"

enum ExitStatus { EXIT_DONE = 0, EXIT_NOT_WRITTEN = 1, EXIT_WRONG_OPTION = 2, EXIT_NO_PRIVILEGE = 6 };

static int Refuse(const char *what, int error, const char *advice) {
    fprintf(stderr, "hwreg-capture: %s: %s; %s\n", what, strerror(error), advice);
    return EXIT_NO_PRIVILEGE;
}

static int OpenHardware() {
    errno = 0;
    if (OpenPortsAndMemory() != EFI_SUCCESS)
        return Refuse(
            "no I/O privilege", errno,
            "run it as root (sudo hwreg-capture ...); a kernel that is locked down refuses it to root, too");
    if (gMemFd == MEM_FD_NONE)
        return Refuse("no physical memory (/dev/mem)", errno,
                      "run it as root, on a kernel that has the device (CONFIG_DEVMEM)");
    return EXIT_DONE;
}

static void PutHead(int argc, char **argv) {
    char date[64] = "";
    time_t now = time(nullptr);
    struct tm parts = {};
    utsname kernel = {};
    gmtime_r(&now, &parts);
    strftime(date, sizeof(date), "%Y-%m-%d %H:%M:%S UTC", &parts);
    uname(&kernel);
    Put("capture 1\n# Captured by hwreg-capture " HWREG_VERSION " on %s, %s %s %s\n# options:", date,
        kernel.sysname, kernel.release, kernel.machine);
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "-o") == 0)
            ++i; // where the file went says nothing about the machine
        else
            Put(" %s", argv[i]);
    }
    Put("\n\n");
}

static void PutDoors() {
    FindCpus();
    Put("# --- doors\niopl ok\nmem ok\n");
    switch (MsrNodesError()) {
    case 0:
        Put("msr-nodes always\n");
        break;
    case ENOENT:
    case ENXIO:
        Put("msr-nodes never\n");
        break;
    default:
        Put("msr-nodes %s\n", ErrorName(MsrNodesError()));
        break;
    }
    Put("cpus %s\n", CpuSetText(MachineCpus()));
    Put("delay ed    # the machine's time passes by it\n\n");
}

static void AddAskedMemory() {
    for (uint32_t i = 0; i < gOptions.memory.count; ++i) {
        const AskedRange *asked = &gOptions.memory.ranges[i];
        uint64_t length = static_cast<uint64_t>(asked->last) - asked->first + 1;
        AddPart(asked->first, length, "memory that was asked for");
    }
}

static void PutMachine() {
    PutDoors();
    Progress("processors");
    CaptureLeaves();
    CaptureMsrs();
    Put("\n# --- firmware\n");
    Progress("firmware");
    ReadFirmware();
    CapturePmRegisters(); // in front of the SMBus host, which they switch on
    Put("\n");
    CapturePci();
    Put("\n# --- memory\n");
    Progress("memory");
    AddAskedMemory();
    if (gOptions.noSerials)
        HideMemorySerials();
    PutParts();
    PutRefusals();
    Put("\n");
    CaptureCmos();
    CapturePm1();
    if (gOptions.superio)
        CaptureSuperIo();
    if (gOptions.spd)
        CaptureModules();
    CapturePorts();
    PutResources();
    Put("end\n");
    Progress(nullptr);
}

int main(int argc, char **argv) {
    if (getauxval(AT_SECURE) != 0) // nobody gets the hardware by the mode or capabilities of this file
        return EXIT_NO_PRIVILEGE;
    IgnoreFileSizeSignal();
    if (!ParseOptions(argc, argv))
        return EXIT_WRONG_OPTION;
    if (gOptions.help || gOptions.version) {
        if (gOptions.help)
            ShowUsage();
        else
            puts("hwreg-capture " HWREG_VERSION);
        return fflush(stdout) == 0 ? EXIT_DONE : EXIT_NOT_WRITTEN;
    }
    int status = OpenHardware();
    if (status != EXIT_DONE)
        return status;
    if (!SheetBegin()) {
        fprintf(stderr, "hwreg-capture: %s\n", strerror(ENOMEM));
        return EXIT_NOT_WRITTEN;
    }
    PutHead(argc, argv);
    PutMachine();
    CloseLinuxDriver();
    return SheetWrite(gOptions.output) ? EXIT_DONE : EXIT_NOT_WRITTEN;
}
