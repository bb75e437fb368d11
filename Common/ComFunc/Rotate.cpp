#include "Common/ComFunc/Rotate.h"

#include "Base/Memory.h"

int LoopShiftRight(void *value, uint8_t size, uint32_t count) {
    if (value == nullptr || size < 1 || size > 3)
        return 0;
    uint32_t bytes = 1u << (size - 1);
    uint32_t width = 8 * bytes;
    uint64_t bits = 0;
    Memcpy(&bits, value, bytes);
    bits |= bits << width; // twice in a row: every rotation is a window on it
    bits >>= count % width;
    Memcpy(value, &bits, bytes);
    return 1;
}

int LoopShiftLeft(void *value, uint8_t size, uint32_t count) {
    // 32 is a multiple of every width, so left by count is right by what is missing to 32.
    return LoopShiftRight(value, size, 32 - count % 32);
}
