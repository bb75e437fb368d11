// A command line of hwreg for each of its forms, to tell what works on a machine and what does not.
#pragma once

#include <cstdint>

struct CommandLine {
    const char *words; // with a blank between them
};

// In the order of docs/commands.txt; how many.
uint32_t CommandLines(const CommandLine **list);
