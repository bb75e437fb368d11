#include "Machine.h"

#include <errno.h>
#include <string.h>
#include <sys/mman.h>

#include "BasicLib/Chipset.h"
#include "BasicLib/Cpu.h"
#include "BasicLib/Driver.h"
#include "BasicLib/PciWindow.h"
#include "BasicLib/PhysMem.h"
#include "Common/ComFunc/Signals.h"
#include "Goal.h"

namespace {

constexpr int16_t FIRST_DESCRIPTOR = 0x7F00; // of nobody's files
constexpr int16_t SECOND_DESCRIPTOR = 0x7F01;
constexpr size_t MOST_AREAS = 8;
constexpr size_t MOST_REFUSED = 8;
constexpr size_t LONGEST_MAP = static_cast<size_t>(2) * PAGE_4KB;

struct Area {
    uint32_t address;
    uint32_t length;
    uint8_t *bytes;
};

struct Refusal {
    uint32_t page;
    int error;
    bool throughSecond;
};

const Machine *gMachine;
Area gAreas[MOST_AREAS];
size_t gAreaCount;
Refusal gRefusals[MOST_REFUSED];
size_t gRefusalCount;
bool gSecond;
uint64_t gDelays;
int gMaps;
int gHolds;

// The map that is held where no area has all of it: a copy, written back at its end.
alignas(PAGE_4KB) uint8_t gPatchwork[LONGEST_MAP];
uint64_t gPatchworkAddress;

uint8_t *MemoryOf(uint64_t address, uint64_t length) {
    for (size_t i = 0; i < gAreaCount; i++)
        if (address >= gAreas[i].address &&
            address + length <= uint64_t(gAreas[i].address) + gAreas[i].length)
            return gAreas[i].bytes + (address - gAreas[i].address);
    return nullptr;
}

int ErrorOf(uint64_t address, size_t length, int descriptor) {
    for (size_t i = 0; i < gRefusalCount; i++)
        if (gRefusals[i].page >= address && gRefusals[i].page < address + length &&
            (descriptor == FIRST_DESCRIPTOR || gRefusals[i].throughSecond))
            return gRefusals[i].error;
    return 0;
}

void *Map(uint64_t address, size_t length, int descriptor) {
    Expect(address % PAGE_4KB == 0 && length <= LONGEST_MAP, "maps are of a page or two");
    errno = ErrorOf(address, length, descriptor);
    if (errno != 0)
        return MAP_FAILED;
    Expect(gMaps++ == 0, "one map at a time");
    if (uint8_t *whole = MemoryOf(address, length))
        return whole;
    gPatchworkAddress = address;
    memset(gPatchwork, 0xFF, length);
    for (size_t at = 0; at < length; at += PAGE_4KB)
        if (const uint8_t *bytes = MemoryOf(address + at, PAGE_4KB))
            memcpy(gPatchwork + at, bytes, PAGE_4KB);
    return gPatchwork;
}

void Unmap(const void *at, size_t length) {
    Expect(gMaps-- == 1, "what is unmapped has been mapped");
    for (size_t done = 0; at == gPatchwork && done < length; done += PAGE_4KB)
        if (uint8_t *bytes = MemoryOf(gPatchworkAddress + done, PAGE_4KB))
            memcpy(bytes, gPatchwork + done, PAGE_4KB);
}

} // namespace

void StartMachine(const Machine *machine) {
    gMachine = machine;
    gAreaCount = 0;
    gRefusalCount = 0;
    gSecond = true;
    gDelays = 0;
    gMaps = 0;
    gHolds = 0;
    gMemFd = FIRST_DESCRIPTOR;
    chipSetVid = 0;
    tempPcieBaseAddr = 0xFFFFFFFF;
}

void StopMachine() {
    Expect(gMaps == 0, "no map is left");
    Expect(gHolds == 0, "signals are released");
    gMachine = nullptr;
    gMemFd = MEM_FD_NONE;
    chipSetVid = 0;
    tempPcieBaseAddr = 0xFFFFFFFF;
}

bool MachineIsOn() {
    return gMachine != nullptr;
}

void AddMemory(uint32_t address, uint8_t *bytes, uint32_t length) {
    gAreas[gAreaCount++] = {address, length, bytes};
}

void RefusePage(uint32_t address, int error, bool throughSecond) {
    gRefusals[gRefusalCount++] = {address & ~(PAGE_4KB - 1), error, throughSecond};
}

void SetSecondDescriptor(bool there) {
    gSecond = there;
}

uint64_t MachineDelays() {
    return gDelays;
}

int MapsHeld() {
    return gMaps;
}

int SignalHolds() {
    return gHolds;
}

uint32_t MachineReadPort(uint32_t port, unsigned width) {
    uint32_t mask = width == 4 ? 0xFFFFFFFF : (1u << (8 * width)) - 1;
    return (gMachine->readPort ? gMachine->readPort(static_cast<uint16_t>(port), width) : mask) & mask;
}

void MachineWritePort(uint32_t port, unsigned width, uint32_t value) {
    if (gMachine->writePort)
        gMachine->writePort(static_cast<uint16_t>(port), width, value);
}

void MachineDelay(uint32_t count) {
    gDelays += count;
}

bool MachineCpuid(uint32_t leaf, uint32_t registers[4]) {
    if (!gMachine || !gMachine->readCpuid)
        return false;
    gMachine->readCpuid(leaf, registers);
    return true;
}

// In front of the program's procedures of these names (--wrap of the linker); on their own these are the
// program's.
extern "C" {

static bool HasRegisters() {
    return gMachine && gMachine->readRegister;
}

uint32_t __wrap__Z8MemRead8j(uint32_t address) {
    return HasRegisters() ? gMachine->readRegister(address, 1) & 0xFF : MemRead8(address);
}

uint32_t __wrap__Z9MemRead16j(uint32_t address) {
    return HasRegisters() ? gMachine->readRegister(address, 2) & 0xFFFF : MemRead16(address);
}

uint32_t __wrap__Z9MemRead32j(uint32_t address) {
    return HasRegisters() ? gMachine->readRegister(address, 4) : MemRead32(address);
}

void __wrap__Z9MemWrite8jj(uint32_t address, uint32_t value) {
    HasRegisters() ? gMachine->writeRegister(address, 1, value) : MemWrite8(address, value);
}

void __wrap__Z10MemWrite16jj(uint32_t address, uint32_t value) {
    HasRegisters() ? gMachine->writeRegister(address, 2, value) : MemWrite16(address, value);
}

void __wrap__Z10MemWrite32jj(uint32_t address, uint32_t value) {
    HasRegisters() ? gMachine->writeRegister(address, 4, value) : MemWrite32(address, value);
}

void __wrap__Z7ReadMsrjjPjS_(uint32_t cpu, uint32_t index, uint32_t *high, uint32_t *low) {
    if (!gMachine)
        return ReadMsr(cpu, index, high, low);
    uint64_t value = gMachine->readMsr ? gMachine->readMsr(index) : 0;
    *high = static_cast<uint32_t>(value >> 32);
    *low = static_cast<uint32_t>(value);
}

void __wrap__Z8WriteMsrjjjj(uint32_t cpu, uint32_t index, uint32_t high, uint32_t low) {
    if (!gMachine)
        return WriteMsr(cpu, index, high, low);
    if (gMachine->writeMsr)
        gMachine->writeMsr(index, static_cast<uint64_t>(high) << 32 | low);
}

void __wrap__Z11HoldSignalsv() {
    if (!gMachine)
        HoldSignals();
    gHolds++;
}

void __wrap__Z14ReleaseSignalsv() {
    if (!gMachine)
        ReleaseSignals();
    gHolds--;
}

int16_t __wrap__Z11CachedMemFdv() {
    return !gMachine ? CachedMemFd() : gSecond ? SECOND_DESCRIPTOR : MEM_FD_NONE;
}

void *__wrap_mmap(void *at, size_t length, int protection, int flags, int descriptor, off_t offset) {
    if (gMachine && (descriptor == FIRST_DESCRIPTOR || descriptor == SECOND_DESCRIPTOR))
        return Map(static_cast<uint64_t>(offset), length, descriptor);
    return mmap(at, length, protection, flags, descriptor, offset);
}

int __wrap_munmap(void *at, size_t length) {
    const uint8_t *bytes = static_cast<const uint8_t *>(at);
    bool own = bytes == gPatchwork;
    for (size_t i = 0; gMachine && i < gAreaCount; i++)
        own = own || (bytes >= gAreas[i].bytes && bytes < gAreas[i].bytes + gAreas[i].length);
    if (!gMachine || !own)
        return munmap(at, length);
    Unmap(at, length);
    return 0;
}
}
