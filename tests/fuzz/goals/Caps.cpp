// caps: capability lists, headers and classes of made-up functions. Asserted: the capability that a plain
// walk over the space finds, by the ports and by the window, loops or not; the first function of a class; the
// names and numbers that the listing prints.
#include <stdio.h>
#include <string.h>

#include "ConfigSpaces.h"
#include "Goal.h"
#include "Machine.h"
#include "Platform/PciCaps.h"
#include "Platform/PciClassCode.h"
#include "Platform/PciFind.h"
#include "Project/PciAcc.h"

namespace {

constexpr uint32_t LONGEST_WALK = 256;
constexpr uint8_t CAP_EXPRESS = 0x10;
constexpr uint8_t USUAL_IDS[] = {0x01, 0x05, 0x09, 0x11};

// A list through the space; the last entry may lead back, or anywhere.
void PutList(ConfigFunction *function, Input *input) {
    uint8_t form = TakeByte(input);
    function->bytes[0x06] = form & 1 ? 0x10 : 0x00;
    function->bytes[0x0E] = form & 2 ? 0x02 : form & 4 ? 0x82 : 0x00;
    uint8_t *from = &function->bytes[(form & 6) != 0 && (form & 8) == 0 ? 0x14 : 0x34];
    for (uint8_t entries = form >> 4; entries > 0; entries--) {
        uint8_t at = TakeByte(input);
        const uint8_t ids[] = {0x01, 0x05, CAP_EXPRESS, 0x00, 0x11, 0xFF, TakeByte(input), 0x09};
        *from = at;
        function->bytes[at] = ids[TakeByte(input) & 7];
        from = &function->bytes[at + 1];
    }
}

// By the ports a word at the third byte of a dword has no second byte.
uint32_t WordAt(const ConfigFunction *function, uint32_t at) {
    uint32_t word = SpaceRead(function, at, 2);
    return at % 4 == 3 ? word | 0xFF00 : word;
}

uint32_t ModelExpress(const ConfigFunction *function, bool endAtNull) {
    uint32_t at = WordAt(function, 0x34) & 0xFF;
    for (uint32_t steps = 0; at != 0 && steps < LONGEST_WALK; steps++) {
        uint32_t entry = WordAt(function, at);
        if ((entry & 0xFF) == CAP_EXPRESS)
            return at;
        at = (entry & 0xFF) == 0 && endAtNull ? 0 : entry >> 8;
    }
    return 0;
}

uint32_t ModelCap(const ConfigFunction *function, uint8_t id) {
    bool cardBus = (SpaceRead(function, 0x0E, 1) & 0x7F) == 2;
    uint32_t at = SpaceRead(function, cardBus ? 0x14 : 0x34, 1) & 0xFC;
    if ((SpaceRead(function, 0x06, 1) & 0x10) == 0)
        return 0;
    for (uint32_t steps = 0; at != 0 && steps < LONGEST_WALK; steps++) {
        uint32_t found = SpaceRead(function, at, 1);
        if (found == id)
            return at;
        at = found == 0xFF ? 0 : SpaceRead(function, at + 1, 1) & 0xFC;
    }
    return 0;
}

void CheckCaps(Input *input) {
    uint8_t choice = TakeByte(input);
    uint8_t id = TakeByte(input);
    if (id & 0x80) // one that lists have
        id = USUAL_IDS[id & 3];
    ConfigFunction *function = &gSpaces.functions[choice % gSpaces.count];
    if (choice & 0x80)
        PutList(function, input);
    uint16_t bus = function->bus, dev = function->dev, fun = function->fun;
    const ConfigFunction *first = FunctionAt(bus, dev, fun);
    if (choice & 0x40)
        first = FunctionAt(bus, dev, fun = 7);
    bool express = ModelExpress(first, false) != 0;
    Expect(FindExpressCap(bus, dev, fun, false) == ModelExpress(first, false), "the express capability");
    Expect(FindExpressCap(bus, dev, fun, true) == ModelExpress(first, true), "the same up to a null entry");
    Expect((isPcieController(bus, dev, fun) != 0) == express, "an express function");
    if (gSpaces.hasWindow)
        Expect(PcieFindCapId(bus, dev, fun, id) == ModelCap(first, id), "a capability in the window");
}

// The first function in order; those at the same place hide each other.
const ConfigFunction *ModelOfClass(uint16_t classCode) {
    const ConfigFunction *found = nullptr;
    for (uint32_t i = 0; i < gSpaces.count; i++) {
        const ConfigFunction *function = &gSpaces.functions[i];
        function = FunctionAt(function->bus, function->dev, function->fun);
        uint32_t order = function->bus << 8u | function->dev << 3u | function->fun;
        uint32_t best = found ? found->bus << 8u | found->dev << 3u | found->fun : 0xFFFFFFFF;
        if (SpaceRead(function, 0x0A, 2) == classCode && order < best)
            found = function;
    }
    return found;
}

// A class that nobody has costs a look at each of 65,536 places: it takes a byte of its own.
void CheckFind(Input *input) {
    uint8_t absent = TakeByte(input);
    uint8_t choice = TakeByte(input);
    const ConfigFunction *function = &gSpaces.functions[choice % gSpaces.count];
    function = FunctionAt(function->bus, function->dev, function->fun);
    uint16_t classCode = static_cast<uint16_t>(SpaceRead(function, 0x0A, 2));
    if (absent == 0xA5)
        classCode = 0x1234;
    else if (classCode == 0xFFFF)
        return; // is the first place without a function
    const ConfigFunction *expected = ModelOfClass(classCode);
    uint16_t bus = 99, dev = 99, fun = 99;
    size_t printed;
    BeginOutput();
    int found = SourchPciControllerByClass(&bus, &dev, &fun, classCode);
    if (expected)
        SourchPciControllerByClass(nullptr, nullptr, nullptr, classCode);
    const char *text = EndOutputOf(&printed);
    Expect(found == (expected != nullptr), "a function of a class");
    char message[40] = "";
    if (!expected)
        snprintf(message, sizeof message, "Not found ClaseCode(%04X)\n", classCode);
    Expect(strcmp(text, message) == 0, "a message where there is none");
    Expect(expected ? bus == expected->bus && dev == expected->dev && fun == expected->fun
                    : bus == 99 && dev == 99 && fun == 99,
           "the first one in order");
}

const char *NameOf(uint32_t classCode) {
    for (const PciClassName *row = PciDeviceClassCode; row->code != PCI_CLASS_END; row++)
        if (row->code == classCode)
            return row->name;
    return "Unknown PCI\n";
}

void CheckListing(Input *input) {
    const char *const states[] = {"DIS ", "L0S ", "L1  ", "L01 "};
    ConfigFunction *function = &gSpaces.functions[TakeByte(input) % gSpaces.count];
    uint16_t bus = function->bus, dev = function->dev, fun = function->fun;
    PutList(function, input);
    const ConfigFunction *first = FunctionAt(bus, dev, fun);
    size_t length;
    BeginOutput();
    ShowPciClassType(bus, dev, fun);
    Expect(strcmp(EndOutputOf(&length), NameOf(SpaceRead(first, 0x0A, 2))) == 0, "the name of a class");
    BeginOutput();
    ReadPciAspm(bus, dev, fun);
    const char *text = EndOutputOf(&length);
    bool known = strcmp(text, "NA  ") == 0;
    for (const char *state : states)
        known = known || strcmp(text, state) == 0;
    Expect(known, "a state of the link in four letters");
    BeginOutput();
    ReadPciInterruptPL(bus, dev, fun);
    EndOutputOf(&length);
    Expect(length == 12, "line and pin in six letters each");
    Expect(GetPciClassCode(bus, dev, fun) == WordAt(first, 0x0A), "the class of a function");
    uint32_t header = SpaceRead(FunctionAt(bus, dev, 0), 0x0E, 1);
    Expect((isPciMultipleFunction(bus, dev) != 0) == (header >= 0x80 && header != 0xFF), "several functions");
}

} // namespace

void FuzzCaps(Input input) {
    uint8_t kind = TakeByte(&input);
    StartSpaces(&input);
    if (kind % 4 < 2)
        CheckCaps(&input);
    else if (kind % 4 == 2)
        CheckFind(&input);
    else
        CheckListing(&input);
    StopMachine();
}
