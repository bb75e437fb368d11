#include "Held.h"

#include "Fuzzers.h"

#include <errno.h>
#include <stdio_ext.h>
#include <stdlib.h>

namespace {

constexpr int MAX_HELD = 1024;
constexpr size_t LARGEST = static_cast<size_t>(4) << 20; // the program asks for the largest that it can get

struct Held {
    void *things[MAX_HELD];
    int count;
};
Held gBlocks;
Held gStreams;
unsigned gRefused; // blocks up to the one that is refused; 0 for none

void Hold(Held *held, void *thing) {
    if (held->count == MAX_HELD)
        Fail("more than 1024 are held", "blocks or streams");
    held->things[held->count++] = thing;
}

// The last one is the first to go as a rule.
void Release(Held *held, const void *thing) {
    for (int i = held->count - 1; i >= 0; i--)
        if (held->things[i] == thing) {
            held->things[i] = held->things[--held->count];
            return;
        }
}

bool IsRefused(size_t size) {
    bool refused = size > LARGEST || (gRefused > 0 && --gRefused == 0);
    if (refused)
        errno = ENOMEM;
    return refused;
}

} // namespace

void *HoldBlock(void *block) {
    if (block)
        Hold(&gBlocks, block);
    return block;
}

FILE *HoldStream(FILE *stream) {
    if (stream)
        Hold(&gStreams, stream);
    return stream;
}

void RefuseBlock(unsigned number) {
    gRefused = number;
}

void TakeBackHeld() {
    gRefused = 0;
    while (gStreams.count > 0)
        fclose(static_cast<FILE *>(gStreams.things[--gStreams.count]));
    while (gBlocks.count > 0)
        free(gBlocks.things[--gBlocks.count]);
}

extern "C" {

void *__wrap_malloc(size_t size) {
    return IsRefused(size) ? nullptr : HoldBlock(malloc(size));
}

void __wrap_free(void *block) {
    Release(&gBlocks, block);
    free(block);
}

FILE *__wrap_fdopen(int descriptor, const char *mode) {
    return HoldStream(fdopen(descriptor, mode));
}

FILE *__wrap_fmemopen(void *buffer, size_t size, const char *mode) {
    FILE *stream = IsRefused(size) ? nullptr : fmemopen(buffer, size, mode);
    if (stream)
        __fsetlocking(stream, FSETLOCKING_BYCALLER); // as standard output, which it stands for
    return HoldStream(stream);
}

int __wrap_fclose(FILE *stream) {
    Release(&gStreams, stream);
    return fclose(stream);
}
}
