#include "tools/check/machine/Window.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Base/Memory.h"
#include "BasicLib/Chipset.h"
#include "BasicLib/Cpu.h"
#include "BasicLib/PciPorts.h"
#include "BasicLib/PciWindow.h"
#include "BasicLib/PhysMem.h"
#include "Platform/AcpiTables.h"
#include "tools/check/machine/KernelFiles.h"
#include "tools/check/machine/MemoryDoor.h"
#include "tools/check/machine/MemoryMap.h"
#include "tools/check/machine/MsrDoor.h"
#include "tools/check/machine/Note.h"
#include "tools/check/machine/PciList.h"

constexpr uint32_t MCFG_SIGNATURE = 0x4746434D;
constexpr uint32_t MCFG_FIRST = 44;
constexpr uint32_t MCFG_ENTRY = 16;
constexpr uint32_t MOST_MCFG_BYTES = 0x10000;
constexpr uint16_t INTEL_PCIEXBAR = 0x60;
constexpr uint32_t AMD_MMIO_CFG_BASE_ADDR = 0xC0010058;
constexpr uint32_t WINDOW_ENABLE = 1;
constexpr uint32_t BASE_MASK = 0xFFF00000;
constexpr uint32_t BUS_SHIFT = 20;
constexpr uint8_t CAPABILITIES = 0x10; // of the status register
constexpr int LAST_BUS = 255;

static ConfigWindow mWindow = {WINDOW_UNKNOWN, 0, -1, -1, 0};

// What says where the window is, and what the chipset's register says.
struct Truth {
    const char *who; // NULL: nobody
    uint64_t base;
    int first, last;
};

struct Register {
    const char *name;
    bool known;
    uint64_t value;
    const char *wrong; // why it is no window register, NULL when it may be one
};

static Truth mTruth;
static Register mRegister;

// Of several entries for domain 0 the one that has hwreg's base, else the first.
static void TakeMcfg(const uint8_t *table, uint32_t length, const char *who) {
    uint32_t base = static_cast<uint32_t>(mRegister.value) & BASE_MASK;
    bool any = false;
    for (uint32_t at = MCFG_FIRST; at + MCFG_ENTRY <= length; at += MCFG_ENTRY) {
        const uint8_t *entry = table + at;
        uint64_t found = Load32(entry) | static_cast<uint64_t>(Load32(entry + 4)) << 32;
        if (found == 0 || Load16(entry + 8) != 0 || entry[11] < entry[10])
            continue;
        if (!any || found == base)
            mTruth = {who, found, entry[10], entry[11]};
        any = true;
        if (found == base)
            return;
    }
}

static bool TakeMcfgFile() {
    static uint8_t table[MOST_MCFG_BYTES];
    uint32_t got = ReadWhole("/sys/firmware/acpi/tables/MCFG", table, sizeof(table));
    if (Load32(table) == MCFG_SIGNATURE)
        TakeMcfg(table, got, "the table MCFG");
    return mTruth.who != nullptr;
}

// The way of the commands: a root pointer below 1 MiB, and no checksums.
static bool TakeMcfgOfMemory() {
    uint32_t address = 0;
    if (MemoryError() != 0 || FindEntryInRsdp(ACPI_XSDT_THEN_RSDT, MCFG_SIGNATURE, &address) != EFI_SUCCESS)
        return false;
    uint32_t length = MemRead32(address + 4);
    uint8_t *copy = length <= MOST_MCFG_BYTES ? CopyPhysical(address, length) : nullptr;
    if (copy != nullptr && length >= MCFG_FIRST && Load32(copy) == MCFG_SIGNATURE)
        TakeMcfg(copy, length, "the table MCFG in memory");
    Free(copy);
    return mTruth.who != nullptr;
}

// "PCI MMCONFIG 0000 [bus 00-ff]", in newer kernels "PCI ECAM 0000 [bus 00-ff]".
static bool TakeMemoryMap() {
    const Resource *list;
    uint32_t count = MemoryMap(&list);
    for (uint32_t i = 0; i < count; ++i) {
        unsigned domain = 0;
        unsigned first = 0;
        unsigned last = 0;
        if (sscanf(list[i].name, "PCI MMCONFIG %x [bus %x-%x]", &domain, &first, &last) != 3 &&
            sscanf(list[i].name, "PCI ECAM %x [bus %x-%x]", &domain, &first, &last) != 3)
            continue;
        if (domain != 0 || first > last || last > LAST_BUS)
            continue;
        uint64_t base = list[i].first - (static_cast<uint64_t>(first) << BUS_SHIFT);
        mTruth = {"the kernel's map of memory", base, static_cast<int>(first), static_cast<int>(last)};
        return true;
    }
    return false;
}

// True when the list of capabilities has one that holds the offset; a list of any form.
static bool IsInCapability(const uint8_t *config, uint32_t offset) {
    if ((config[PCI_STATUS] & CAPABILITIES) == 0)
        return false;
    uint8_t at = config[PCI_CAPABILITY_LIST] & 0xFC;
    for (int i = 0; i < 64 && at >= 0x40; ++i) {
        if (at <= offset && offset < at + 4u)
            return true;
        at = config[at + 1] & 0xFC;
    }
    return false;
}

static void ReadIntelRegister() {
    uint8_t config[PCI_CONFIG_BYTES];
    mRegister.name = "register 60h of the host bridge";
    mRegister.known = ReadPciConfig(0, 0, 0, 0, config, sizeof(config));
    if (!mRegister.known)
        return;
    mRegister.value =
        Load32(config + INTEL_PCIEXBAR) | static_cast<uint64_t>(Load32(config + INTEL_PCIEXBAR + 4)) << 32;
    if (mRegister.value == 0)
        mRegister.wrong = "it is 0";
    else if (IsInCapability(config, INTEL_PCIEXBAR))
        mRegister.wrong = "it belongs to a capability of the host bridge";
    else if ((mRegister.value & WINDOW_ENABLE) == 0)
        mRegister.wrong = "its enable bit is clear";
}

// Where no node will come hwreg takes the 0 of a failed reading for the base.
static void ReadAmdRegister() {
    mRegister.name = "MSR C0010058h";
    mRegister.known =
        TryReadMsr(0, AMD_MMIO_CFG_BASE_ADDR, &mRegister.value) == 0 || MsrNodeOf(0) != MSR_NODE_COMES;
    if (mRegister.known && (mRegister.value & WINDOW_ENABLE) == 0)
        mRegister.wrong = mRegister.value == 0 ? "it is 0, or cannot be read" : "its enable bit is clear";
}

static int BusesOfRegister() {
    if (ThisChipset()->configWindow == HOME_PCI)
        return 0x100 >> (((mRegister.value >> 1) & 3) % 3);
    uint32_t range = (mRegister.value >> 2) & 0xF;
    return range < 8 ? 1 << range : LAST_BUS + 1;
}

// Where register and tables differ, or the register looks wrong and has the tables' base all the same, it is
// believed when the host bridge is seen through it: one load of its first register.
static void JudgeByLook() {
    const PciFunction *list;
    if (PciFunctions(&list) == 0 || PageError(mWindow.base) != 0) {
        mWindow.state = mTruth.who == nullptr ? WINDOW_UNKNOWN : WINDOW_WRONG;
        return;
    }
    uint32_t ids = list[0].vendor | static_cast<uint32_t>(list[0].device) << 16;
    bool seen = MemRead32(mWindow.base) == ids;
    mWindow.state = seen ? WINDOW_RIGHT : WINDOW_WRONG;
    if (seen)
        mTruth = {"the host bridge seen through it", mWindow.base, 0, BusesOfRegister() - 1};
}

static void Judge() {
    bool agreed = mTruth.who != nullptr && mTruth.base == mWindow.base;
    if (agreed && mRegister.wrong == nullptr)
        mWindow.state = WINDOW_RIGHT;
    else if (!agreed && mRegister.wrong != nullptr)
        mWindow.state = WINDOW_WRONG;
    else
        JudgeByLook();
    if (mTruth.who == nullptr)
        return;
    mWindow.firstBus = mTruth.first;
    mWindow.lastBus = mTruth.last;
    mWindow.trueBase = mTruth.base;
}

static void NoteWrong() {
    char truth[96] = "no table says where it is";
    if (mTruth.who != nullptr)
        snprintf(truth, sizeof(truth), "%s says %llxh", mTruth.who,
                 static_cast<unsigned long long>(mTruth.base));
    const char *wrong = mRegister.wrong == nullptr ? "it points elsewhere" : mRegister.wrong;
    Note(FINDING_CONFIG_WINDOW, STATE_BAD,
         "registers 100h-FFFh ARE NOT THERE: hwreg READS AND WRITES ordinary memory or devices at %xh "
         "instead (%s: %s; %s)",
         mWindow.base, mRegister.name, wrong, truth);
    Remedy(FINDING_CONFIG_WINDOW,
           "never write offsets of 100h and above here with /PCI, believe none that was read; "
           "use setpci and lspci -xxxx for them");
}

static void NoteWindow() {
    switch (mWindow.state) {
    case WINDOW_RIGHT:
        return Note(FINDING_CONFIG_WINDOW, STATE_GOOD,
                    "the window is at %xh for buses %02xh-%02xh (%s, and %s)", mWindow.base,
                    static_cast<unsigned>(mWindow.firstBus), static_cast<unsigned>(mWindow.lastBus),
                    mRegister.name, mTruth.who);
    case WINDOW_WRONG:
        return NoteWrong();
    case WINDOW_NO_REGISTER:
        return Note(
            FINDING_CONFIG_WINDOW, STATE_CAUTION,
            "hwreg knows no window for this host bridge (vendor %04x): registers 100h-FFFh read all ones",
            HostBridgeVendor());
    default:
        Note(FINDING_CONFIG_WINDOW, STATE_UNKNOWN, "where hwreg takes the window to be cannot be told: %s %s",
             mRegister.name,
             mRegister.known ? "looks right, and nobody says where the window is" : "cannot be read yet");
        Remedy(FINDING_CONFIG_WINDOW, "%s",
               mRegister.known ? "write no offset of 100h and above before it is known"
                               : "run it as root, after modprobe msr on AMD's platforms");
    }
}

void FindWindow() {
    RegisterHome home = ThisChipset()->configWindow;
    if (home == HOME_PCI)
        ReadIntelRegister();
    else if (home == HOME_MSR)
        ReadAmdRegister();
    mWindow.state = home == HOME_NONE ? WINDOW_NO_REGISTER : WINDOW_UNKNOWN;
    if (mRegister.known)
        mWindow.base = static_cast<uint32_t>(mRegister.value) & BASE_MASK;
    tempPcieBaseAddr = mWindow.base; // nobody looks it up any more
    bool told = TakeMcfgFile() || TakeMcfgOfMemory() || TakeMemoryMap();
    if (mRegister.known)
        Judge();
    else if (told)
        mWindow.trueBase = mTruth.base;
    NoteWindow();
}

const ConfigWindow *Window() {
    return &mWindow;
}
