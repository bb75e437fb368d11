#include "tools/capture/Pci.h"

#include <cstdio>
#include <cstring>

#include "Base/Memory.h"
#include "BasicLib/Chipset.h"
#include "BasicLib/Cpu.h"
#include "BasicLib/PciConfig.h"
#include "BasicLib/PciWindow.h"
#include "BasicLib/PhysMem.h"
#include "Platform/PciClassCode.h"
#include "Platform/PciFind.h"
#include "Platform/Smn.h"
#include "tools/capture/Acpi.h"
#include "tools/capture/Options.h"
#include "tools/capture/Parts.h"
#include "tools/capture/Serials.h"
#include "tools/capture/Sheet.h"

constexpr uint32_t FUNCTIONS = 0x10000; // bus, device and function in one number
constexpr uint16_t CLASS_SMBUS = 0x0C05;
constexpr uint16_t INTEL_PCIEXBAR = 0x60;
constexpr uint32_t AMD_MMIO_CFG_BASE_ADDR = 0xC0010058;
constexpr uint32_t BUS_BYTES = 0x100000;

// What stands where the chipset's registers say that the window is.
enum WindowKind : uint8_t {
    WINDOW_NONE,    // the chipset has no such register
    WINDOW_REFUSED, // the kernel does not map it
    WINDOW_THERE,
    WINDOW_MEMORY, // something else, which the commands read all the same
};

struct Window {
    WindowKind kind;
    uint32_t base;
    uint32_t buses;
    int error;
};

static Window mWindow = {WINDOW_NONE, 0, 0, 0};
static uint8_t mPresent[FUNCTIONS / 8];
static bool mHasSmbus = false;

// One function while it is put.
struct Function {
    uint16_t bus, dev, fun;
    uint32_t page; // in the window
    uint32_t bytes;
    uint8_t config[PCI_EXTENDED_BYTES];
};

// The buses that the chipset's register gives the window (Intel: PCIEXBAR bits 2:1; AMD BKDG: MSRC001_0058
// bits 5:2).
static uint32_t BusesOfRegister() {
    if (ThisChipset()->configWindow == HOME_PCI)
        return 0x100u >> (((PciRead8(0, 0, 0, INTEL_PCIEXBAR) >> 1) & 3) % 3);
    uint64_t value = 0;
    TryReadMsr(0, AMD_MMIO_CFG_BASE_ADDR, &value);
    uint32_t range = (value >> 2) & 0xF;
    return range < 8 ? 1u << range : 0x100;
}

static void FindWindow() {
    if (!GetPcieBaseAddress(&mWindow.base))
        return;
    uint32_t page = MemPciBase(0, 0, 0);
    mWindow.error = ProbePhysMem(page);
    if (mWindow.error != 0) {
        mWindow.kind = WINDOW_REFUSED;
        return;
    }
    mWindow.kind = MemRead32(page) == PciRead32(0, 0, 0, PCI_VENDOR_ID) ? WINDOW_THERE : WINDOW_MEMORY;
    int last = LastWindowBus(mWindow.base);
    uint32_t buses = last >= 0 ? static_cast<uint32_t>(last) + 1 : BusesOfRegister();
    uint32_t room = (0 - mWindow.base) / BUS_BYTES; // up to 4 GiB; a base of 0 has all of it
    mWindow.buses = room != 0 && buses > room ? room : buses;
}

static void PutWindow() {
    switch (mWindow.kind) {
    case WINDOW_NONE:
        Put("# missing: pci extended registers: the chipset's window is not known\n");
        break;
    case WINDOW_REFUSED:
        Put("# missing: pci extended registers, window at %x: %s\n", mWindow.base, strerror(mWindow.error));
        break;
    case WINDOW_THERE:
        Put("ecam %x %x\n", mWindow.base, mWindow.buses);
        break;
    case WINDOW_MEMORY:
        Put("# missing: pci extended registers: at %x there is no window; the pages in its place are memory "
            "below\n",
            mWindow.base);
        break;
    }
}

static bool IsAllOnes(const uint8_t *bytes, uint32_t length) {
    while (length > 0 && bytes[length - 1] == 0xFF)
        --length;
    return length == 0;
}

static const char *NameOfClass(uint16_t code) {
    const PciClassName *row = PciDeviceClassCode;
    while (row->code != PCI_CLASS_END && row->code != code)
        ++row;
    return row->code == PCI_CLASS_END ? "" : row->name;
}

// Reads the registers, and tells how many there are: in the space of a conventional function nobody answers.
static void ReadFunction(Function *function) {
    PciReadBuffer(function->bus, function->dev, function->fun, 0, PCI_CONFIG_BYTES, function->config);
    function->bytes = PCI_CONFIG_BYTES;
    if (mWindow.kind != WINDOW_THERE || function->bus >= mWindow.buses)
        return;
    int error = ProbePhysMem(function->page);
    if (error != 0) {
        Put("# missing: extended registers of %02x:%02x.%x: %s\n", function->bus, function->dev,
            function->fun, strerror(error));
        return;
    }
    uint8_t *extended = function->config + PCI_CONFIG_BYTES;
    constexpr uint32_t more = PCI_EXTENDED_BYTES - PCI_CONFIG_BYTES;
    PciReadBuffer(function->bus, function->dev, function->fun, PCI_CONFIG_BYTES, more, extended);
    if (IsAllOnes(extended, more))
        return;
    function->bytes = PCI_EXTENDED_BYTES;
    if (gOptions.noSerials)
        HidePciSerial(function->config);
}

// What the window gives for the first 256 bytes where it is not what the ports give.
static void PutWindowBytes(const Function *function) {
    uint8_t seen[PCI_CONFIG_BYTES];
    if (mWindow.kind != WINDOW_THERE || function->bus >= mWindow.buses || ProbePhysMem(function->page) != 0)
        return;
    for (uint32_t at = 0; at < PCI_CONFIG_BYTES; at += 4) {
        uint32_t value = MemRead32(function->page + at);
        memcpy(seen + at, &value, sizeof(value));
    }
    for (uint32_t at = 0; at < PCI_CONFIG_BYTES;) {
        uint32_t end = at;
        while (end < PCI_CONFIG_BYTES && end - at < SHEET_LINE_BYTES && seen[end] != function->config[end])
            ++end;
        if (end != at) {
            Put("  window %x", at);
            for (uint32_t i = at; i < end; ++i)
                Put(" %02x", seen[i]);
            Put("\n");
        }
        at = end == at ? at + 1 : end;
    }
}

static void PutConfig(const Function *function) {
    PutBytes("  config", 0, function->config, PCI_CONFIG_BYTES, false);
    if (function->bytes == PCI_CONFIG_BYTES)
        return;
    const uint8_t *extended = function->config + PCI_CONFIG_BYTES;
    uint32_t none[SHEET_LINE_BYTES / 4] = {};
    if (memcmp(extended, none, sizeof(none)) == 0)
        Put("  config 100 00\n"); // tells that there are 4096 bytes
    PutBytes("  config", PCI_CONFIG_BYTES, extended, PCI_EXTENDED_BYTES - PCI_CONFIG_BYTES, false);
}

static void PutSmn() {
    if (gOptions.smn.count == 0)
        return;
    if (InitSmuService() != EFI_SUCCESS) {
        Put("# missing: smn: the host bridge has none that is known\n");
        return;
    }
    Put("  smn\n");
    for (uint32_t i = 0; i < gOptions.smn.count; ++i) {
        const AskedRange *asked = &gOptions.smn.ranges[i];
        for (uint64_t reg = asked->first & ~3u; reg <= asked->last; reg += 4) {
            uint32_t value = 0;
            AmdSmnRegisterRead(PCI_WIDTH_32, asked->die, static_cast<uint32_t>(reg), &value);
            Put("  smn-register %x %llx %08x\n", asked->die, static_cast<unsigned long long>(reg), value);
        }
    }
}

static void PutFunction(Function *function) {
    ReadFunction(function);
    uint16_t vendor = Load16(function->config + PCI_VENDOR_ID);
    uint16_t device = Load16(function->config + PCI_DEVICE_ID);
    uint16_t code = Load16(function->config + PCI_CLASS_DEVICE);
    const char *name = NameOfClass(code);
    Put("pci %02x:%02x.%x verbatim    # %04x:%04x %.*s\n", function->bus, function->dev, function->fun,
        vendor, device, static_cast<int>(strcspn(name, "\n")), name);
    PutConfig(function);
    PutWindowBytes(function);
    if (gOptions.spd && code == CLASS_SMBUS && !mHasSmbus)
        Put("  smbus-host %s\n", ThisChipset()->smbusBlock == HOME_PCI ? "pci" : "pm");
    mHasSmbus |= code == CLASS_SMBUS;
    if (function->bus == 0 && function->dev == 0 && function->fun == 0)
        PutSmn();
    bool outside = mWindow.kind == WINDOW_THERE && function->bus >= mWindow.buses;
    if (mWindow.kind != WINDOW_MEMORY && !outside)
        return;
    MemoryPart *page = AddPart(function->page, PAGE_4KB, "memory in the place of the window's %02x:%02x.%x",
                               function->bus, function->dev, function->fun);
    bool same = page != nullptr && page->length == PAGE_4KB && memcmp(page->bytes, function->config, 4) == 0;
    if (gOptions.noSerials && same)
        HidePciSerial(page->bytes);
}

static void CaptureBus(uint16_t bus) {
    static Function function;
    for (uint16_t number = 0; number < PCI_DEVICE_COUNT * PCI_FUNCTION_COUNT; ++number) {
        uint16_t dev = number / PCI_FUNCTION_COUNT;
        uint16_t fun = number % PCI_FUNCTION_COUNT;
        if (PciRead16(bus, dev, fun, PCI_VENDOR_ID) == 0xFFFF)
            continue;
        uint32_t all = bus * 256u + number;
        mPresent[all / 8] = static_cast<uint8_t>(mPresent[all / 8] | (1 << (all % 8)));
        function.bus = bus;
        function.dev = dev;
        function.fun = fun;
        function.page = MemPciBase(bus, dev, fun);
        PutFunction(&function);
    }
}

void CapturePci() {
    Put("# --- pci\npci-ports\n");
    FindWindow();
    PutWindow();
    for (uint16_t bus = 0; bus < PCI_BUS_COUNT; ++bus) {
        char what[32];
        snprintf(what, sizeof(what), "PCI bus %u of %u", bus, PCI_BUS_COUNT);
        Progress(what);
        CaptureBus(bus);
    }
}

bool HasSmbusHost() {
    return mHasSmbus;
}

bool NextWindowPage(uint32_t *number, uint32_t *page) {
    uint32_t at = *number;
    while (at < FUNCTIONS && ((mPresent[at / 8] >> (at % 8)) & 1) == 0)
        ++at;
    if (mWindow.kind == WINDOW_NONE || at == FUNCTIONS)
        return false;
    *number = at;
    *page = mWindow.base + (at << 12);
    return true;
}
