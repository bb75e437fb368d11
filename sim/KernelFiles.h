// The kernel's files on the board: what its lines say that /proc, /sys and their like hold, and what they
// hold of every board (OwnFiles.h). What neither has is not there, whatever the machine has that runs the
// program.
#pragma once

#include "BoardFile.h"

void KernelFilesReset();

// True for a path below the kernel's folders, but for /proc/self, and for one that a line names.
bool IsKernelFile(const char *path);
// Writes what the file holds at this moment to the descriptor: 0 or the error of opening it.
int WriteKernelFile(const char *path, int descriptor);

// "file "PATH" "LINE"|ERROR" adds a line to a file, or makes it refuse to open; "file ADDRESS NAME" is
// memory's.
void FileLine(BoardLine *line);
// "file-bytes "PATH" OFFSET BYTE..."
void FileBytesLine(BoardLine *line);
