// The board's physical memory: a sparse file of 4 GiB (and a little more, so that two pages at 0xFFFFF000 are
// there), the address ranges that device models claim in it, and the mappings that the program has of it.
#pragma once

#include "BoardFile.h"

#include <stddef.h>

// A model is asked for 1 to 4 bytes that lie within one aligned dword.
typedef uint32_t (*MemoryReader)(void *device, uint64_t address, unsigned width);
typedef void (*MemoryWriter)(void *device, uint64_t address, unsigned width, uint32_t value);

constexpr uint64_t MEMORY_SIZE = (static_cast<uint64_t>(4) << 30) + (1 << 20);

// The memory file, emptied: the named one if path is not null, else one without a name that lasts for the
// process.
void MemoryReset(const char *path);
int MemoryDescriptor();
// Copies what is in the memory to the same place in another file, and makes that file the memory, as it is.
// False with errno on failure.
bool MemoryCopy(int descriptor);
bool MemoryTake(int descriptor);
// The memory itself, outside of all mappings that the program knows. Null where there is none.
uint8_t *MemoryAt(uint64_t address, uint64_t length);

// Gives the range to a device; a later claim stands in front of an earlier one. A null reader reads all ones,
// a null writer drops the value.
void ClaimMemory(uint64_t start, uint64_t length, MemoryReader read, MemoryWriter write, void *device);

// Error with which a mapping of this range by a descriptor of /dev/mem is refused, 0 when it is granted.
int MappingRefused(uint64_t start, uint64_t length, int descriptor);
// Mappings come and go. Claimed and watched pages lose their access here.
void MappingAdded(uintptr_t at, size_t length, uint64_t address, int protection);
struct RemovedMapping {
    uint64_t address;
    size_t length;
};
// Forgets what was mapped in the range; false if nothing of the board was. `removed` tells what went, the
// first one.
bool MappingRemoved(uintptr_t at, size_t length, RemovedMapping *removed);

int MappingCount();

// The physical address behind a virtual one, and the protection that the program asked for; false outside of
// the board's mappings.
bool FindMapping(uintptr_t at, uint64_t *address, int *protection);
// Whether an access to these bytes is a matter of the board (a byte of them is claimed or watched), and
// whether the page that holds the address is closed to the program.
bool AccessTrapped(uint64_t address, unsigned width);
bool PageTrapped(uint64_t address);

// Asks the devices for the bytes and lays them into the memory, or hands the bytes found there to the
// devices.
void LoadFromDevices(uint64_t address, unsigned width);
void StoreToDevices(uint64_t address, unsigned width);

// Board file: "bytes ADDRESS BYTE...", "text ADDRESS "TEXT"", "fill ADDRESS LENGTH address|BYTE",
// "file ADDRESS NAME", "watch ADDRESS LENGTH", "hole ADDRESS LENGTH", "refuse ADDRESS LENGTH ERROR [sync]"
void BytesLine(BoardLine *line);
void TextLine(BoardLine *line);
void FillLine(BoardLine *line);
void MemoryFileLine(BoardLine *line);
void WatchLine(BoardLine *line);
void HoleLine(BoardLine *line);
void RefuseLine(BoardLine *line);
