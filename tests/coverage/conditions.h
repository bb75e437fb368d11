// Records what the terms of a condition were each time it was evaluated. conditions.py includes this in its
// copy of the program's sources and puts the calls around each condition and each term.
//
// The records lie in a file that all processes map: children and those that die by a signal leave theirs,
// too. It is mapped at the start by bare system calls: the program's own calls stay as they are for a test
// that counts or fails them, and the descriptor is gone before the program looks at its own.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/mman.h>
#include <sys/syscall.h>

#include <fcntl.h>

namespace conditions {

inline long Call(long number, long a, long b, long c, long d = 0, long e = 0, long f = 0) {
    register long r10 __asm__("r10") = d;
    register long r8 __asm__("r8") = e;
    register long r9 __asm__("r9") = f;
    long result;
    __asm__ volatile("syscall"
                     : "=a"(result)
                     : "a"(number), "D"(a), "S"(b), "d"(c), "r"(r10), "r"(r8), "r"(r9)
                     : "rcx", "r11", "memory");
    return result;
}

// NULL where the file cannot be had, in a root of its own say.
inline uint8_t *MapRecords() {
    long file = Call(SYS_open, reinterpret_cast<long>(CONDITIONS_FILE), O_RDWR | O_CLOEXEC, 0);
    if (file < 0)
        return nullptr;
    long map = Call(SYS_mmap, 0, CONDITIONS_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    Call(SYS_close, file, 0, 0);
    return map < 0 && map > -4096 ? nullptr : reinterpret_cast<uint8_t *>(map);
}

inline uint8_t *gRecords = MapRecords();

// One evaluation: a digit to the base of three for each term, 0 for one that was not evaluated.
struct Evaluation {
    size_t digits = 0;

    constexpr bool Term(size_t place, bool value) {
        digits += place * (value ? 2 : 1);
        return value;
    }
};

// The condition whose records begin there: two bytes for each number, for the outcomes false and true.
template <size_t start, typename Condition> constexpr bool Decide(const Condition &condition) {
    Evaluation evaluation;
    bool outcome = condition(evaluation);
    if (!__builtin_is_constant_evaluated() && gRecords != nullptr)
        gRecords[start + 2 * evaluation.digits + outcome] = 1;
    return outcome;
}

} // namespace conditions
