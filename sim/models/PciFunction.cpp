#include "PciFunction.h"

#include "../Arena.h"

#include <stdlib.h>
#include <string.h>

namespace {

enum : uint16_t {
    PCI_VENDOR_ID = 0x00,
    PCI_DEVICE_ID = 0x02,
    PCI_COMMAND = 0x04,
    PCI_STATUS = 0x06,
    PCI_REVISION_ID = 0x08,
    PCI_CLASS_CODE = 0x09,
    PCI_CACHE_LINE_SIZE = 0x0C,
    PCI_LATENCY_TIMER = 0x0D,
    PCI_HEADER_TYPE = 0x0E,
    PCI_BASE_ADDRESS_0 = 0x10,
    PCI_CARDBUS_CAPABILITIES = 0x14,
    PCI_PRIMARY_BUS = 0x18,
    PCI_SUBSYSTEM = 0x2C,
    PCI_CAPABILITIES = 0x34,
    PCI_INTERRUPT_LINE = 0x3C,
    PCI_INTERRUPT_PIN = 0x3D,
    PCI_BRIDGE_CONTROL = 0x3E,
    PCI_EXTENDED_SPACE = 0x100,
};

constexpr uint16_t COMMAND_BITS = 0x0547;  // I/O, memory, master, parity, SERR#, interrupt disable
constexpr uint16_t STATUS_ERRORS = 0xF900; // cleared by writing 1
constexpr uint16_t STATUS_CAPABILITIES = 0x0010;
constexpr uint8_t HEADER_LAYOUT = 0x7F;
constexpr uint8_t HEADER_MULTI_FUNCTION = 0x80;
constexpr uint8_t CAP_PCI_EXPRESS = 0x10;

PciFunction *gFunctions[0x10000];
PciFunction *gCurrent;

void SetMask(uint8_t *mask, uint16_t offset, unsigned width, uint32_t bits) {
    memcpy(mask + offset, &bits, width);
}

uint8_t CapabilityPointer(const PciFunction *function) {
    bool cardBus = (function->config[PCI_HEADER_TYPE] & HEADER_LAYOUT) == 2;
    return cardBus ? static_cast<uint8_t>(PCI_CARDBUS_CAPABILITIES) : static_cast<uint8_t>(PCI_CAPABILITIES);
}

void NewFunction(BoardLine *line, uint16_t number) {
    PciFunction *function = static_cast<PciFunction *>(ArenaTake(sizeof(PciFunction)));
    function->number = number;
    function->config = static_cast<uint8_t *>(ArenaTakeRegisters(PCI_SPACE));
    function->verbatim = strcmp(LineWord(line, 2), "verbatim") == 0; // else its identification stands there
    gFunctions[number] = function;
}

// "00:1f.3" as a function number, -1 if the word is none.
int FunctionNumber(const char *word) {
    char *end;
    unsigned long bus = strtoul(word, &end, 16);
    if (end == word || *end != ':')
        return -1;
    char *dot;
    unsigned long device = strtoul(end + 1, &dot, 16);
    if (dot == end + 1 || *dot != '.')
        return -1;
    unsigned long function = strtoul(dot + 1, &end, 16);
    if (end == dot + 1 || *end || bus > 255 || device > 31 || function > 7)
        return -1;
    return static_cast<int>(bus << 8 | device << 3 | function);
}

void SetIds(const BoardLine *line, uint16_t offset, const char *word) {
    char *end;
    unsigned long first = strtoul(word, &end, 16);
    unsigned long second = *end == ':' ? strtoul(end + 1, &end, 16) : 0x10000;
    if (*end || first > 0xFFFF || second > 0xFFFF)
        LineFail(line, "not two numbers as in 8086:1234", word);
    PciStore(gCurrent, offset, 4, static_cast<uint32_t>(first | second << 16));
}

void SetRegister(BoardLine *line, unsigned width) {
    PciFunction *function = PciLineFunction(line);
    uint32_t largest = width == 4 ? 0xFFFFFFFF : (1u << (8 * width)) - 1;
    uint16_t offset = static_cast<uint16_t>(LineNumber(line, 1, PCI_SPACE - width));
    PciStore(function, offset, width, static_cast<uint32_t>(LineNumber(line, 2, largest)));
    for (int i = 3; i < line->count; i++) {
        if (LineHas(line, i, "rw"))
            SetMask(function->writable, offset, width, static_cast<uint32_t>(LineNumber(line, ++i, largest)));
        else if (LineHas(line, i, "w1c"))
            SetMask(function->oneClears, offset, width,
                    static_cast<uint32_t>(LineNumber(line, ++i, largest)));
        else
            LineFail(line, "neither \"rw\" nor \"w1c\"", line->words[i]);
    }
}

// Hangs a capability to the end of the function's list.
uint8_t AddCapability(BoardLine *line, uint8_t id, int offsetWord) {
    PciFunction *function = PciLineFunction(line);
    uint8_t offset = static_cast<uint8_t>(LineNumber(line, offsetWord, 0xFC));
    uint8_t link =
        function->lastCap != 0 ? static_cast<uint8_t>(function->lastCap + 1) : CapabilityPointer(function);
    function->config[link] = offset;
    function->config[offset] = id;
    function->config[offset + 1] = 0;
    function->config[PCI_STATUS] |= STATUS_CAPABILITIES;
    function->lastCap = offset;
    return offset;
}

} // namespace

void PciReset() {
    memset(gFunctions, 0, sizeof gFunctions);
    gCurrent = nullptr;
}

void PciPlaceDevices() {
    for (PciFunction *function : gFunctions)
        if (function && function->afterWrite)
            function->afterWrite(function, 0, 0);
}

PciFunction *PciFind(uint16_t number) {
    return gFunctions[number];
}

uint32_t PciStored(const PciFunction *function, uint16_t offset, unsigned width) {
    uint32_t value = 0;
    memcpy(&value, function->config + offset, width);
    return value;
}

void PciStore(PciFunction *function, uint16_t offset, unsigned width, uint32_t value) {
    memcpy(function->config + offset, &value, width);
}

uint32_t PciConfigRead(uint16_t number, uint16_t offset, unsigned width) {
    PciFunction *function = PciFind(number);
    if (!function || offset + width > PCI_SPACE || (offset >= PCI_EXTENDED_SPACE && !function->express))
        return 0xFFFFFFFF;
    if (function->beforeRead)
        function->beforeRead(function, offset, width);
    return PciStored(function, offset, width);
}

uint32_t PciWindowRead(uint16_t number, uint16_t offset, unsigned width) {
    uint32_t value = PciConfigRead(number, offset, width);
    const PciFunction *function = PciFind(number);
    if (!function || !function->window || offset + width > PCI_SPACE)
        return value;
    uint8_t bytes[sizeof value];
    memcpy(bytes, &value, sizeof value);
    for (unsigned i = 0; i < width; i++)
        if (function->window->differs[offset + i])
            bytes[i] = function->window->bytes[offset + i];
    memcpy(&value, bytes, sizeof value);
    return value;
}

void PciConfigWrite(uint16_t number, uint16_t offset, unsigned width, uint32_t value) {
    PciFunction *function = PciFind(number);
    if (!function || offset + width > PCI_SPACE || (offset >= PCI_EXTENDED_SPACE && !function->express))
        return;
    for (unsigned i = 0; i < width; i++) {
        uint8_t written = static_cast<uint8_t>(value >> (8 * i));
        uint8_t writable = function->writable[offset + i];
        uint8_t cleared = written & function->oneClears[offset + i];
        uint8_t *byte = &function->config[offset + i];
        *byte = static_cast<uint8_t>(((*byte & ~writable) | (written & writable)) & ~cleared);
    }
    if (function->afterWrite)
        function->afterWrite(function, offset, width);
}

void PciSetHeaderMasks(PciFunction *function) {
    uint8_t *writable = function->writable;
    SetMask(writable, PCI_COMMAND, 2, COMMAND_BITS);
    SetMask(function->oneClears, PCI_STATUS, 2, STATUS_ERRORS);
    writable[PCI_CACHE_LINE_SIZE] = 0xFF;
    writable[PCI_LATENCY_TIMER] = function->express ? 0 : 0xF8;
    writable[PCI_INTERRUPT_LINE] = 0xFF;
    if ((function->config[PCI_HEADER_TYPE] & HEADER_LAYOUT) == 0)
        return;
    SetMask(writable, PCI_PRIMARY_BUS, 4, 0x00FFFFFF);
    SetMask(writable, PCI_BRIDGE_CONTROL, 2, 0x0FFF);
    if ((function->config[PCI_HEADER_TYPE] & HEADER_LAYOUT) != 1)
        return;
    SetMask(writable, 0x1C, 2, 0xF0F0);     // I/O window
    SetMask(writable, 0x20, 4, 0xFFF0FFF0); // memory window
    SetMask(writable, 0x24, 4, 0xFFF0FFF0); // prefetchable window
    SetMask(writable, 0x28, 4, 0xFFFFFFFF);
    SetMask(writable, 0x2C, 4, 0xFFFFFFFF);
}

PciFunction *PciLineFunction(const BoardLine *line) {
    if (!gCurrent)
        LineFail(line, "no \"pci\" line comes before", line->words[0]);
    return gCurrent;
}

void PciLine(BoardLine *line) {
    int number = FunctionNumber(LineWord(line, 1));
    if (number < 0)
        LineFail(line, "not a function as in 00:1f.3", line->words[1]);
    bool fresh = !gFunctions[number];
    if (fresh)
        NewFunction(line, static_cast<uint16_t>(number));
    gCurrent = gFunctions[number];
    if (!fresh && LineHas(line, 2, "verbatim"))
        LineFail(line, "the function is there already", line->words[1]);
    if (line->count > 2 && !LineHas(line, 2, "verbatim"))
        SetIds(line, PCI_VENDOR_ID, line->words[2]);
    for (int i = 3; i < line->count; i++) {
        if (LineHas(line, i, "class")) {
            uint32_t code = static_cast<uint32_t>(LineNumber(line, ++i, 0xFFFFFF));
            PciStore(gCurrent, PCI_CLASS_CODE, 3, code);
        } else if (LineHas(line, i, "rev"))
            PciStore(gCurrent, PCI_REVISION_ID, 1, static_cast<uint32_t>(LineNumber(line, ++i, 0xFF)));
        else if (LineHas(line, i, "header"))
            PciStore(gCurrent, PCI_HEADER_TYPE, 1, static_cast<uint32_t>(LineNumber(line, ++i, 0xFF)));
        else if (LineHas(line, i, "multi"))
            gCurrent->config[PCI_HEADER_TYPE] |= HEADER_MULTI_FUNCTION;
        else
            LineFail(line, "none of \"class\", \"rev\", \"header\", \"multi\"", line->words[i]);
    }
    PciSetHeaderMasks(gCurrent);
}

void PciRemoveLine(BoardLine *line) {
    gCurrent = nullptr;
    if (LineHas(line, 1, "all")) {
        memset(gFunctions, 0, sizeof gFunctions);
        return;
    }
    int number = FunctionNumber(LineWord(line, 1));
    if (number < 0 || !gFunctions[number])
        LineFail(line, "no such function", line->words[1]);
    gFunctions[number] = nullptr;
}

void PciByteLine(BoardLine *line) {
    SetRegister(line, 1);
}

void PciWordLine(BoardLine *line) {
    SetRegister(line, 2);
}

void PciDwordLine(BoardLine *line) {
    SetRegister(line, 4);
}

void PciIrqLine(BoardLine *line) {
    PciFunction *function = PciLineFunction(line);
    function->config[PCI_INTERRUPT_LINE] = static_cast<uint8_t>(LineNumber(line, 1, 0xFF));
    function->config[PCI_INTERRUPT_PIN] = static_cast<uint8_t>(LineNumber(line, 2, 0xFF));
}

void PciSubsystemLine(BoardLine *line) {
    PciLineFunction(line);
    SetIds(line, PCI_SUBSYSTEM, LineWord(line, 1));
}

void PciBarLine(BoardLine *line) {
    PciFunction *function = PciLineFunction(line);
    uint16_t offset = static_cast<uint16_t>(PCI_BASE_ADDRESS_0 + 4 * LineNumber(line, 1, 5));
    bool io = strcmp(LineWord(line, 2), "io") == 0;
    bool wide = strcmp(LineWord(line, 2), "mem64") == 0;
    if (!io && !wide && strcmp(LineWord(line, 2), "mem") != 0)
        LineFail(line, "none of \"io\", \"mem\", \"mem64\"", line->words[2]);
    uint64_t address = LineNumber(line, 3, UINT64_MAX);
    uint64_t size = LineNumber(line, 4, UINT64_MAX);
    if (size < 4 || (size & (size - 1)) != 0)
        LineFail(line, "the size is no power of two", line->words[4]);
    PciStore(function, offset, 4, static_cast<uint32_t>(address) | (io ? 1 : wide ? 4 : 0));
    SetMask(function->writable, offset, 4, static_cast<uint32_t>(~(size - 1)));
    if (!wide)
        return;
    PciStore(function, static_cast<uint16_t>(offset + 4), 4, static_cast<uint32_t>(address >> 32));
    SetMask(function->writable, static_cast<uint16_t>(offset + 4), 4,
            static_cast<uint32_t>(~(size - 1) >> 32));
}

void PciBusesLine(BoardLine *line) {
    PciFunction *function = PciLineFunction(line);
    for (int i = 0; i < 3; i++)
        function->config[PCI_PRIMARY_BUS + i] = static_cast<uint8_t>(LineNumber(line, 1 + i, 0xFF));
}

void PciCapLine(BoardLine *line) {
    uint8_t id = static_cast<uint8_t>(LineNumber(line, 1, 0xFF));
    uint8_t offset = AddCapability(line, id, 2);
    for (int i = 3; i < line->count; i++)
        gCurrent->config[offset + 2 + i - 3] = static_cast<uint8_t>(LineNumber(line, i, 0xFF));
}

void PciExpressLine(BoardLine *line) {
    static const char *const STATES[] = {"DIS", "L0S", "L1", "L01"};
    uint8_t offset = AddCapability(line, CAP_PCI_EXPRESS, 1);
    PciFunction *function = gCurrent;
    uint32_t type = static_cast<uint32_t>(LineNumber(line, 2, 0xF));
    unsigned aspm = 0;
    while (aspm < 4 && !LineHas(line, 3, STATES[aspm]))
        aspm++;
    if (aspm == 4)
        LineFail(line, "none of \"DIS\", \"L0S\", \"L1\", \"L01\"", LineWord(line, 3));
    function->express = true;
    function->writable[PCI_LATENCY_TIMER] = 0;
    PciStore(function, static_cast<uint16_t>(offset + 0x02), 2,
             0x0002 | type << 4); // capabilities: version 2, port type
    PciStore(function, static_cast<uint16_t>(offset + 0x04), 4,
             0x00008001); // device: payload 256, error reporting
    PciStore(function, static_cast<uint16_t>(offset + 0x08), 2, 0x2810);
    SetMask(function->writable, static_cast<uint16_t>(offset + 0x08), 2, 0x7FFF);
    SetMask(function->oneClears, static_cast<uint16_t>(offset + 0x0A), 2, 0x000F);
    PciStore(function, static_cast<uint16_t>(offset + 0x0C), 4, 0x00433C43); // link: 8 GT/s, x4, L0s and L1
    PciStore(function, static_cast<uint16_t>(offset + 0x10), 2, 0x0040 | aspm);
    SetMask(function->writable, static_cast<uint16_t>(offset + 0x10), 2, 0x01FB);
    PciStore(function, static_cast<uint16_t>(offset + 0x12), 2, 0x1043);
}

void PciExtendedCapLine(BoardLine *line) {
    PciFunction *function = PciLineFunction(line);
    uint32_t id = static_cast<uint32_t>(LineNumber(line, 1, 0xFFFF));
    uint32_t version = static_cast<uint32_t>(LineNumber(line, 2, 0xF));
    uint16_t offset = static_cast<uint16_t>(LineNumber(line, 3, PCI_SPACE - 4));
    if (!function->express || offset < PCI_EXTENDED_SPACE || offset % 4 != 0)
        LineFail(line, "no place for an extended capability", line->words[3]);
    if (function->lastExtendedCap != 0) {
        uint32_t header = PciStored(function, function->lastExtendedCap, 4);
        PciStore(function, function->lastExtendedCap, 4,
                 (header & 0xFFFFF) | static_cast<uint32_t>(offset) << 20);
    }
    PciStore(function, offset, 4, id | version << 16);
    function->lastExtendedCap = offset;
}
