#include "tools/check/machine/Drivers.h"

#include <cstdio>
#include <cstring>

#include "BasicLib/Chipset.h"
#include "BasicLib/PciPorts.h"
#include "Common/FileLib.h"
#include "Platform/DwI2c.h"
#include "tools/check/machine/KernelFiles.h"
#include "tools/check/machine/MemoryMap.h"
#include "tools/check/machine/Note.h"
#include "tools/check/machine/PciList.h"

constexpr uint16_t CLASS_SMBUS = 0x0C05;
constexpr uint32_t INTEL_HOST_CONFIGURATION = 0x40;
constexpr uint8_t INTEL_HOST_ENABLE = 1;
constexpr uint64_t SUPERIO_INDEX = 0x4E;
constexpr size_t NAMES = 120;

// Adds a name to a list of them, as long as there is room.
static void AddName(char *names, const char *name) {
    size_t length = strlen(names);
    if (strstr(names, name) == nullptr)
        snprintf(names + length, NAMES - length, "%s%s", length == 0 ? "" : ", ", name);
}

// Intel's host answers only while bit 0 of its register 40h is set; UEFI firmware may leave that to drivers.
static bool IsSwitchedOff(const PciFunction *host) {
    uint8_t configuration;
    return ThisChipset()->smbusBlock == HOME_PCI &&
           ReadPciConfig(host->bus, host->dev, host->fun, INTEL_HOST_CONFIGURATION, &configuration, 1) &&
           (configuration & INTEL_HOST_ENABLE) == 0;
}

static void NoteSmbus() {
    const PciFunction *list;
    const PciFunction *host = FunctionOfClass(CLASS_SMBUS);
    if (host == nullptr && PciFunctions(&list) == 0)
        return Note(FINDING_SMBUS_HOST, STATE_UNKNOWN, "the kernel's list of PCI functions is not to be had");
    if (host == nullptr) {
        Note(FINDING_SMBUS_HOST, STATE_BAD, "no PCI function has class 0C05h: /SMBUS finds no controller");
        Remedy(FINDING_SMBUS_HOST, "look whether the firmware's setup hides the SMBus controller");
        return Note(FINDING_SMBUS_DRIVER, STATE_GOOD, "no controller, no driver");
    }
    bool off = IsSwitchedOff(host);
    Note(FINDING_SMBUS_HOST, off ? STATE_BAD : STATE_GOOD,
         "the SMBus controller is %02x:%02x.%x, %04x:%04x%s", host->bus, host->dev, host->fun, host->vendor,
         host->device, off ? ", and is switched off (bit 0 of its register 40h)" : "");
    if (off)
        Remedy(FINDING_SMBUS_HOST, "setpci -s %02x:%02x.%x 40.b=1:1", host->bus, host->dev, host->fun);
    if (host->driver[0] == 0)
        return Note(FINDING_SMBUS_DRIVER, STATE_GOOD, "no driver uses the SMBus controller");
    Note(FINDING_SMBUS_DRIVER, STATE_CAUTION,
         "the driver %s uses the same SMBus controller: transfers of both may mix", host->driver);
    Remedy(FINDING_SMBUS_DRIVER, "echo 0000:%02x:%02x.%x >/sys/bus/pci/drivers/%s/unbind", host->bus,
           host->dev, host->fun, host->driver);
}

static void NoteClock() {
    char name[KERNEL_LINE];
    if (!FirstLine("/sys/class/rtc/rtc0/name", name))
        return Note(FINDING_RTC_DRIVER, STATE_GOOD, "no driver of the kernel has the clock");
    if (strncmp(name, "rtc_cmos", 8) != 0)
        return Note(FINDING_RTC_DRIVER, STATE_GOOD, "the kernel's first clock is another one (%.60s)", name);
    Note(FINDING_RTC_DRIVER, STATE_CAUTION,
         "the driver rtc_cmos owns the same clock: an alarm that it knows of takes the place of hwreg's on "
         "the way down");
    Remedy(FINDING_RTC_DRIVER, "echo 0 >/sys/class/rtc/rtc0/wakealarm before a cycle; see power-cycling.md");
}

// Drivers that write to a Super I/O's index port whenever they like.
static const char *const mSuperIoDrivers[] = {
    "dme1737", "f71805f",   "f71882fg",       "f71808e_wdt",  "gpio_f7188x", "gpio_it87",
    "it87",    "it87_wdt",  "nct6683",        "nct6775",      "pc87360",     "pc87427",
    "sch5627", "sch5636",   "sch56xx_common", "smsc47b397",   "smsc47m1",    "smsc47m192",
    "vt1211",  "w83627ehf", "w83627hf",       "w83627hf_wdt",
};

// Whoever has claimed the index port; bridges and firmware do so for all.
static const char *ClaimantOfPort(uint64_t port) {
    const Resource *list;
    const char *name = nullptr;
    uint32_t count = PortMap(&list);
    for (uint32_t i = 0; i < count; ++i) {
        bool plain = strncmp(list[i].name, "PCI", 3) == 0 || strncmp(list[i].name, "pnp", 3) == 0 ||
                     strncmp(list[i].name, "ACPI", 4) == 0 || strncmp(list[i].name, "0000:", 5) == 0;
        if (list[i].first <= port && port <= list[i].last && !plain)
            name = list[i].name;
    }
    return name;
}

static void NoteSuperIo() {
    char line[KERNEL_LINE];
    char names[NAMES] = "";
    FILE *file = OpenToRead("/proc/modules");
    while (NextLine(file, line)) {
        line[strcspn(line, " ")] = 0;
        for (const char *driver : mSuperIoDrivers) {
            if (strcmp(line, driver) == 0)
                AddName(names, driver);
        }
    }
    const char *claimant = ClaimantOfPort(SUPERIO_INDEX);
    if (claimant != nullptr)
        AddName(names, claimant);
    if (file != nullptr)
        Fclose(file);
    if (names[0] == 0 && file == nullptr)
        return Note(FINDING_SUPERIO_DRIVER, STATE_UNKNOWN, "/proc/modules does not tell");
    if (names[0] == 0)
        return Note(FINDING_SUPERIO_DRIVER, STATE_GOOD,
                    "no driver that is known uses the Super I/O's index ports");
    Note(FINDING_SUPERIO_DRIVER, STATE_CAUTION, "drivers use the Super I/O's index ports, too: %s", names);
    Remedy(FINDING_SUPERIO_DRIVER, "unload them (modprobe -r) before /SIO and /IO /INDEX 0x4E 0x4F");
}

static void NoteI2c() {
    if (!ThisChipset()->dwI2c)
        return Note(FINDING_I2C_DRIVER, STATE_GOOD,
                    "no I2C controllers that /I2C knows: they are AMD's and Hygon's");
    char names[NAMES] = "";
    for (uint32_t core = 0; core < I2C_BUS_COUNT; ++core) {
        char path[80];
        char line[KERNEL_LINE];
        snprintf(path, sizeof(path), "/sys/bus/platform/devices/AMDI0010:%02x/uevent", core);
        if (FirstLine(path, line) && strncmp(line, "DRIVER=", 7) == 0)
            AddName(names, line + 7);
    }
    if (names[0] == 0)
        return Note(FINDING_I2C_DRIVER, STATE_GOOD, "no driver uses the I2C controllers");
    Note(FINDING_I2C_DRIVER, STATE_CAUTION,
         "the driver %s uses the same I2C controllers; /I2C sets them up anew", names);
    Remedy(FINDING_I2C_DRIVER, "unbind it: echo AMDI0010:00 >/sys/bus/platform/drivers/%s/unbind", names);
}

void FindDrivers() {
    NoteSmbus();
    NoteClock();
    NoteSuperIo();
    NoteI2c();
}
