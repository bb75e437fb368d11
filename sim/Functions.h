// Where the functions of the program begin and end: by the table for unwinding the stack, which is there in a
// stripped program, too. Linux Standard Base Core 5.0, 10.6 (.eh_frame, .eh_frame_hdr).
#pragma once

#include <link.h>
#include <stddef.h>
#include <stdint.h>

// An executable or a library that lies in memory.
struct LoadedFile {
    uintptr_t base;
    const ElfW(Phdr) * headers;
    size_t headerCount;
};

// The program itself, whatever it was linked with.
LoadedFile MainProgram();

// A function's code; empty where none is known.
struct CodeRange {
    const uint8_t *start, *end;
};

// The table, sorted by addresses; no rows where there is none.
struct FunctionTable {
    const uint8_t *start;
    size_t count;
};

FunctionTable FindFunctionTable(const LoadedFile *file);
CodeRange FunctionAt(const FunctionTable *table, size_t row);
// The function to which the byte belongs.
CodeRange FunctionAround(const FunctionTable *table, const uint8_t *byte);
