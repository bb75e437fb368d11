// pages: copies and single accesses of physical memory against a model, at any place and of any length over
// some pages of which some are absent, refused or to be had through the second descriptor alone. Asserted:
// every byte of the copy, none beyond it, and that no map is left.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "Base/Memory.h"
#include "BasicLib/Driver.h"
#include "BasicLib/PhysMem.h"
#include "BasicLib/Place.h"
#include "Goal.h"
#include "Machine.h"
#include "tests/fuzz/Held.h"

namespace {

constexpr uint32_t PAGES = 6;
constexpr uint32_t AREA_BYTES = PAGES * PAGE_4KB;
constexpr uint32_t ROOM = AREA_BYTES + 64;
constexpr uint8_t UNTOUCHED = 0xEE;
const uint32_t BASES[] = {0x1000, 0xF0000, 0x7FFFF000, 0xFFFFA000}; // the last one ends at 4 GiB

// A page is mapped, or it is not: by the first descriptor, or at all.
enum PageKind : uint8_t { PAGE_GOOD, PAGE_REFUSED, PAGE_CACHED, PAGE_REFUSED_TWICE };

alignas(4096) uint8_t gBytes[AREA_BYTES];
uint8_t gWanted[AREA_BYTES];
uint32_t gBase;
PageKind gKinds[PAGES];
bool gSecond;
bool gFilled;

void MakePages(Input *input) {
    gBase = BASES[TakeByte(input) % 4];
    uint16_t kinds = Take16(input);
    gSecond = TakeByte(input) % 8 != 1;
    SetSecondDescriptor(gSecond);
    AddMemory(gBase, gBytes, AREA_BYTES);
    for (uint32_t i = 0; i < PAGES; i++) {
        gKinds[i] = static_cast<PageKind>(kinds >> (2 * i) & 3);
        if (gKinds[i] != PAGE_GOOD)
            RefusePage(gBase + i * PAGE_4KB, gKinds[i] == PAGE_REFUSED ? EPERM : EAGAIN,
                       gKinds[i] != PAGE_CACHED);
    }
}

bool IsMapped(uint32_t page) {
    return page < PAGES && (gKinds[page] == PAGE_GOOD || (gKinds[page] == PAGE_CACHED && gSecond));
}

// What is refused, and what is nowhere, reads all ones; without the device nothing is read.
uint8_t ByteAt(uint32_t offset) {
    return offset < AREA_BYTES && IsMapped(offset / PAGE_4KB) ? gWanted[offset] : 0xFF;
}

void CheckCopy(uint32_t offset, uint32_t length, Input *input) {
    uint32_t address = gBase + offset;
    uint64_t end = static_cast<uint64_t>(address) + length;
    uint32_t taken = end > 0x100000000 ? 0 - address : length;
    size_t room = TakeByte(input) % 16 + static_cast<size_t>(taken);
    uint8_t *buffer = static_cast<uint8_t *>(malloc(room + 1));
    memset(buffer, UNTOUCHED, room + 1);
    Expect(MemDump(address, length, buffer) == EFI_SUCCESS, "a copy succeeds");
    for (uint32_t i = 0; i < taken; i++)
        Expect(buffer[i] == ByteAt(offset + i), "each byte is the one of its place");
    Expect(AllBytes(buffer + taken, UNTOUCHED, room + 1 - taken), "nothing lies behind the copy");
    Expect(MemDump(address, length, nullptr) == EFI_INVALID_PARAMETER, "no buffer");
    free(buffer);
    uint8_t *copy = CopyPhysical(address, length);
    for (uint32_t i = 0; i < length; i++)
        Expect(copy[i] == (i < taken ? ByteAt(offset + i) : 0),
               "a heap copy is zero behind the end of memory");
    Free(copy);
}

void CheckPage(uint32_t offset) {
    static uint8_t buffer[PAGE_4KB + 8];
    uint32_t page = offset / PAGE_4KB;
    memset(buffer, UNTOUCHED, sizeof buffer);
    bool mapped = IsMapped(page);
    Expect(Dump_PhysMem(gBase + offset, buffer, PAGE_4KB) == mapped, "a page is copied when it is mapped");
    bool same =
        mapped ? memcmp(buffer, gWanted + page * PAGE_4KB, PAGE_4KB) == 0 : AllBytes(buffer, 0xFF, PAGE_4KB);
    Expect(same, "a page is copied as a whole");
    Expect(AllBytes(buffer + PAGE_4KB, UNTOUCHED, 8), "a page and no more");
    Expect(Dump_PhysMem(gBase, nullptr, PAGE_4KB) == 0, "no buffer");
    BeginOutput();
    Expect(Dump_PhysMem(gBase + offset, buffer, 1) == mapped, "a length is looked at, and no more");
    size_t printed;
    EndOutputOf(&printed);
    Expect(printed != 0, "an assertion for a length below a page");
    Expect((ProbePhysMem(gBase + offset) == 0) == mapped, "a probe tells what a copy gets");
}

uint32_t ReadWidth(uint32_t address, unsigned width) {
    return width == 1 ? MemRead8(address) : width == 2 ? MemRead16(address) : MemRead32(address);
}

void WriteWidth(uint32_t address, unsigned width, uint32_t value) {
    width == 1   ? MemWrite8(address, value)
    : width == 2 ? MemWrite16(address, value)
                 : MemWrite32(address, value);
}

// An access maps its page and the next one, as one map through one descriptor: all of it through the first,
// or, when that says EAGAIN, all of it through the second.
bool AccessIsMapped(uint32_t page) {
    bool refused[2] = {};
    int error = 0;
    for (uint32_t i = page; i < page + 2 && i < PAGES; i++) {
        if (gKinds[i] != PAGE_GOOD && error == 0)
            error = gKinds[i] == PAGE_REFUSED ? EPERM : EAGAIN;
        refused[0] = refused[0] || gKinds[i] != PAGE_GOOD;
        refused[1] = refused[1] || (gKinds[i] != PAGE_GOOD && gKinds[i] != PAGE_CACHED);
    }
    return !refused[0] || (error == EAGAIN && gSecond && !refused[1]);
}

void CheckAccess(uint32_t offset, Input *input) {
    gFilled = false;
    unsigned width = 1u << (TakeByte(input) % 3);
    uint32_t value = Take32(input);
    uint32_t address = gBase + offset;
    bool mapped = AccessIsMapped(offset / PAGE_4KB);
    Expect((ProbePhysAccess(address) == 0) == mapped, "a probe tells what an access gets");
    WriteWidth(address, width, value);
    for (unsigned i = 0; i < width && mapped; i++)
        if (offset + i < AREA_BYTES)
            gWanted[offset + i] = static_cast<uint8_t>(value >> (8 * i));
    uint32_t expected = 0;
    for (unsigned i = 0; i < width; i++)
        expected |= static_cast<uint32_t>(offset + i < AREA_BYTES ? gWanted[offset + i] : 0xFF) << (8 * i);
    uint32_t refusal = width == 1 ? 0xFF : 0xFFFF;
    Expect(ReadWidth(address, width) == (mapped ? expected : refusal), "a read gives what was written");
    Expect(memcmp(gBytes, gWanted, AREA_BYTES) == 0, "a write changes its bytes alone");
    MemWriteBit(address, 7, static_cast<uint8_t>(value & 4));
    if (mapped)
        gWanted[offset] = static_cast<uint8_t>((gWanted[offset] & 0x7F) | (value & 4 ? 0x80 : 0));
    Expect(MemReadBit(address, 7) == (mapped ? gWanted[offset] >> 7u : 1), "a bit is written");
    Expect(memcmp(gBytes, gWanted, AREA_BYTES) == 0, "a bit alone");
}

void CheckWithoutDevice(uint32_t offset) {
    uint8_t byte = UNTOUCHED;
    gMemFd = MEM_FD_NONE;
    MemWrite32(gBase + offset, 0);
    Expect(MemRead8(gBase + offset) == 0xFFFFFFFF && MemRead32(gBase + offset) == 0xFFFFFFFF, "no device");
    Expect(Dump_PhysMem(gBase + offset, &byte, PAGE_4KB) == 0 && byte == UNTOUCHED, "no device, no copy");
    RefuseBlock(1);
    Expect(CopyPhysical(gBase, 16) == nullptr, "no memory for a copy");
    Expect(ProbePhysMem(gBase) == ENODEV, "no device to be probed");
}

} // namespace

void FuzzPages(Input input) {
    if (!gFilled) // at first, and when the input before has written
        for (uint32_t i = 0; i < AREA_BYTES; i++)
            gBytes[i] = gWanted[i] = static_cast<uint8_t>(i * 7 + (i >> 8));
    gFilled = true;
    const Machine none = {};
    StartMachine(&none);
    MakePages(&input);
    uint8_t kind = TakeByte(&input);
    uint32_t offset = TakeBelow(&input, AREA_BYTES);
    if (kind % 8 < 4)
        CheckCopy(offset, Take16(&input) % ROOM, &input);
    else if (kind % 8 < 5)
        CheckPage(offset);
    else if (kind % 8 < 7)
        CheckAccess(offset, &input);
    else
        CheckWithoutDevice(offset);
    StopMachine();
}
