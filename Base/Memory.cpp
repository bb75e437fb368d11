#include "Base/Memory.h"

#include <cstdlib>
#include <cstring>

void *Malloc(size_t size) {
    return malloc(size);
}

void *RTMalloc(size_t size) {
    return malloc(size);
}

void Free(void *block) {
    free(block);
}

static uint64_t Load64(const int8_t *p) {
    uint64_t value;
    memcpy(&value, p, sizeof(value));
    return value;
}

int Memcmp(const void *a, const void *b, size_t size) {
    const int8_t *left = static_cast<const int8_t *>(a);
    const int8_t *right = static_cast<const int8_t *>(b);
    size_t i = 0;
    while (size - i >= 8 && Load64(left + i) == Load64(right + i))
        i += 8;
    for (; i < size; ++i) {
        if (left[i] != right[i])
            return left[i] - right[i];
    }
    return 0;
}

uint16_t Load16(const void *place) {
    uint16_t value;
    memcpy(&value, place, sizeof(value));
    return value;
}

uint32_t Load32(const void *place) {
    uint32_t value;
    memcpy(&value, place, sizeof(value));
    return value;
}

void *Memset(void *destination, int value, size_t size) {
    return size == 0 ? destination : memset(destination, value, size);
}

void *Memcpy(void *destination, const void *source, size_t size) {
    return size == 0 ? destination : memcpy(destination, source, size);
}
