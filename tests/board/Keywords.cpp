#include "Keywords.h"

#include "Memory.h"
#include "Msr.h"
#include "Ports.h"
#include "Settings.h"
#include "models/Cmos.h"
#include "models/Ecam.h"
#include "models/PciConfigPorts.h"
#include "models/PciFunction.h"
#include "models/SimplePorts.h"
#include "models/SuperIo.h"
#include "models/SystemControl.h"

#include <string.h>

namespace {

struct Keyword {
    const char *word;
    void (*carryOut)(BoardLine *line);
};

// A new device model adds its row here and its source file to CMakeLists.txt.
const Keyword KEYWORDS[] = {
    // doors
    {"iopl", IoplLine},
    {"mem", MemLine},
    {"msr-nodes", MsrNodesLine},
    {"cpus", CpusLine},
    {"systab", SystabLine},
    {"system", SystemLine},
    {"cpuid", CpuidLine},
    {"msr", MsrLine},
    {"refuse", RefuseLine},
    // memory
    {"bytes", BytesLine},
    {"text", TextLine},
    {"fill", FillLine},
    {"file", FileLine},
    {"watch", WatchLine},
    {"hole", HoleLine},
    // ports
    {"delay", DelayPortLine},
    {"latch", LatchPortLine},
    {"constant", ConstantPortLine},
    {"unlogged", UnloggedLine},
    {"system-control", SystemControlLine},
    {"cmos", CmosLine},
    {"cmos-bytes", CmosBytesLine},
    {"cmos-time", CmosTimeLine},
    {"superio", SuperIoLine},
    {"superio-global", SuperIoGlobalLine},
    {"superio-device", SuperIoDeviceLine},
    // PCI
    {"pci-ports", PciConfigPortsLine},
    {"ecam", EcamLine},
    {"pci", PciLine},
    {"pci-remove", PciRemoveLine},
    {"byte", PciByteLine},
    {"word", PciWordLine},
    {"dword", PciDwordLine},
    {"irq", PciIrqLine},
    {"subsystem", PciSubsystemLine},
    {"bar", PciBarLine},
    {"buses", PciBusesLine},
    {"cap", PciCapLine},
    {"pcie", PciExpressLine},
    {"xcap", PciExtendedCapLine},
};

} // namespace

void CarryOutKeyword(BoardLine *line) {
    for (const Keyword &keyword : KEYWORDS)
        if (strcmp(keyword.word, line->words[0]) == 0) {
            keyword.carryOut(line);
            return;
        }
    LineFail(line, "unknown keyword", line->words[0]);
}
