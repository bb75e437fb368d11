#include "Common/ComFunc/MemoryLadder.h"

#include "Base/Memory.h"

static const uint32_t mLadder[] = {0x2800000, 0x1400000, 0xA00000, 0x100000,
                                   0x80000,   0x10000,   0x4000,   0x1000};

EFI_STATUS GetMaxAllocMemory(uint8_t **buffer, uint32_t *size, uint32_t wanted) {
    for (uint32_t step : mLadder) {
        *size = step < wanted ? step : wanted;
        uint8_t *block = static_cast<uint8_t *>(Malloc(*size));
        if (block != nullptr) {
            *buffer = block;
            return EFI_SUCCESS;
        }
    }
    *size = 0;
    return EFI_OUT_OF_RESOURCES;
}
