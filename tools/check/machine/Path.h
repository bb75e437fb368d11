// The programs that the shell finds.
#pragma once

#include <cstddef>

// True when the shell that hwreg calls finds a program of that name in PATH; puts where.
bool InPath(const char *program, char *where, size_t size);
