#include "Base/Arith.h"

uint64_t LShiftU64(uint64_t value, unsigned count) {
    return value << (count % 64);
}

uint64_t RShiftU64(uint64_t value, unsigned count) {
    return value >> (count % 64);
}

uint64_t MultU64x32(uint64_t a, uint32_t b) {
    return a * b;
}
