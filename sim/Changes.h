// Whether accesses arrive by calls (Direct.h), and which pages of the memory have changed since they were
// kept.
#pragma once

#include <stdint.h>

void DirectStart();
bool Direct();

// Nothing is noted before DirectStart.
void NoteChange(uint64_t address, uint64_t length);
constexpr int MAX_CHANGED = 4096;
// Numbers of pages, some more than once; MAX_CHANGED of them: and others.
int ChangedPages(const uint32_t **pages);
void ForgetChanges();
