// What the rewritten sources ask: which mutant is switched on. At most one is.
#pragma once

#include <type_traits>

namespace Mutants {

constexpr int MOST = 1 << 16;

extern int gSwitched; // the mutant's number, 0 for none
extern volatile unsigned char *gReached;

inline bool Asked(int number) {
    gReached[number] = 1;
    return gSwitched == number;
}

// True when the mutant is switched on. Where the compiler wants a constant it gets the one of the unchanged
// source.
constexpr bool On(int number) {
    return __builtin_is_constant_evaluated() ? false : Asked(number);
}

// The value of a switch statement with two of its labels exchanged.
template <class T, class A, class B> constexpr T Relabelled(int number, T value, A label, B other) {
    if (!On(number))
        return value;
    return value == static_cast<T>(label)   ? static_cast<T>(other)
           : value == static_cast<T>(other) ? static_cast<T>(label)
                                            : value;
}

// The procedure fills a table anew. It is called as soon as a mutant is switched on.
bool WhenSwitched(void (*procedure)());

// Switches a mutant on for the rest of the process.
void Switch(int number);

// What is reached from now on is marked in memory that the process shares with its children.
void ShareReached();

} // namespace Mutants
