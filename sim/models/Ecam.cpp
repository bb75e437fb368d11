#include "Ecam.h"

#include "../Arena.h"
#include "../Memory.h"
#include "PciFunction.h"

namespace {

constexpr uint64_t BUS_SIZE = 1 << 20;
constexpr int MAX_WINDOWS = 16;

unsigned gBuses[MAX_WINDOWS]; // of each window
int gWindowCount;

uint32_t ReadWindow(void *device, uint64_t address, unsigned width) {
    uint64_t offset = address - *static_cast<uint64_t *>(device);
    return PciWindowRead(static_cast<uint16_t>(offset >> 12), offset & 0xFFF, width);
}

void WriteWindow(void *device, uint64_t address, unsigned width, uint32_t value) {
    uint64_t offset = address - *static_cast<uint64_t *>(device);
    PciConfigWrite(static_cast<uint16_t>(offset >> 12), offset & 0xFFF, width, value);
}

} // namespace

void EcamReset() {
    gWindowCount = 0;
}

void EcamLine(BoardLine *line) {
    uint64_t base = LineAddress(line, 1);
    uint64_t buses = LineCount(line, 2, 0x100);
    if (base % BUS_SIZE != 0)
        LineFail(line, "no multiple of 1 MiB", line->words[1]);
    if (buses * BUS_SIZE > MEMORY_END - base)
        LineFail(line, "the range does not end below 4 GiB", line->words[2]);
    if (gWindowCount == MAX_WINDOWS)
        LineFail(line, "more than 16 windows", nullptr);
    uint64_t *device = static_cast<uint64_t *>(ArenaTake(sizeof(uint64_t)));
    *device = base;
    ClaimMemory(base, buses * BUS_SIZE, ReadWindow, WriteWindow, device);
    gBuses[gWindowCount++] = static_cast<unsigned>(buses);
}

bool EcamReaches(unsigned bus) {
    for (int i = 0; i < gWindowCount; i++)
        if (bus < gBuses[i])
            return true;
    return false;
}
