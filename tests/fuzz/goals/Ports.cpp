// ports: registers behind index and data ports, at ports, and the Super I/O chip's. Asserted: the very list
// of accesses that the headers promise, in order and width, and the values put together of what the ports
// answered; of the chip that it is opened by its key, read as a whole and closed.
#include <string.h>

#include "BasicLib/IndexIo.h"
#include "BasicLib/Place.h"
#include "Goal.h"
#include "Machine.h"
#include "Platform/AmdReg.h"
#include "Platform/SioChip.h"

namespace {

constexpr size_t MOST_ACCESSES = 16;

struct Access {
    bool write;
    uint16_t port;
    unsigned width;
    uint32_t value;
};

// What has been accessed, and what had to be.
Access gMade[MOST_ACCESSES];
size_t gMadeCount;
Access gWanted[MOST_ACCESSES];
size_t gWantedCount;
uint64_t gWantedDelays;
Input *gAnswers;

uint32_t CutTo(uint32_t value, unsigned width) {
    return width == 4 ? value : value & ((1u << (8 * width)) - 1);
}

uint32_t Answer(uint16_t port, unsigned width) {
    uint32_t value = CutTo(Take32(gAnswers), width);
    Expect(gMadeCount < MOST_ACCESSES, "few accesses");
    gMade[gMadeCount++] = {false, port, width, value};
    return value;
}

void Store(uint16_t port, unsigned width, uint32_t value) {
    Expect(gMadeCount < MOST_ACCESSES, "few accesses");
    gMade[gMadeCount++] = {true, port, width, value};
}

void Want(bool write, uint32_t port, unsigned width, uint32_t value) {
    gWanted[gWantedCount++] = {write, static_cast<uint16_t>(port), width, CutTo(value, width)};
}

// The index in the width that holds it, behind two delays.
void WantIndex(uint32_t port, uint32_t index) {
    gWantedDelays += 2;
    Want(true, port, index <= 0xFF ? 1 : index <= 0xFFFF ? 2 : 4, index);
}

// A value's bytes in registers of a byte, the highest first.
void WantBytes(const Place *at, unsigned width, bool write, uint32_t value) {
    for (unsigned i = width; i-- > 0;) {
        WantIndex(at->address, at->index + i);
        Want(write, at->dataPort, 1, value >> (8 * i));
    }
}

void WantAccess(const Place *at, unsigned width, bool write, uint32_t value) {
    if (at->space == SPACE_BYTES)
        return WantBytes(at, width, write, value);
    if (at->space == SPACE_INDEX)
        WantIndex(at->address, at->index);
    Want(write, at->space == SPACE_INDEX ? at->dataPort : at->address, width, value);
}

// What the reads of the data port gave, put together.
uint32_t Gathered(const Place *at, unsigned width) {
    uint32_t value = 0;
    for (size_t i = 0; i < gMadeCount; i++)
        if (!gMade[i].write)
            value = at->space == SPACE_BYTES ? value << 8 | gMade[i].value : gMade[i].value;
    return CutTo(value, width);
}

// All but the values that reads gave.
void CheckAccesses() {
    Expect(gMadeCount == gWantedCount, "no access more or less");
    for (size_t i = 0; i < gMadeCount; i++)
        Expect(gMade[i].write == gWanted[i].write && gMade[i].port == gWanted[i].port &&
                   gMade[i].width == gWanted[i].width &&
                   (!gMade[i].write || CutTo(gMade[i].value, gMade[i].width) == gWanted[i].value),
               "each access as it has to be");
    Expect(MachineDelays() == gWantedDelays, "the delays in front of an index");
    gMadeCount = gWantedCount = 0;
}

Place TakePlace(Input *input) {
    const Space spaces[] = {SPACE_IO, SPACE_INDEX, SPACE_BYTES};
    Place at = IoPlace(static_cast<uint32_t>(TakeOdd(input, 32)));
    at.space = spaces[TakeByte(input) % 3];
    at.dataPort = static_cast<uint32_t>(TakeOdd(input, 32));
    at.index = static_cast<uint32_t>(TakeOdd(input, 32));
    return at;
}

void CheckPlace(Input *input) {
    Place at = TakePlace(input);
    unsigned width = 1u << TakeByte(input) % 3;
    uint32_t value = static_cast<uint32_t>(TakeOdd(input, 32));
    uint32_t read = ReadPlace(&at, width);
    Expect(read == Gathered(&at, width), "a read gives what the ports gave");
    WantAccess(&at, width, false, 0);
    CheckAccesses();
    WritePlace(&at, width, value);
    WantAccess(&at, width, true, value);
    CheckAccesses();
}

void CheckBit(Input *input) {
    Place at = TakePlace(input);
    uint32_t bit = TakeByte(input) % 40;
    bool set = (TakeByte(input) & 1) != 0;
    unsigned width = bit < 8 ? 1 : bit < 16 ? 2 : bit < 32 ? 4 : 0;
    Expect(WidthOfBit(bit) == width, "a bit's width");
    uint32_t read = ReadPlaceBit(&at, bit);
    Expect(read == (width == 0 ? 0 : Gathered(&at, width) >> bit & 1), "a bit");
    if (width != 0)
        WantAccess(&at, width, false, 0);
    CheckAccesses();
    WritePlaceBit(&at, bit, set);
    if (width != 0) {
        uint32_t before = Gathered(&at, width);
        WantAccess(&at, width, false, 0);
        WantAccess(&at, width, true, set ? before | 1u << bit : before & ~(1u << bit));
    }
    CheckAccesses();
}

// The same by the procedures that a command may call for a bit.
void CheckBitProcedures(Input *input) {
    uint16_t port = Take16(input);
    uint16_t data = Take16(input);
    uint32_t index = Take16(input);
    uint8_t value = TakeByte(input) & 3;
    Place plain = IoPlace(port);
    Place pair = IndexPlace(port, data, index);
    Expect(IoReadBit(port, 3) == (Gathered(&plain, 1) >> 3 & 1), "a bit at a port");
    WantAccess(&plain, 1, false, 0);
    CheckAccesses();
    Expect(IoIndexReadBit(port, data, index, 20) == (Gathered(&pair, 4) >> 20 & 1), "a bit behind a pair");
    WantAccess(&pair, 4, false, 0);
    CheckAccesses();
    IoWriteBit(port, 9, value);
    uint32_t before = Gathered(&plain, 2);
    WantAccess(&plain, 2, false, 0);
    WantAccess(&plain, 2, true, value ? before | 0x200 : before & ~0x200u);
    CheckAccesses();
    IoIndexWriteBit(port, data, index, 0, value);
    before = Gathered(&pair, 1);
    WantAccess(&pair, 1, false, 0);
    WantAccess(&pair, 1, true, value ? before | 1 : before & ~1u);
    CheckAccesses();
}

// Power-management registers are bytes behind a pair.
void CheckPmRegisters(Input *input) {
    uint8_t index = TakeByte(input);
    Place at = {SPACE_BYTES, 0xCD6, 0xCD7, index, 0, 0, 0, 0};
    Expect(AmdPMxRead8(index) == Gathered(&at, 1), "a byte");
    WantAccess(&at, 1, false, 0);
    CheckAccesses();
    Expect(AmdPMxRead16(index) == Gathered(&at, 2), "a word");
    WantAccess(&at, 2, false, 0);
    CheckAccesses();
    Expect(AmdPMxRead32(index) == Gathered(&at, 4), "a dword");
    WantAccess(&at, 4, false, 0);
    CheckAccesses();
}

// A chip that answers once its key has been written twice, and no more behind the other one.
struct Chip {
    unsigned keys;
    uint8_t index;
    uint8_t device;
    uint8_t registers[4][SIO_REGISTERS]; // by logical device
};
Chip gChip;

void ChipWrite(uint16_t port, unsigned width, uint32_t value) {
    Expect(width == 1 && (port == SIO_INDEX || port == SIO_DATA), "the chip's ports");
    if (port == SIO_INDEX && gChip.keys < 2)
        gChip.keys = value == 0xA5 ? gChip.keys + 1 : 0;
    else if (port == SIO_INDEX)
        gChip.index = static_cast<uint8_t>(value);
    else if (gChip.keys == 2 && gChip.index == 7)
        gChip.device = value & 3;
    else
        Expect(false, "only the logical device is written");
}

uint32_t ChipRead(uint16_t port, unsigned width) {
    Expect(width == 1 && port == SIO_DATA && gChip.keys == 2, "the chip is read when it is open");
    return gChip.index == 7 ? gChip.device : gChip.registers[gChip.device][gChip.index];
}

void CheckChip(Input *input) {
    static const Machine chip = {ChipRead, ChipWrite, nullptr, nullptr, nullptr, nullptr, nullptr};
    StartMachine(&chip);
    gChip.keys = 0;
    gChip.device = 0;
    uint8_t device = TakeByte(input) & 3;
    uint8_t step = TakeByte(input);
    uint8_t first = TakeByte(input);
    for (uint32_t i = 0; i < SIO_REGISTERS; i++)
        gChip.registers[device][i] = static_cast<uint8_t>(first + step * i);
    uint8_t buffer[SIO_REGISTERS + 1];
    buffer[SIO_REGISTERS] = 0xEE;
    UnlockSIO();
    Expect(gChip.keys == 2, "the key opens the chip");
    GetSIO2Buffer(buffer, device);
    gChip.registers[device][7] = device;
    Expect(memcmp(buffer, gChip.registers[device], SIO_REGISTERS) == 0,
           "the registers of the logical device");
    Expect(buffer[SIO_REGISTERS] == 0xEE, "and no more");
    gChip.index = 0;
    LockSIO();
    Expect(gChip.index == 0xAA, "the last write closes the chip");
    StopMachine();
}

} // namespace

void FuzzPorts(Input input) {
    static const Machine machine = {Answer, Store, nullptr, nullptr, nullptr, nullptr, nullptr};
    void (*const checks[])(Input *) = {CheckPlace, CheckPlace, CheckBit, CheckBitProcedures,
                                       CheckPmRegisters};
    uint8_t kind = TakeByte(&input) % 6;
    if (kind == 5)
        return CheckChip(&input);
    gMadeCount = gWantedCount = 0;
    gWantedDelays = 0;
    Input *answers = &input;
    gAnswers = answers;
    StartMachine(&machine);
    checks[kind](answers);
    StopMachine();
    gAnswers = nullptr;
}
