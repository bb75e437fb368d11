#include "PciFunction.h"

#include "../Arena.h"
#include "PciRegisters.h"

#include <string.h>

namespace {

constexpr uint16_t COMMAND_BITS = 0x0547;  // I/O, memory, master, parity, SERR#, interrupt disable
constexpr uint16_t STATUS_ERRORS = 0xF900; // cleared by writing 1

PciFunction *gFunctions[0x10000];
PciFunction *gCurrent;

void SetMask(uint8_t *mask, uint16_t offset, unsigned width, uint32_t bits) {
    memcpy(mask + offset, &bits, width);
}

PciFunction *NewFunction(const BoardLine *line) {
    PciFunction *function = static_cast<PciFunction *>(ArenaTake(sizeof(PciFunction)));
    function->place = {line->path, line->number};
    function->config = static_cast<uint8_t *>(ArenaTakeRegisters(PCI_SPACE));
    return function;
}

// "00:1f.3" as a function number, -1 if the word is none.
int FunctionNumber(const char *word) {
    uint64_t bus, device, function;
    if (!TakeHex(&word, &bus) || *word++ != ':' || !TakeHex(&word, &device) || *word++ != '.' ||
        !TakeHex(&word, &function))
        return -1;
    if (*word || bus > 255 || device > 31 || function > 7)
        return -1;
    return static_cast<int>(bus << 8 | device << 3 | function);
}

// Six digits: class, subclass and programming interface.
uint32_t ClassCode(const BoardLine *line, int index) {
    uint32_t code = static_cast<uint32_t>(LineNumber(line, index, 0xFFFFFF));
    const char *digits = line->words[index];
    if (digits[0] == '0' && (digits[1] | 0x20) == 'x')
        digits += 2;
    if (strlen(digits) != 6)
        LineFail(line, "a class has six digits", line->words[index]);
    return code;
}

void SetHeader(const BoardLine *line, int index) {
    uint8_t header = static_cast<uint8_t>(LineNumber(line, index, 0xFF));
    if ((header & HEADER_LAYOUT) > LAYOUT_CARDBUS && !gCurrent->verbatim)
        LineFail(line, "headers have layouts 00, 01 and 02", line->words[index]);
    gCurrent->config[PCI_HEADER_TYPE] = header;
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
    if (PciLayout(function) == LAYOUT_DEVICE)
        return;
    SetMask(writable, PCI_PRIMARY_BUS, 4, 0x00FFFFFF);
    SetMask(writable, PCI_BRIDGE_CONTROL, 2, 0x0FFF);
    if (PciLayout(function) != LAYOUT_BRIDGE)
        return;
    SetMask(writable, 0x1C, 2, 0xF0F0);     // I/O window
    SetMask(writable, 0x20, 4, 0xFFF0FFF0); // memory window
    SetMask(writable, 0x24, 4, 0xFFF0FFF0); // prefetchable window
    SetMask(writable, 0x28, 4, 0xFFFFFFFF);
    SetMask(writable, 0x2C, 4, 0xFFFFFFFF);
}

uint8_t PciLayout(const PciFunction *function) {
    return function->config[PCI_HEADER_TYPE] & HEADER_LAYOUT;
}

void PciSetIds(const BoardLine *line, int word, PciFunction *function, uint16_t offset) {
    const char *at = LineWord(line, word);
    uint64_t first, second;
    if (!TakeHex(&at, &first) || *at++ != ':' || !TakeHex(&at, &second) || *at || first > 0xFFFF ||
        second > 0xFFFF)
        LineFail(line, "not two numbers as in 8086:1234", line->words[word]);
    PciStore(function, offset, 4, static_cast<uint32_t>(first | second << 16));
}

PciFunction *PciLineFunction(const BoardLine *line) {
    if (!gCurrent)
        LineFail(line, "no \"pci\" line comes before", line->words[0]);
    return gCurrent;
}

// The function that the line names. Where it names none, the lines behind it describe one that is nowhere.
static void ChooseFunction(const BoardLine *line) {
    int number = FunctionNumber(LineWord(line, 1));
    gCurrent = number < 0 || !gFunctions[number] ? NewFunction(line) : gFunctions[number];
    if (number < 0)
        LineFail(line, "not a function as in 00:1f.3", line->words[1]);
    gCurrent->number = static_cast<uint16_t>(number);
}

static void Describe(const BoardLine *line) {
    for (int i = 3; i < line->count; i++) {
        if (LineOption(line, i, "class"))
            PciStore(gCurrent, PCI_CLASS_CODE, 3, ClassCode(line, ++i));
        else if (LineOption(line, i, "rev"))
            PciStore(gCurrent, PCI_REVISION_ID, 1, static_cast<uint32_t>(LineNumber(line, ++i, 0xFF)));
        else if (LineOption(line, i, "header"))
            SetHeader(line, ++i);
        else if (LineOption(line, i, "multi"))
            gCurrent->config[PCI_HEADER_TYPE] |= HEADER_MULTI_FUNCTION;
        else if (!LineOption(line, i, "verbatim"))
            LineFail(line, "none of \"class\", \"rev\", \"header\", \"multi\", \"verbatim\"", line->words[i]);
    }
}

void PciLine(BoardLine *line) {
    ChooseFunction(line);
    bool fresh = gFunctions[gCurrent->number] != gCurrent;
    gFunctions[gCurrent->number] = gCurrent;
    bool bare = LineHas(line, 2, "verbatim");
    if (bare && !fresh)
        LineFail(line, "the function is there already", line->words[1]);
    gCurrent->verbatim |= LineHas(line, line->count - 1, "verbatim");
    if (!bare && (fresh || line->count > 2))
        PciSetIds(line, 2, gCurrent, PCI_VENDOR_ID);
    Describe(line);
    if (PciStored(gCurrent, PCI_VENDOR_ID, 2) == 0xFFFF && !gCurrent->verbatim)
        LineFail(line, "a maker of ffff means that nobody is there", line->words[2]);
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
