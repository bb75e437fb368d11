// Variable arguments handed from one procedure to another.
#pragma once

#include <cstdarg>

// A va_list behind a pointer, so that a procedure can take arguments from its caller's list.
struct ArgList {
    va_list args;
};
