// Work buffers for large copies.
#pragma once

#include "Base/Types.h"

// The largest block that the heap grants of a ladder from 40 MiB down to 4 KiB, each step cut to wanted
// bytes. 0 with the block (freed by the caller with Free) and its size in bytes; 0x80000009 with a size of 0
// and *buffer as it was.
EFI_STATUS GetMaxAllocMemory(uint8_t **buffer, uint32_t *size, uint32_t wanted);

// Has the kernel provide the pages of a block now, in few faults instead of one for each page: for a block
// that will be written as a whole. size: bytes. The contents stay; where the kernel does not do it, the
// writes do, as ever.
void ProvidePages(uint8_t *block, uint32_t size);
