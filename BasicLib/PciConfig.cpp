#include "BasicLib/PciConfig.h"

#include "Base/Memory.h"
#include "BasicLib/Cpu.h"
#include "BasicLib/PhysMem.h"
#include "BasicLib/PortIo.h"
#include "Common/Sprint.h"

constexpr uint32_t CONFIG_ADDRESS = 0xCF8;
constexpr uint32_t CONFIG_DATA = 0xCFC;
constexpr uint32_t CONFIG_ENABLE = 0x80000000;
constexpr uint16_t LEGACY_END = 0x100;
constexpr uint16_t EXTENDED_END = 0x1000;
constexpr uint16_t INTEL_PCIEXBAR = 0x60;
constexpr uint32_t AMD_MMIO_CFG_BASE_ADDR = 0xC0010058;
constexpr uint32_t WINDOW_BASE_MASK = 0xFFF00000;
constexpr uint32_t WINDOW_UNKNOWN = 0xFFFFFFFF;
constexpr uint16_t VENDOR_ATI = 0x1002; // the graphics maker's host bridges belong to AMD platforms

uint16_t chipSetVid = 0;
uint32_t tempPcieBaseAddr = WINDOW_UNKNOWN;

// The offset is added whole: its two low bits stay in the address, the lane follows from the data port.
static void SelectLegacy(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset) {
    uint32_t address = CONFIG_ENABLE + (static_cast<uint32_t>(bus) << 16) +
                       (static_cast<uint32_t>(dev) << 11) + (static_cast<uint32_t>(fun) << 8) + offset;
    IoDelay(2);
    IoWrite32(CONFIG_ADDRESS, address);
}

int LegacyIoPciRead(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset,
                    uint8_t *buffer) {
    if (offset > LEGACY_END || buffer == nullptr)
        return 0;
    SelectLegacy(bus, dev, fun, offset);
    uint32_t lane = CONFIG_DATA + (offset & 3u);
    uint32_t value;
    switch (width) {
    case PCI_WIDTH_8:
        value = IoRead8(lane);
        break;
    case PCI_WIDTH_16:
        value = IoRead16(lane);
        break;
    case PCI_WIDTH_32:
        value = IoRead32(CONFIG_DATA); // a dword has no lane, also at an unaligned offset
        break;
    default:
        return 0;
    }
    Memcpy(buffer, &value, 1u << (width - 1));
    return 1;
}

int LegacyIoPciWrite(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset,
                     const uint8_t *buffer) {
    if (offset > LEGACY_END || buffer == nullptr)
        return 0;
    SelectLegacy(bus, dev, fun, offset);
    if (width < PCI_WIDTH_8 || width > PCI_WIDTH_32)
        return 0;
    uint32_t lane = CONFIG_DATA + (offset & 3u);
    uint32_t value = 0;
    Memcpy(&value, buffer, 1u << (width - 1));
    switch (width) {
    case PCI_WIDTH_8:
        IoWrite8(lane, value);
        break;
    case PCI_WIDTH_16:
        IoWrite16(lane, value);
        break;
    default:
        IoWrite32(CONFIG_DATA, value);
        break;
    }
    return 1;
}

uint16_t ChipsetLpcIdentify() {
    if (chipSetVid != 0)
        return chipSetVid;
    uint16_t vendor = PciRead16(0, 0, 0, PCI_VENDOR_ID);
    switch (vendor) {
    case VENDOR_INTEL:
    case VENDOR_AMD:
    case VENDOR_HYGON:
        chipSetVid = vendor;
        break;
    case VENDOR_ATI:
        chipSetVid = VENDOR_AMD;
        break;
    default:
        chipSetVid = VENDOR_UNKNOWN;
        break;
    }
    return chipSetVid;
}

int GetPcieBaseAddress(uint32_t *base) {
    if (tempPcieBaseAddr != WINDOW_UNKNOWN) {
        *base = tempPcieBaseAddr;
        return 1;
    }
    uint32_t found = 0;
    uint32_t high = 0;
    switch (ChipsetLpcIdentify()) {
    case VENDOR_INTEL:
        if (!LegacyIoPciRead(PCI_WIDTH_32, 0, 0, 0, INTEL_PCIEXBAR, reinterpret_cast<uint8_t *>(&found)))
            return 0;
        break;
    case VENDOR_AMD:
    case VENDOR_HYGON:
        ReadMsr(0, AMD_MMIO_CFG_BASE_ADDR, &high, &found);
        break;
    default:
        return 0;
    }
    tempPcieBaseAddr = found & WINDOW_BASE_MASK;
    *base = tempPcieBaseAddr;
    return 1;
}

static uint32_t WindowPage(uint32_t base, uint16_t bus, uint16_t dev, uint16_t fun) {
    return base + (static_cast<uint32_t>(bus) << 20) + (static_cast<uint32_t>(dev) << 15) +
           (static_cast<uint32_t>(fun) << 12);
}

uint32_t MemPciBase(uint16_t bus, uint16_t dev, uint16_t fun) {
    uint32_t base = 0;
    GetPcieBaseAddress(&base);
    return WindowPage(base, bus, dev, fun);
}

static bool IsExtended(uint16_t offset) {
    return offset >= LEGACY_END && offset < EXTENDED_END;
}

static uint32_t PciRead(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset) {
    uint32_t value = 0xFFFFFFFF;
    if (offset < LEGACY_END) {
        LegacyIoPciRead(width, bus, dev, fun, offset, reinterpret_cast<uint8_t *>(&value));
        return value;
    }
    uint32_t base;
    if (!IsExtended(offset) || !GetPcieBaseAddress(&base))
        return value;
    uint32_t address = WindowPage(base, bus, dev, fun) + offset;
    return width == PCI_WIDTH_8    ? MemRead8(address)
           : width == PCI_WIDTH_16 ? MemRead16(address)
                                   : MemRead32(address);
}

static void PciWrite(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset,
                     uint32_t value) {
    if (offset < LEGACY_END) {
        LegacyIoPciWrite(width, bus, dev, fun, offset, reinterpret_cast<const uint8_t *>(&value));
        return;
    }
    uint32_t base;
    if (!IsExtended(offset) || !GetPcieBaseAddress(&base))
        return;
    uint32_t address = WindowPage(base, bus, dev, fun) + offset;
    if (width == PCI_WIDTH_8)
        MemWrite8(address, value);
    else if (width == PCI_WIDTH_16)
        MemWrite16(address, value);
    else
        MemWrite32(address, value);
}

uint8_t PciRead8(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset) {
    return static_cast<uint8_t>(PciRead(PCI_WIDTH_8, bus, dev, fun, offset));
}

uint16_t PciRead16(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset) {
    return static_cast<uint16_t>(PciRead(PCI_WIDTH_16, bus, dev, fun, offset));
}

uint32_t PciRead32(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset) {
    return PciRead(PCI_WIDTH_32, bus, dev, fun, offset);
}

void PciWrite8(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint8_t value) {
    PciWrite(PCI_WIDTH_8, bus, dev, fun, offset, value);
}

void PciWrite16(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint16_t value) {
    PciWrite(PCI_WIDTH_16, bus, dev, fun, offset, value);
}

void PciWrite32(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t value) {
    PciWrite(PCI_WIDTH_32, bus, dev, fun, offset, value);
}

static bool IsWidth(uint8_t width) {
    return width >= PCI_WIDTH_8 && width <= PCI_WIDTH_32;
}

void PciIndirectRead(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t indexOffset,
                     uint16_t dataOffset, uint32_t index, void *buffer) {
    if (!IsWidth(width)) {
        PrintAssert(BASIC_LIB_SOURCE, 1046, "FALSE");
        return;
    }
    PciWrite(width, bus, dev, fun, indexOffset, index);
    uint32_t value = PciRead(width, bus, dev, fun, dataOffset);
    if (buffer != nullptr)
        Memcpy(buffer, &value, 1u << (width - 1));
}

void PciIndirectWrite(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t indexOffset,
                      uint16_t dataOffset, uint32_t index, const void *buffer) {
    if (!IsWidth(width)) {
        PrintAssert(BASIC_LIB_SOURCE, 1080, "FALSE");
        return;
    }
    PciWrite(width, bus, dev, fun, indexOffset, index);
    uint32_t value = 0;
    if (buffer == nullptr)
        return;
    Memcpy(&value, buffer, 1u << (width - 1));
    PciWrite(width, bus, dev, fun, dataOffset, value);
}

static uint32_t WriteUnaligned(void *buffer, uint32_t value, size_t size, unsigned line) {
    if (buffer == nullptr)
        PrintAssert(BASIC_LIB_SOURCE, line, "Buffer != NULL");
    else
        Memcpy(buffer, &value, size);
    return value;
}

uint16_t EfiWriteUnaligned16(void *buffer, uint16_t value) {
    return static_cast<uint16_t>(WriteUnaligned(buffer, value, sizeof(value), 1096));
}

uint32_t EfiWriteUnaligned32(void *buffer, uint32_t value) {
    return WriteUnaligned(buffer, value, sizeof(value), 1111);
}

// A range of configuration space being read into a buffer; out is NULL when the caller gave none.
struct PciCursor {
    uint16_t bus, dev, fun;
    uint64_t offset;
    uint64_t left;
    uint8_t *out;
};

static void ReadStep(PciCursor *at, uint8_t width) {
    uint16_t offset = static_cast<uint16_t>(at->offset);
    uint32_t value = PciRead(width, at->bus, at->dev, at->fun, offset);
    uint32_t bytes = 1u << (width - 1);
    if (at->out != nullptr) {
        if (width == PCI_WIDTH_8)
            *at->out = static_cast<uint8_t>(value);
        else if (width == PCI_WIDTH_16)
            EfiWriteUnaligned16(at->out, static_cast<uint16_t>(value));
        else
            EfiWriteUnaligned32(at->out, value);
        at->out += bytes;
    }
    at->offset += bytes;
    at->left -= bytes;
}

uint64_t PciReadBuffer(uint16_t bus, uint16_t dev, uint16_t fun, uint64_t start, uint64_t size,
                       void *buffer) {
    if (size > 0x1000 - (start & 0xFFF))
        PrintAssert(BASIC_LIB_SOURCE, 1132, "((StartAddress & 0xFFF) + Size) <= 0x1000");
    if (size == 0)
        return 0;
    if (buffer == nullptr)
        PrintAssert(BASIC_LIB_SOURCE, 1138, "Buffer != NULL");

    PciCursor at = {bus, dev, fun, start, size, static_cast<uint8_t *>(buffer)};
    if ((at.offset & 1) != 0)
        ReadStep(&at, PCI_WIDTH_8);
    if (at.left > 1 && (at.offset & 2) != 0)
        ReadStep(&at, PCI_WIDTH_16);
    while (at.left > 3)
        ReadStep(&at, PCI_WIDTH_32);
    if (at.left > 1)
        ReadStep(&at, PCI_WIDTH_16);
    if (at.left > 0)
        ReadStep(&at, PCI_WIDTH_8);
    return size;
}

uint16_t GetPciClassCode(uint16_t bus, uint16_t dev, uint16_t fun) {
    return PciRead16(bus, dev, fun, PCI_CLASS_DEVICE);
}

uint16_t FindExpressCap(uint16_t bus, uint16_t dev, uint16_t fun, bool endAtNull) {
    uint16_t pointer = PciRead16(bus, dev, fun, PCI_CAPABILITY_LIST) & 0xFF;
    for (unsigned i = 0; pointer != 0 && i < PCI_CAP_LIMIT; ++i) {
        uint16_t entry = PciRead16(bus, dev, fun, pointer);
        uint8_t id = static_cast<uint8_t>(entry);
        if (id == PCI_CAP_ID_EXP)
            return pointer;
        if (id == 0 && endAtNull)
            return 0;
        pointer = entry >> 8;
    }
    return 0;
}

int isPcieController(uint16_t bus, uint16_t dev, uint16_t fun) {
    return FindExpressCap(bus, dev, fun, false) != 0;
}
