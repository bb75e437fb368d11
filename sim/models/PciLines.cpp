#include "PciLines.h"

#include "PciFunction.h"
#include "PciRegisters.h"

#include <string.h>

namespace {

constexpr uint8_t CAP_PCI_EXPRESS = 0x10;
constexpr unsigned PCI_EXPRESS_LENGTH = 0x3C; // of a structure of version 2

void SetMask(uint8_t *mask, unsigned offset, unsigned width, uint32_t bits) {
    memcpy(mask + offset, &bits, width);
}

void SetRegister(BoardLine *line, unsigned width) {
    PciFunction *function = PciLineFunction(line);
    uint32_t largest = width == 4 ? 0xFFFFFFFF : (1u << (8 * width)) - 1;
    uint16_t offset = static_cast<uint16_t>(LineNumber(line, 1, PCI_SPACE - width));
    if (offset + width > PCI_EXTENDED_SPACE && !function->express)
        LineFail(line, "the function has 100h bytes; \"pcie\" gives it 1000h", line->words[1]);
    PciStore(function, offset, width, static_cast<uint32_t>(LineNumber(line, 2, largest)));
    uint32_t writable = 0, oneClears = 0;
    for (int i = 3; i < line->count; i++) {
        if (LineOption(line, i, "rw")) {
            writable = static_cast<uint32_t>(LineNumber(line, ++i, largest));
            SetMask(function->writable, offset, width, writable);
        } else if (LineOption(line, i, "w1c")) {
            oneClears = static_cast<uint32_t>(LineNumber(line, ++i, largest));
            SetMask(function->oneClears, offset, width, oneClears);
        } else
            LineFail(line, "neither \"rw\" nor \"w1c\"", line->words[i]);
    }
    if ((writable & oneClears) != 0)
        LineFail(line, "bits that are both \"rw\" and \"w1c\"", nullptr);
}

unsigned CapabilityPointer(const PciFunction *function) {
    return PciLayout(function) == LAYOUT_CARDBUS ? PCI_CARDBUS_CAPABILITIES : PCI_CAPABILITIES;
}

// Keeps the bytes for a capability.
void TakePlace(const BoardLine *line, PciFunction *function, unsigned offset, unsigned length, unsigned end) {
    if (offset + length > end)
        LineFail(line, "the capability does not end in its space", line->words[0]);
    for (unsigned i = offset; i < offset + length; i++) {
        if (function->inCap[i])
            LineFail(line, "overlaps another capability", line->words[0]);
        function->inCap[i] = true;
    }
}

// Hangs a capability of that length to the end of the function's list.
unsigned AddCapability(BoardLine *line, uint8_t id, int offsetWord, unsigned length) {
    PciFunction *function = PciLineFunction(line);
    unsigned offset = static_cast<unsigned>(LineNumber(line, offsetWord, 0xFF));
    if (offset < PCI_HEADER_END || offset % 4 != 0)
        LineFail(line, "capabilities stand at multiples of 4 from 40 on", line->words[offsetWord]);
    TakePlace(line, function, offset, length, PCI_EXTENDED_SPACE);
    unsigned link = function->lastCap != 0 ? function->lastCap + 1u : CapabilityPointer(function);
    function->config[link] = static_cast<uint8_t>(offset);
    function->config[offset] = id;
    function->config[offset + 1] = 0;
    function->config[PCI_STATUS] |= STATUS_CAPABILITIES;
    function->lastCap = static_cast<uint8_t>(offset);
    return offset;
}

struct Bar {
    unsigned number;
    bool io, wide;
    uint64_t address, size;
};

// Of a header of that layout.
unsigned BarCount(const PciFunction *function) {
    uint8_t layout = PciLayout(function);
    return layout == LAYOUT_DEVICE ? 6 : layout == LAYOUT_BRIDGE ? 2 : 1;
}

bool IsWide(const PciFunction *function, unsigned bar) {
    return (function->config[PCI_BASE_ADDRESS_0 + 4 * bar] & 7) == 4;
}

void CheckBarNumber(const BoardLine *line, const PciFunction *function, const Bar *bar) {
    if (bar->number + bar->wide >= BarCount(function))
        LineFail(line, "the function has no such base address register", line->words[1]);
    if (bar->number > 0 && IsWide(function, bar->number - 1))
        LineFail(line, "the upper half of the register before", line->words[1]);
    unsigned next = PCI_BASE_ADDRESS_0 + 4 * (bar->number + 1);
    if (bar->wide && !IsWide(function, bar->number) &&
        PciStored(function, static_cast<uint16_t>(next), 4) != 0)
        LineFail(line, "its upper half is another register", line->words[1]);
}

void CheckBarRange(const BoardLine *line, const Bar *bar) {
    uint64_t last = bar->io ? 0xFFFF : bar->wide ? UINT64_MAX : UINT32_MAX;
    if (bar->size < (bar->io ? 4 : 16) || (bar->size & (bar->size - 1)) != 0)
        LineFail(line, "the size is no power of two from 4 (io) or 10 on", line->words[4]);
    if (bar->address % bar->size != 0)
        LineFail(line, "the address is no multiple of the size", line->words[3]);
    if (bar->address > last || bar->size - 1 > last - bar->address)
        LineFail(line, bar->io ? "the ports end at ffff" : "the range does not end below 4 GiB",
                 line->words[3]);
}

} // namespace

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
    PciFunction *function = PciLineFunction(line);
    if (PciLayout(function) != LAYOUT_DEVICE)
        LineFail(line, "a bridge has no such register", line->words[0]);
    PciSetIds(line, 1, function, PCI_SUBSYSTEM);
}

void PciBarLine(BoardLine *line) {
    PciFunction *function = PciLineFunction(line);
    Bar bar = {};
    bar.number = static_cast<unsigned>(LineNumber(line, 1, 5));
    bar.io = LineHas(line, 2, "io");
    bar.wide = LineHas(line, 2, "mem64");
    if (!bar.io && !bar.wide && !LineHas(line, 2, "mem"))
        LineFail(line, "none of \"io\", \"mem\", \"mem64\"", LineWord(line, 2));
    bar.address = LineNumber(line, 3, UINT64_MAX);
    bar.size = LineNumber(line, 4, UINT64_MAX);
    CheckBarRange(line, &bar);
    CheckBarNumber(line, function, &bar);
    uint16_t offset = static_cast<uint16_t>(PCI_BASE_ADDRESS_0 + 4 * bar.number);
    PciStore(function, offset, 4, static_cast<uint32_t>(bar.address) | (bar.io ? 1 : bar.wide ? 4 : 0));
    SetMask(function->writable, offset, 4, static_cast<uint32_t>(~(bar.size - 1)));
    if (!bar.wide)
        return;
    PciStore(function, static_cast<uint16_t>(offset + 4), 4, static_cast<uint32_t>(bar.address >> 32));
    SetMask(function->writable, offset + 4u, 4, static_cast<uint32_t>(~(bar.size - 1) >> 32));
}

void PciBusesLine(BoardLine *line) {
    PciFunction *function = PciLineFunction(line);
    if (PciLayout(function) == LAYOUT_DEVICE)
        LineFail(line, "no bridge, which has header 01 or 02", line->words[0]);
    for (int i = 0; i < 3; i++)
        function->config[PCI_PRIMARY_BUS + i] = static_cast<uint8_t>(LineNumber(line, 1 + i, 0xFF));
    if (function->config[PCI_PRIMARY_BUS] != function->number >> 8)
        LineFail(line, "not the bus on which the bridge stands", line->words[1]);
    if (function->config[PCI_SECONDARY_BUS] > function->config[PCI_SUBORDINATE_BUS])
        LineFail(line, "below the secondary bus", line->words[3]);
}

void PciCapLine(BoardLine *line) {
    PciFunction *function = PciLineFunction(line);
    uint8_t id = static_cast<uint8_t>(LineNumber(line, 1, 0xFF));
    LineWord(line, 2);
    unsigned at = 2 + AddCapability(line, id, 2, static_cast<unsigned>(line->count - 1));
    for (int i = 3; i < line->count; i++)
        function->config[at++] = static_cast<uint8_t>(LineNumber(line, i, 0xFF));
}

void PciExpressLine(BoardLine *line) {
    static const char *const STATES[] = {"DIS", "L0S", "L1", "L01"};
    PciFunction *function = PciLineFunction(line);
    uint32_t type = static_cast<uint32_t>(LineNumber(line, 2, 0xF));
    unsigned aspm = 0;
    while (aspm < 4 && !LineHas(line, 3, STATES[aspm]))
        aspm++;
    if (aspm == 4)
        LineFail(line, "none of \"DIS\", \"L0S\", \"L1\", \"L01\"", LineWord(line, 3));
    uint16_t offset = static_cast<uint16_t>(AddCapability(line, CAP_PCI_EXPRESS, 1, PCI_EXPRESS_LENGTH));
    function->express = true;
    function->writable[PCI_LATENCY_TIMER] = 0;
    PciStore(function, static_cast<uint16_t>(offset + 0x02), 2,
             0x0002 | type << 4); // capabilities: version 2, port type
    PciStore(function, static_cast<uint16_t>(offset + 0x04), 4,
             0x00008001); // device: payload 256, error reporting
    PciStore(function, static_cast<uint16_t>(offset + 0x08), 2, 0x2810);
    SetMask(function->writable, offset + 0x08u, 2, 0x7FFF);
    SetMask(function->oneClears, offset + 0x0Au, 2, 0x000F);
    PciStore(function, static_cast<uint16_t>(offset + 0x0C), 4, 0x00433C43); // link: 8 GT/s, x4, L0s and L1
    PciStore(function, static_cast<uint16_t>(offset + 0x10), 2, 0x0040 | aspm);
    SetMask(function->writable, offset + 0x10u, 2, 0x01FB);
    PciStore(function, static_cast<uint16_t>(offset + 0x12), 2, 0x1043);
}

void PciExtendedCapLine(BoardLine *line) {
    PciFunction *function = PciLineFunction(line);
    uint32_t id = static_cast<uint32_t>(LineNumber(line, 1, 0xFFFF));
    uint32_t version = static_cast<uint32_t>(LineNumber(line, 2, 0xF));
    uint16_t offset = static_cast<uint16_t>(LineNumber(line, 3, PCI_SPACE - 4));
    if (!function->express)
        LineFail(line, "no \"pcie\" line comes before", line->words[0]);
    if (offset < PCI_EXTENDED_SPACE || offset % 4 != 0)
        LineFail(line, "no place for an extended capability", line->words[3]);
    if (function->lastExtendedCap == 0 && offset != PCI_EXTENDED_SPACE)
        LineFail(line, "the first extended capability stands at 100", line->words[3]);
    TakePlace(line, function, offset, 4, PCI_SPACE);
    if (function->lastExtendedCap != 0) {
        uint32_t header = PciStored(function, function->lastExtendedCap, 4);
        PciStore(function, function->lastExtendedCap, 4,
                 (header & 0xFFFFF) | static_cast<uint32_t>(offset) << 20);
    }
    PciStore(function, offset, 4, id | version << 16);
    function->lastExtendedCap = offset;
}
