// Physical memory below 4 GiB, through the memory device. Each call maps what it needs and unmaps it at
// once. Nothing is printed but the assertion of Dump_PhysMem.
//
// No command reaches: ProbePhysMem, ProbePhysAccess.
#pragma once

#include "Base/Types.h"

// What is mapped and copied at a time.
constexpr uint32_t PAGE_4KB = 0x1000;

// Where the assertions of this layer say they stand.
constexpr const char *BASIC_LIB_SOURCE = "./BasicLib/BasicLib";

// One access of the width, also across a page border. A read gives 0xFFFFFFFF without the memory device,
// and 0xFF, 0xFFFF and 0xFFFF (for the dword too: callers know a refused one by it) when the map is refused.
uint32_t MemRead8(uint32_t address);
uint32_t MemRead16(uint32_t address);
uint32_t MemRead32(uint32_t address);

// One access of the width; dropped without the memory device or when the map is refused.
void MemWrite8(uint32_t address, uint32_t value);
void MemWrite16(uint32_t address, uint32_t value);
void MemWrite32(uint32_t address, uint32_t value);

// 0 when the page of the address can be mapped as the copies do it, else the error number (errno(3)). Maps
// it for reading and accesses nothing.
int ProbePhysMem(uint32_t address);

// The same for what an access maps: the page of the address and the one behind it, whatever the width.
int ProbePhysAccess(uint32_t address);

// Copies the whole 4 KiB page that holds address, whatever its low bits, with aligned 8-byte loads. The
// buffer always receives 4 KiB; length is only checked against that, by an assertion line. 1 when the
// page was copied; 0 with the buffer filled with 0xFF when the map is refused, and untouched without the
// memory device or for a NULL buffer.
int Dump_PhysMem(uint32_t address, uint8_t *buffer, uint32_t length);

// Copies length bytes from start on, cut at 4 GiB, page by page. 0x80000002 for a NULL buffer, else 0:
// unreadable pages arrive as 0xFF bytes.
EFI_STATUS MemDump(uint32_t start, uint32_t length, uint8_t *buffer);

// A heap copy of size bytes of physical memory, which the caller frees with Free; NULL without memory.
uint8_t *CopyPhysical(uint32_t address, uint32_t size);
