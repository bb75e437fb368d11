#include "tools/check/machine/PciList.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Base/Memory.h"
#include "BasicLib/Chipset.h"
#include "BasicLib/PciPorts.h"
#include "Common/FileLib.h"
#include "tools/check/machine/KernelFiles.h"

constexpr uint32_t MOST_FUNCTIONS = 4096;
constexpr uint32_t FIELDS_TO_DRIVER = 17; // place, IDs, interrupt, seven bases and seven sizes

static PciFunction mFunctions[MOST_FUNCTIONS];
static uint32_t mCount = 0;

// The list's last field, the driver; "" without one.
static const char *DriverOf(const char *line) {
    for (uint32_t i = 0; i < FIELDS_TO_DRIVER; ++i) {
        line = strchr(line, '\t');
        if (line == nullptr)
            return "";
        ++line;
    }
    return line;
}

// A line of the kernel's list. It names no domain: a function whose IDs are not in the configuration space of
// domain 0 is another domain's.
static bool TakeLine(const char *line, PciFunction *function) {
    unsigned place = 0;
    unsigned ids = 0;
    if (sscanf(line, "%4x\t%8x", &place, &ids) != 2)
        return false;
    function->bus = static_cast<uint16_t>((place >> 8) & 0xFF);
    function->dev = (place >> 3) & 0x1F;
    function->fun = place & 7;
    function->vendor = static_cast<uint16_t>(ids >> 16);
    function->device = static_cast<uint16_t>(ids);
    snprintf(function->driver, sizeof(function->driver), "%s", DriverOf(line));
    function->driver[strcspn(function->driver, " \t")] = 0;
    uint8_t head[PCI_CLASS_DEVICE + 2];
    if (!ReadPciConfig(function->bus, function->dev, function->fun, 0, head, sizeof(head)))
        return false;
    function->classCode = Load16(head + PCI_CLASS_DEVICE);
    return Load16(head) == function->vendor && Load16(head + PCI_DEVICE_ID) == function->device;
}

static int ByPlace(const void *a, const void *b) {
    const PciFunction *left = static_cast<const PciFunction *>(a);
    const PciFunction *right = static_cast<const PciFunction *>(b);
    int leftPlace = left->bus << 8 | left->dev << 3 | left->fun;
    return leftPlace - (right->bus << 8 | right->dev << 3 | right->fun);
}

void FindPciFunctions() {
    char line[KERNEL_LINE];
    FILE *file = OpenToRead("/proc/bus/pci/devices");
    while (mCount < MOST_FUNCTIONS && NextLine(file, line)) {
        if (TakeLine(line, &mFunctions[mCount]))
            ++mCount;
    }
    if (file != nullptr)
        Fclose(file);
    qsort(mFunctions, mCount, sizeof(mFunctions[0]), ByPlace);
    SetChipset(HostBridgeVendor());
}

uint16_t HostBridgeVendor() {
    const PciFunction *first = &mFunctions[0];
    bool there = mCount != 0 && first->bus == 0 && first->dev == 0 && first->fun == 0;
    return there ? first->vendor : VENDOR_UNKNOWN;
}

uint32_t PciFunctions(const PciFunction **list) {
    *list = mFunctions;
    return mCount;
}

const PciFunction *FunctionOfClass(uint16_t classCode) {
    for (uint32_t i = 0; i < mCount; ++i) {
        if (mFunctions[i].classCode == classCode)
            return &mFunctions[i];
    }
    return nullptr;
}

bool ReadPciConfig(uint16_t bus, uint16_t dev, uint16_t fun, uint32_t offset, void *bytes, uint32_t length) {
    char path[64];
    uint8_t read[PCI_EXTENDED_BYTES];
    if (length > sizeof(read))
        return false;
    snprintf(path, sizeof(path), "/sys/bus/pci/devices/0000:%02x:%02x.%x/config", bus, dev, fun);
    if (ReadBytes(path, offset, read, length) != static_cast<int64_t>(length))
        return false;
    memcpy(bytes, read, length);
    return true;
}
