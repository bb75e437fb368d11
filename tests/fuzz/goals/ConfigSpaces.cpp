#include "ConfigSpaces.h"

#include <string.h>

#include "BasicLib/Chipset.h"
#include "BasicLib/PciWindow.h"
#include "Machine.h"

ConfigSpaces gSpaces;

namespace {

constexpr uint16_t ADDRESS_PORT = 0xCF8;
constexpr uint16_t DATA_PORT = 0xCFC;
constexpr uint32_t MSR_WINDOW = 0xC0010058;
constexpr uint16_t ATI = 0x1002;
const uint16_t VENDORS[] = {VENDOR_INTEL, VENDOR_AMD, VENDOR_HYGON, ATI, 0x1234};

ConfigFunction *Selected() {
    uint32_t address = gSpaces.address;
    return FunctionAt(address >> 16 & 0xFF, address >> 11 & 31, address >> 8 & 7);
}

// The byte of the space that a data port leads to; past the last of the four there is none.
uint8_t *ByteOf(uint32_t port) {
    ConfigFunction *function = Selected();
    return function && port < DATA_PORT + 4u ? function->bytes + (gSpaces.address & 0xFC) + (port - DATA_PORT)
                                             : nullptr;
}

} // namespace

uint32_t SpacesReadPort(uint16_t port, unsigned width) {
    uint32_t value = 0;
    gSpaces.accesses++;
    for (unsigned i = 0; i < width; i++) {
        const uint8_t *byte = port >= DATA_PORT ? ByteOf(port + i) : nullptr;
        value |= static_cast<uint32_t>(byte ? *byte : 0xFF) << (8 * i);
    }
    return value;
}

void SpacesWritePort(uint16_t port, unsigned width, uint32_t value) {
    if (port == ADDRESS_PORT && width == 4) {
        gSpaces.address = value;
        return;
    }
    gSpaces.accesses++;
    for (unsigned i = 0; i < width && port >= DATA_PORT; i++)
        if (uint8_t *byte = ByteOf(port + i))
            *byte = static_cast<uint8_t>(value >> (8 * i));
}

namespace {

ConfigFunction *InWindow(uint32_t address) {
    uint32_t place = address - WINDOW_BASE;
    return FunctionAt(place >> 20, place >> 15 & 31, place >> 12 & 7);
}

uint32_t ReadRegister(uint32_t address, unsigned width) {
    gSpaces.accesses++;
    return SpaceRead(InWindow(address), address % FUNCTION_BYTES, width);
}

void WriteRegister(uint32_t address, unsigned width, uint32_t value) {
    gSpaces.accesses++;
    ConfigFunction *function = InWindow(address);
    for (unsigned i = 0; i < width && function && address % FUNCTION_BYTES + i < FUNCTION_BYTES; i++)
        function->bytes[address % FUNCTION_BYTES + i] = static_cast<uint8_t>(value >> (8 * i));
}

uint64_t ReadMsrOf(uint32_t index) {
    return index == MSR_WINDOW ? WINDOW_BASE | 0x21 : 0;
}

} // namespace

void StartSpaces(Input *input) {
    static const Machine machine = {SpacesReadPort, SpacesWritePort, ReadRegister, WriteRegister,
                                    ReadMsrOf,      nullptr,         nullptr};
    uint8_t form = TakeByte(input);
    gSpaces.count = 1 + form % MOST_FUNCTIONS;
    gSpaces.address = 0;
    gSpaces.accesses = 0;
    for (uint32_t i = 0; i < gSpaces.count; i++) {
        ConfigFunction *function = &gSpaces.functions[i];
        uint8_t place = i == 0 ? 0 : TakeByte(input);
        *function = {static_cast<uint16_t>(place >> 6),
                     static_cast<uint16_t>(place >> 3 & 7),
                     static_cast<uint16_t>(place & 7),
                     {}};
        for (uint8_t pieces = TakeByte(input) % 8; pieces > 0; pieces--) {
            uint8_t at = TakeByte(input);
            Input bytes = TakeBytes(input, TakeByte(input) % 16);
            memcpy(function->bytes + at, bytes.bytes, bytes.length);
        }
    }
    uint16_t vendor = VENDORS[(form >> 2) % 5];
    uint32_t window = WINDOW_BASE | 1;
    memcpy(gSpaces.functions[0].bytes, &vendor, 2);
    memcpy(gSpaces.functions[0].bytes + 0x60, &window, 4);
    StartMachine(&machine);
    uint32_t base;
    gSpaces.hasWindow =
        GetPcieBaseAddress(&base) != 0; // known from here on, whatever becomes of the registers
    Expect(gSpaces.hasWindow == (vendor != VENDORS[4]), "a window where the chipset has one");
    Expect(!gSpaces.hasWindow || base == WINDOW_BASE, "the window's base");
    gSpaces.accesses = 0;
}

ConfigFunction *FunctionAt(uint32_t bus, uint32_t dev, uint32_t fun) {
    for (uint32_t i = 0; i < gSpaces.count; i++) {
        ConfigFunction *function = &gSpaces.functions[i];
        if (function->bus == bus && function->dev == dev && function->fun == fun)
            return function;
    }
    return nullptr;
}

uint32_t SpaceRead(const ConfigFunction *function, uint32_t offset, unsigned width) {
    uint32_t value = 0;
    for (unsigned i = 0; i < width; i++)
        value |= static_cast<uint32_t>(function && offset + i < FUNCTION_BYTES ? function->bytes[offset + i]
                                                                               : 0xFF)
                 << (8 * i);
    return value;
}
