#include "Keywords.h"

#include "Memory.h"
#include "Msr.h"
#include "Ports.h"
#include "Settings.h"
#include "models/AmdPm.h"
#include "models/Cmos.h"
#include "models/CmosClock.h"
#include "models/DwI2c.h"
#include "models/Ecam.h"
#include "models/PciConfigPorts.h"
#include "models/PciFunction.h"
#include "models/PciVerbatim.h"
#include "models/Pm1.h"
#include "models/Sequence.h"
#include "models/SimplePorts.h"
#include "models/SmbusHost.h"
#include "models/SmbusSlaves.h"
#include "models/Smn.h"
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
    {"sequence", SequenceLine},
    // ports
    {"delay", DelayPortLine},
    {"latch", LatchPortLine},
    {"constant", ConstantPortLine},
    {"unlogged", UnloggedLine},
    {"system-control", SystemControlLine},
    {"cmos", CmosLine},
    {"cmos-bytes", CmosBytesLine},
    {"cmos-time", CmosTimeLine},
    {"cmos-run", CmosRunLine},
    {"cmos-stop", CmosStopLine},
    {"cmos-stuck", CmosStuckLine},
    {"pm1", Pm1Line},
    {"superio", SuperIoLine},
    {"superio-global", SuperIoGlobalLine},
    {"superio-device", SuperIoDeviceLine},
    {"pm-registers", AmdPmLine},
    {"pm-bytes", AmdPmBytesLine},
    // SMBus
    {"smbus-host", SmbusHostLine},
    {"smbus-eeprom", SmbusEepromLine},
    {"smbus-spd", SmbusSpdLine},
    {"smbus-remove", SmbusRemoveLine},
    {"smbus-bytes", SmbusBytesLine},
    {"smbus-fill", SmbusFillLine},
    // I2C
    {"i2c-core", I2cCoreLine},
    {"i2c-device", I2cDeviceLine},
    {"i2c-words", I2cWordsLine},
    // PCI
    {"pci-ports", PciConfigPortsLine},
    {"ecam", EcamLine},
    {"pci", PciLine},
    {"pci-remove", PciRemoveLine},
    {"config", PciConfigLine},
    {"window", PciWindowLine},
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
    // the system management network, behind the function above
    {"smn", SmnLine},
    {"smn-register", SmnRegisterLine},
    {"smu-mailbox", SmuMailboxLine},
    {"smu-reply", SmuReplyLine},
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
