#include "Keywords.h"

#include "KernelFiles.h"
#include "Memory.h"
#include "Msr.h"
#include "Ports.h"
#include "Settings.h"
#include "models/AmdPm.h"
#include "models/Cmos.h"
#include "models/DwI2c.h"
#include "models/Ecam.h"
#include "models/PciConfigPorts.h"
#include "models/PciFunction.h"
#include "models/PciLines.h"
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

// A new device model adds its row here and its source file to CMakeLists.txt.
const Keyword KEYWORDS[] = {
    // doors
    {"iopl", "ok|ERROR", IoplLine},
    {"mem", "ok|ERROR", MemLine},
    {"msr-nodes", "always|modprobe|never|ERROR", MsrNodesLine},
    {"cpus", "LIST...", CpusLine},
    {"systab", "sys|proc \"LINE\"|ERROR", SystabLine},
    {"file-bytes", "\"PATH\" OFFSET BYTE...", FileBytesLine},
    {"system", "print|real|exit [CODE] [PREFIX]", SystemLine},
    {"cpuid", "LEAF SUBLEAF EAX EBX ECX EDX [cpus LIST]", CpuidLine},
    {"msr", "INDEX VALUE [cpus LIST] [ro] [rw MASK] [count STEP] [hidden MASK KEY BITS]", MsrLine},
    {"refuse", "ADDRESS LENGTH ERROR [sync]", RefuseLine},
    // memory
    {"bytes", "ADDRESS BYTE...", BytesLine},
    {"text", "ADDRESS \"TEXT\"", TextLine},
    {"fill", "ADDRESS LENGTH BYTE|address", FillLine},
    {"file", "ADDRESS NAME | \"PATH\" \"LINE\"|ERROR", FileLine}, // memory, or a file of the kernel's
    {"watch", "ADDRESS LENGTH", WatchLine},
    {"hole", "ADDRESS LENGTH", HoleLine},
    {"sequence", "ADDRESS VALUE...", SequenceLine},
    // ports
    {"delay", "PORT", DelayPortLine},
    {"latch", "PORT COUNT [BYTE|counting]", LatchPortLine},
    {"constant", "PORT BYTE...", ConstantPortLine},
    {"unlogged", "PORT COUNT", UnloggedLine},
    {"system-control", "", SystemControlLine},
    {"cmos", "", CmosLine},
    {"cmos-bytes", "INDEX BYTE...", CmosBytesLine},
    {"cmos-time", "YYYY-MM-DD HH:MM:SS", CmosTimeLine},
    {"cmos-run", "delays|real [FACTOR]", CmosRunLine},
    {"cmos-stop", "", CmosStopLine},
    {"cmos-stuck", "[POLLS]", CmosStuckLine},
    {"pm1", "PORT [STATUS ENABLE CONTROL]", Pm1Line},
    {"superio", "PORT KEY KEY [EXIT]", SuperIoLine},
    {"superio-global", "REGISTER BYTE... [ro]", SuperIoGlobalLine},
    {"superio-device", "LDN REGISTER BYTE... [ro]", SuperIoDeviceLine},
    {"pm-registers", "", AmdPmLine},
    {"pm-bytes", "INDEX BYTE...", AmdPmBytesLine},
    // SMBus
    {"smbus-host", "pci|pm [US]", SmbusHostLine},
    {"smbus-eeprom", "ADDRESS [OPTION...]", SmbusEepromLine},
    {"smbus-spd", "ADDRESS [OPTION...]", SmbusSpdLine},
    {"smbus-remove", "ADDRESS", SmbusRemoveLine},
    {"smbus-bytes", "OFFSET BYTE...", SmbusBytesLine},
    {"smbus-fill", "OFFSET COUNT BYTE|counting", SmbusFillLine},
    // I2C
    {"i2c-core", "BASE [OPTION...]", I2cCoreLine},
    {"i2c-device", "ADDRESS [refuses N]", I2cDeviceLine},
    {"i2c-words", "REGISTER WORD...", I2cWordsLine},
    // PCI
    {"pci-ports", "", PciConfigPortsLine},
    {"ecam", "BASE BUSES", EcamLine},
    {"pci", "BB:DD.F [VVVV:DDDD] [class CCSSPP] [rev RR] [header HH] [multi] [verbatim]", PciLine},
    {"pci-remove", "BB:DD.F|all", PciRemoveLine},
    {"config", "OFFSET BYTE...", PciConfigLine},
    {"window", "OFFSET BYTE...", PciWindowLine},
    {"byte", "OFFSET VALUE [rw MASK] [w1c MASK]", PciByteLine},
    {"word", "OFFSET VALUE [rw MASK] [w1c MASK]", PciWordLine},
    {"dword", "OFFSET VALUE [rw MASK] [w1c MASK]", PciDwordLine},
    {"irq", "LINE PIN", PciIrqLine},
    {"subsystem", "VVVV:DDDD", PciSubsystemLine},
    {"bar", "N io|mem|mem64 ADDRESS SIZE", PciBarLine},
    {"buses", "PRIMARY SECONDARY SUBORDINATE", PciBusesLine},
    {"cap", "ID OFFSET [BYTE...]", PciCapLine},
    {"pcie", "OFFSET TYPE DIS|L0S|L1|L01", PciExpressLine},
    {"xcap", "ID VERSION OFFSET", PciExtendedCapLine},
    // the system management network, behind the function above
    {"smn", "", SmnLine},
    {"smn-register", "DIE ADDRESS VALUE [ro]", SmnRegisterLine},
    {"smu-mailbox", "[US]", SmuMailboxLine},
    {"smu-reply", "ID RESPONSE [ARGUMENT...]", SmuReplyLine},
};

} // namespace

const Keyword *FindKeyword(const char *word) {
    static const Keyword *last = KEYWORDS; // most lines begin as the one before
    if (strcmp(last->word, word) == 0)
        return last;
    for (const Keyword &keyword : KEYWORDS)
        if (strcmp(keyword.word, word) == 0)
            return last = &keyword;
    return nullptr;
}
