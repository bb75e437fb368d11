// The files that make a board: board files themselves, and images that they name.
#pragma once

#include "BoardFile.h"

#include <stddef.h>

// A name as seen from a folder, and from that of the file which the line stands in.
const char *PathIn(const char *folder, const char *name);
const char *PathBeside(const BoardLine *line, const char *name);

// Opens a regular file that is neither empty nor larger than `maximum`, and gives its length.
int OpenContents(const BoardLine *line, const char *path, uint64_t maximum, uint64_t *length);
// Reads the whole of it and closes it.
void ReadContents(const BoardLine *line, int descriptor, const char *path, void *contents, uint64_t length);

// A number for all that has been read: another board, or one that was changed, has another one.
uint64_t ContentsNumber();
