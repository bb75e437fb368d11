#include "Common/ComFunc/MemoryLadder.h"

#include <sys/syscall.h>
#include <unistd.h>

#include "Base/Memory.h"

// madvise(2). Older headers than those of Linux 5.14 lack the second.
constexpr int HUGE_PAGES = 14, PAGES_TO_WRITE = 23;

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

void ProvidePages(uint8_t *block, uint32_t size) {
    uintptr_t inPage = reinterpret_cast<uintptr_t>(block) & 0xFFF;
    syscall(SYS_madvise, block - inPage, size + inPage, HUGE_PAGES);
    syscall(SYS_madvise, block - inPage, size + inPage, PAGES_TO_WRITE);
}
