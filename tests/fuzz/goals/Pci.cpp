// pci: registers of made-up configuration spaces, through the ports and through the window. Asserted: the
// value and the bytes that a write changes, for each width and offset; no access where there is no register;
// the address that numbers of any size make; buffers and index/data pairs against single registers.
#include <stdlib.h>
#include <string.h>

#include "BasicLib/PciConfig.h"
#include "BasicLib/PciIndirect.h"
#include "BasicLib/PciWindow.h"
#include "BasicLib/Place.h"
#include "ConfigSpaces.h"
#include "Goal.h"
#include "Machine.h"

namespace {

constexpr uint8_t UNTOUCHED = 0xEE;
constexpr uint32_t LONGEST_BUFFER = 64;

// A register: of one of the functions mostly, by the numbers of the input otherwise.
struct Register {
    uint16_t bus, dev, fun, offset;
};

Register TakeRegister(Input *input) {
    uint8_t choice = TakeByte(input);
    uint16_t offset = Take16(input);
    offset = choice & 0x40 ? offset : offset & 0x1FF;
    if (choice & 0x80)
        return {Take16(input), Take16(input), Take16(input), offset};
    const ConfigFunction *function = &gSpaces.functions[choice % gSpaces.count];
    return {function->bus, function->dev, function->fun, offset};
}

uint32_t Cut(uint32_t value, unsigned width) {
    return width == 4 ? value : value & ((1u << (8 * width)) - 1);
}

// Through the ports a dword stands at a multiple of four, and a word does not reach into the next one.
uint32_t ModelPorts(const ConfigFunction *function, uint32_t offset, unsigned width) {
    if (width == 4)
        return SpaceRead(function, offset & 0xFC, 4);
    if (width == 2 && offset % 4 == 3)
        return SpaceRead(function, offset & 0xFF, 1) | 0xFF00;
    return SpaceRead(function, offset & 0xFF, width);
}

// The function that an address of the ports or of the window leads to; numbers spill into their neighbours.
const ConfigFunction *Reached(const Register *at, bool window) {
    uint32_t place = (static_cast<uint32_t>(at->bus) << 20) + (static_cast<uint32_t>(at->dev) << 15) +
                     (static_cast<uint32_t>(at->fun) << 12);
    uint32_t bus = window ? place >> 20 : place >> 20 & 0xFF;
    return FunctionAt(bus, place >> 15 & 31, place >> 12 & 7);
}

uint32_t Model(const Register *at, unsigned width) {
    if (at->offset < PCI_CONFIG_BYTES)
        return ModelPorts(Reached(at, false), at->offset, width);
    if (at->offset >= PCI_EXTENDED_BYTES || !gSpaces.hasWindow)
        return Cut(0xFFFFFFFF, width);
    return SpaceRead(Reached(at, true), at->offset, width);
}

uint32_t Read(const Register *at, unsigned width) {
    return width == 1   ? PciRead8(at->bus, at->dev, at->fun, at->offset)
           : width == 2 ? PciRead16(at->bus, at->dev, at->fun, at->offset)
                        : PciRead32(at->bus, at->dev, at->fun, at->offset);
}

void Write(const Register *at, unsigned width, uint32_t value) {
    width == 1   ? PciWrite8(at->bus, at->dev, at->fun, at->offset, static_cast<uint8_t>(value))
    : width == 2 ? PciWrite16(at->bus, at->dev, at->fun, at->offset, static_cast<uint16_t>(value))
                 : PciWrite32(at->bus, at->dev, at->fun, at->offset, value);
}

// The bytes that a write changes, in the spaces as they were.
void ModelWrite(ConfigFunction *functions, const Register *at, unsigned width, uint32_t value) {
    bool window = at->offset >= PCI_CONFIG_BYTES;
    const ConfigFunction *reached = Reached(at, window);
    if (!reached || at->offset >= PCI_EXTENDED_BYTES || (window && !gSpaces.hasWindow))
        return;
    uint8_t *bytes = functions[reached - gSpaces.functions].bytes;
    uint32_t offset = !window && width == 4 ? at->offset & 0xFCu : at->offset;
    for (unsigned i = 0; i < width; i++)
        if (offset + i < FUNCTION_BYTES && (window || offset % 4 + i < 4))
            bytes[offset + i] = static_cast<uint8_t>(value >> (8 * i));
}

void CheckRegister(Input *input) {
    Register at = TakeRegister(input);
    unsigned width = 1u << TakeByte(input) % 3;
    uint32_t value = Take32(input);
    Expect(Read(&at, width) == Model(&at, width), "a register's value");
    if (at.offset < PCI_CONFIG_BYTES)
        Expect(gSpaces.address == 0x80000000 + (static_cast<uint32_t>(at.bus) << 16) +
                                      (static_cast<uint32_t>(at.dev) << 11) + (at.fun << 8u) + at.offset,
               "the address of a register");
    if (at.offset >= PCI_EXTENDED_BYTES)
        Expect(gSpaces.accesses <= 1, "no access beyond the space");
    static ConfigFunction before[MOST_FUNCTIONS];
    memcpy(before, gSpaces.functions, sizeof before);
    ModelWrite(before, &at, width, value);
    Write(&at, width, value);
    Expect(memcmp(before, gSpaces.functions, gSpaces.count * sizeof *before) == 0,
           "a write changes its bytes alone");
}

void CheckLegacy(Input *input) {
    Register at = TakeRegister(input);
    uint8_t code = TakeByte(input) % 6;
    uint32_t bytes = PciWidthBytes(code);
    uint8_t buffer[8];
    memset(buffer, UNTOUCHED, sizeof buffer);
    int done = LegacyIoPciRead(code, at.bus, at.dev, at.fun, at.offset, buffer);
    Expect(done == (at.offset <= PCI_CONFIG_BYTES && bytes != 0), "a port access is made for known widths");
    uint32_t expected = done ? ModelPorts(Reached(&at, false), at.offset & 0xFF, bytes) : 0;
    Register spilled = at; // offset 100h is the next function's first register
    spilled.fun = static_cast<uint16_t>(at.fun + (at.offset >> 8));
    if (done && at.offset == PCI_CONFIG_BYTES)
        expected = ModelPorts(Reached(&spilled, false), 0, bytes);
    Expect(!done || memcmp(buffer, &expected, bytes) == 0, "a port access gives the value");
    Expect(AllBytes(buffer + (done ? bytes : 0), UNTOUCHED, sizeof buffer - (done ? bytes : 0)),
           "and no more");
    Expect(LegacyIoPciWrite(code, at.bus, at.dev, at.fun, at.offset, buffer) == done, "as for a write");
    Expect(LegacyIoPciRead(code, at.bus, at.dev, at.fun, at.offset, nullptr) == 0 &&
               LegacyIoPciWrite(code, at.bus, at.dev, at.fun, at.offset, nullptr) == 0,
           "no buffer");
}

void CheckBuffer(Input *input) {
    Register at = TakeRegister(input);
    uint32_t size = TakeBelow(input, LONGEST_BUFFER + 1);
    uint8_t *buffer = static_cast<uint8_t *>(malloc(size + 1));
    buffer[size] = UNTOUCHED;
    BeginOutput();
    uint64_t got = PciReadBuffer(at.bus, at.dev, at.fun, at.offset, size, buffer);
    PciReadBuffer(at.bus, at.dev, at.fun, at.offset, size, nullptr);
    size_t printed;
    EndOutputOf(&printed);
    Expect(got == size && buffer[size] == UNTOUCHED, "a buffer of its size");
    Expect((printed == 0) == (size == 0), "an assertion for no buffer");
    for (uint32_t i = 0; i < size && at.offset + i <= 0xFFFF; i++) {
        Register one = at;
        one.offset = static_cast<uint16_t>(at.offset + i);
        Expect(buffer[i] == Model(&one, 1), "each byte is its register's");
    }
    free(buffer);
}

void CheckUnaligned(Input *input) {
    uint32_t value = Take32(input);
    uint32_t at = TakeByte(input) % 4;
    uint8_t buffer[12];
    memset(buffer, UNTOUCHED, sizeof buffer);
    size_t printed;
    BeginOutput();
    Expect(EfiWriteUnaligned16(buffer + at, static_cast<uint16_t>(value)) == static_cast<uint16_t>(value),
           "a word");
    Expect(memcmp(buffer + at, &value, 2) == 0 && buffer[at + 2] == UNTOUCHED, "a word's bytes");
    Expect(EfiWriteUnaligned32(buffer + at, value) == value && memcmp(buffer + at, &value, 4) == 0,
           "a dword");
    Expect(buffer[at + 4] == UNTOUCHED, "a dword's bytes");
    Expect(EfiWriteUnaligned32(nullptr, value) == value, "nowhere to store");
    EndOutputOf(&printed);
    Expect(printed != 0, "an assertion for no place");
}

// An index and a data register of the host bridge; the space keeps both.
void CheckIndirect(Input *input) {
    uint8_t code = TakeByte(input) % 5;
    uint32_t bytes = PciWidthBytes(code);
    uint16_t index = TakeByte(input) & 0xFC;
    uint16_t data = index ^ 0x40;
    uint32_t number = Take32(input);
    uint32_t value = Take32(input);
    uint8_t *space = gSpaces.functions[0].bytes;
    uint32_t before = SpaceRead(&gSpaces.functions[0], data, 4);
    uint32_t read = 0;
    if (index == 0 || data == 0) // the chipset's vendor stands there
        return;
    size_t printed;
    BeginOutput();
    PciIndirectRead(code, 0, 0, 0, index, data, number, &read);
    PciIndirectRead(code, 0, 0, 0, index, data, number, nullptr);
    Expect(read == (bytes == 0 ? 0 : Cut(before, bytes)), "the data behind an index");
    Expect(memcmp(space + index, &number, bytes) == 0, "the index in its width");
    PciIndirectWrite(code, 0, 0, 0, index, data, number, &value);
    PciIndirectWrite(code, 0, 0, 0, index, data, number, nullptr);
    Expect(memcmp(space + data, &value, bytes) == 0, "the data is written in its width");
    EndOutputOf(&printed);
    Expect((printed != 0) == (bytes == 0), "an assertion for another width");
}

void CheckBits(Input *input) {
    Register at = TakeRegister(input);
    uint32_t bit = TakeByte(input) % 40;
    uint8_t value = TakeByte(input) & 1;
    unsigned width = bit < 8 ? 1 : bit < 16 ? 2 : 4;
    uint32_t before = bit < 32 ? Model(&at, width) : 0;
    Expect(PciReadBit(at.bus, at.dev, at.fun, at.offset, bit) == (bit < 32 ? before >> bit & 1 : 0), "a bit");
    PciWriteBit(at.bus, at.dev, at.fun, at.offset, bit, value);
    if (at.offset < PCI_CONFIG_BYTES - 4 && at.offset % 4 == 0 && Reached(&at, false))
        Expect((Model(&at, 4) >> (bit & 31) & 1) == (bit < 32 ? value : Model(&at, 4) >> (bit & 31) & 1),
               "a bit is written");
}

void CheckWindow(Input *input) {
    uint32_t base = 0x5A5A5A5A;
    Expect(GetPcieBaseAddress(&base) == gSpaces.hasWindow, "a window where the chipset has one");
    Expect(base == (gSpaces.hasWindow ? WINDOW_BASE : 0x5A5A5A5A), "the window's base");
    uint16_t bus = Take16(input), dev = Take16(input), fun = Take16(input);
    uint32_t place = (static_cast<uint32_t>(bus) << 20) + (static_cast<uint32_t>(dev) << 15) +
                     (static_cast<uint32_t>(fun) << 12);
    Expect(MemPciBase(bus, dev, fun) == (gSpaces.hasWindow ? WINDOW_BASE : 0) + place,
           "the page of a function");
}

} // namespace

void FuzzPci(Input input) {
    uint8_t kind = TakeByte(&input);
    StartSpaces(&input);
    void (*const checks[])(Input *) = {CheckRegister, CheckRegister,  CheckLegacy,   CheckBuffer,
                                       CheckWindow,   CheckUnaligned, CheckIndirect, CheckBits};
    checks[kind % 8](&input);
    StopMachine();
}
