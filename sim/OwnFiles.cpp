#include "OwnFiles.h"

#include "Settings.h"
#include "models/PciFunction.h"
#include "models/PciRegisters.h"

#include <errno.h>
#include <fnmatch.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr unsigned FUNCTIONS = 0x10000;
constexpr unsigned BASES = 7; // of a function, with the one of its ROM
constexpr const char *CPU_FILES = "/sys/devices/system/cpu/";

// The next function at or behind the number, null behind the last one.
const PciFunction *NextFunction(unsigned number) {
    for (; number < FUNCTIONS; number++)
        if (const PciFunction *function = PciFind(static_cast<uint16_t>(number)))
            return function;
    return nullptr;
}

// What its base address registers hold; one of 64 bits counts as the first of its two.
void ReadBases(const PciFunction *function, uint64_t *bases) {
    unsigned count = PciLayout(function) == LAYOUT_DEVICE ? 6 : PciLayout(function) == LAYOUT_BRIDGE ? 2 : 1;
    for (unsigned i = 0; i < count; i++) {
        bases[i] = PciStored(function, static_cast<uint16_t>(PCI_BASE_ADDRESS_0 + 4 * i), 4);
        bool wide = (bases[i] & 7) == 4 && i + 1 < count;
        if (wide)
            bases[i] |= static_cast<uint64_t>(
                            PciStored(function, static_cast<uint16_t>(PCI_BASE_ADDRESS_0 + 4 * i + 4), 4))
                        << 32;
        i += wide;
    }
}

// A line of /proc/bus/pci/devices; the board knows no sizes and no drivers.
void WriteDevice(int descriptor, const PciFunction *function) {
    char text[400];
    uint64_t bases[BASES] = {};
    ReadBases(function, bases);
    int length =
        snprintf(text, sizeof text, "%04x\t%04x%04x\t%x", function->number, PciStored(function, 0, 2),
                 PciStored(function, 2, 2), PciStored(function, PCI_INTERRUPT_LINE, 1));
    for (unsigned i = 0; i < 2 * BASES; i++)
        length += snprintf(text + length, sizeof text - static_cast<size_t>(length), "\t%16" PRIx64,
                           i < BASES ? bases[i] : 0);
    length += snprintf(text + length, sizeof text - static_cast<size_t>(length), "\t\n");
    WriteText(descriptor, text, static_cast<size_t>(length));
}

void WriteDevices(int descriptor) {
    const PciFunction *function = NextFunction(0);
    for (; function; function = NextFunction(function->number + 1u))
        WriteDevice(descriptor, function);
}

// As the kernel reads it: through the ports, and what lies beyond them through the window.
void WriteConfig(int descriptor, const PciFunction *function) {
    char bytes[PCI_SPACE];
    unsigned length = function->express ? PCI_SPACE : PCI_EXTENDED_SPACE;
    for (unsigned i = 0; i < length; i += 4) {
        uint16_t offset = static_cast<uint16_t>(i);
        uint32_t value = i < PCI_EXTENDED_SPACE ? PciConfigRead(function->number, offset, 4)
                                                : PciWindowRead(function->number, offset, 4);
        memcpy(bytes + i, &value, sizeof value);
    }
    WriteText(descriptor, bytes, length);
}

// The function whose configuration space the path names, null for another path.
const PciFunction *FunctionOfPath(const char *path) {
    unsigned bus;
    unsigned device;
    unsigned function;
    char own[60];
    if (sscanf(path, "/sys/bus/pci/devices/0000:%2x:%2x.%1x/config", &bus, &device, &function) != 3)
        return nullptr;
    snprintf(own, sizeof own, "/sys/bus/pci/devices/0000:%02x:%02x.%x/config", bus, device, function);
    if (device > 0x1F || function > 7 || strcmp(own, path) != 0)
        return nullptr;
    return PciFind(static_cast<uint16_t>(bus << 8 | device << 3 | function));
}

// "0-3,5"
void WriteCpus(int descriptor) {
    const char *comma = "";
    for (int cpu = 0; cpu < MAX_CPUS; cpu++) {
        if (!gBoard.cpuPresent[cpu])
            continue;
        int last = cpu;
        while (last + 1 < MAX_CPUS && gBoard.cpuPresent[last + 1])
            last++;
        char text[30];
        snprintf(text, sizeof text, last > cpu ? "%s%d-%d" : "%s%d", comma, cpu, last);
        WriteText(descriptor, text, strlen(text));
        comma = ",";
        cpu = last;
    }
    WriteText(descriptor, "\n", 1);
}

bool IsCpuList(const char *path) {
    size_t length = strlen(CPU_FILES);
    if (strncmp(path, CPU_FILES, length) != 0)
        return false;
    const char *name = path + length;
    return strcmp(name, "online") == 0 || strcmp(name, "present") == 0 || strcmp(name, "possible") == 0;
}

void WriteLine(int descriptor, bool there, const char *line) {
    WriteText(descriptor, line, there ? strlen(line) : 0);
}

bool IsOfModules(const char *path, const char *name) {
    char pattern[60];
    snprintf(pattern, sizeof pattern, "/lib/modules/*/%s", name);
    return fnmatch(pattern, path, FNM_PATHNAME) == 0;
}

// The module for MSRs is a file, part of the kernel, or nowhere.
int WriteOfModules(const char *path, int descriptor) {
    bool isFile = gBoard.msrNodes == MSR_NODES_AFTER_MODPROBE;
    if (IsOfModules(path, "modules.dep"))
        WriteLine(descriptor, isFile, "kernel/arch/x86/kernel/msr.ko:\n");
    else if (IsOfModules(path, "modules.builtin"))
        WriteLine(descriptor, gBoard.msrNodes == MSR_NODES_ALWAYS, "kernel/arch/x86/kernel/msr.ko\n");
    else if (!isFile || !IsOfModules(path, "kernel/arch/x86/kernel/msr.ko"))
        return ENOENT;
    return 0;
}

} // namespace

int WriteOwnFile(const char *path, int descriptor) {
    if (const PciFunction *function = FunctionOfPath(path))
        WriteConfig(descriptor, function);
    else if (strcmp(path, "/proc/bus/pci/devices") == 0)
        WriteDevices(descriptor);
    else if (IsCpuList(path))
        WriteCpus(descriptor);
    else
        return WriteOfModules(path, descriptor);
    return 0;
}

void WriteText(int descriptor, const char *text, size_t length) {
    long done = 1;
    while (length > 0 && done > 0) {
        done = syscall(SYS_write, descriptor, text, length);
        if (done > 0) {
            text += done;
            length -= static_cast<size_t>(done);
        }
    }
}
