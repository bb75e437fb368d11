// The kernel's files that every board has of itself: its PCI functions, its CPUs and the module for MSRs.
#pragma once

#include <stddef.h>

// Writes what the file holds at this moment to the descriptor: 0, or ENOENT when it is none of these.
int WriteOwnFile(const char *path, int descriptor);

// Writes the whole text.
void WriteText(int descriptor, const char *text, size_t length);
