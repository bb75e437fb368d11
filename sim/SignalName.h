// Signals by name.
#pragma once

#include <stdlib.h>
#include <string.h>

// The number of "SIGTERM", or of "SIG34" for one that has no name; 0 for anything else.
inline int SignalOfName(const char *name) {
    constexpr int last = 64;
    if (strncmp(name, "SIG", 3) != 0)
        return 0;
    for (int number = 1; number <= last; number++) {
        const char *known = sigabbrev_np(number);
        if (known && strcmp(known, name + 3) == 0)
            return number;
    }
    char *end;
    unsigned long number = strtoul(name + 3, &end, 10);
    return *end == 0 && number <= last ? static_cast<int>(number) : 0;
}
