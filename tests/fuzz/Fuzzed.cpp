#include "Fuzzed.h"

extern "C" {

// Nowhere in a build that counts edges otherwise.
extern uint8_t __start___sancov_cntrs __attribute__((visibility("hidden"), weak));
extern uint8_t __stop___sancov_cntrs __attribute__((visibility("hidden"), weak));
}

BoardWindow gWindow;

void FuzzedCounters(uint8_t **start, uint8_t **stop) {
    *start = &__start___sancov_cntrs;
    *stop = &__stop___sancov_cntrs;
}

// These come hundreds of times for each page that is copied: what need not be told leaves at once.
__attribute__((noinline)) static void TellLoad(const void *at, unsigned width) {
    if (!BoardBeforeLoad(at, width))
        FailBeyondMapping();
}

__attribute__((noinline)) static void TellStore(const void *at, unsigned width) {
    if (!BoardBeforeStore(at, width))
        FailBeyondMapping();
}

static void BeforeLoad(const void *at, unsigned width) {
    uintptr_t place = reinterpret_cast<uintptr_t>(at);
    if (place - gWindow.plain >= BOARD_PAGE && place - gWindow.start < gWindow.length)
        TellLoad(at, width);
}

static void BeforeStore(const void *at, unsigned width) {
    if (reinterpret_cast<uintptr_t>(at) - gWindow.start < gWindow.length)
        TellStore(at, width);
}

// The compiler has put these in front of all loads and stores of BasicLib/PhysMem.cpp.
extern "C" {

void __sanitizer_cov_load1(const void *at) {
    BeforeLoad(at, 1);
}

void __sanitizer_cov_load2(const void *at) {
    BeforeLoad(at, 2);
}

void __sanitizer_cov_load4(const void *at) {
    BeforeLoad(at, 4);
}

void __sanitizer_cov_load8(const void *at) {
    BeforeLoad(at, 8);
}

void __sanitizer_cov_load16(const void *at) {
    BeforeLoad(at, 16);
}

void __sanitizer_cov_store1(const void *at) {
    BeforeStore(at, 1);
}

void __sanitizer_cov_store2(const void *at) {
    BeforeStore(at, 2);
}

void __sanitizer_cov_store4(const void *at) {
    BeforeStore(at, 4);
}

void __sanitizer_cov_store8(const void *at) {
    BeforeStore(at, 8);
}

void __sanitizer_cov_store16(const void *at) {
    BeforeStore(at, 16);
}
}
