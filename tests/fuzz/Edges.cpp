// In place of libFuzzer, where edges are counted: runs the fuzzer on inputs that there are, and tells of each
// edge whether one of them took it. Compiled without optimization an edge is one of the source's.
//
//   hwreg_fuzz NAME OUT FILE...    OUT gets a line for each edge: library, offset in it, 0 or 1
#include <dlfcn.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "Fuzzers.h"

constexpr uint32_t MOST_EDGES = 1 << 17;
constexpr size_t MOST_BYTES = 1 << 20;

// Of an edge: the code behind it. The guards in the libraries hold the edges' numbers, from 1 on.
struct EdgeRow {
    uintptr_t place;
    bool taken;
};
static EdgeRow gEdges[MOST_EDGES];
static uint32_t gGuardCount;
static uint32_t gPlaceCount;

extern "C" {

int LLVMFuzzerInitialize(int *argc, char ***argv);
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t length);
size_t LLVMFuzzerMutate(uint8_t *bytes, size_t length, size_t most);

// Nobody asks for it here.
size_t LLVMFuzzerMutate(uint8_t *, size_t length, size_t) {
    return length;
}

// Each source of a library calls these two with the library's whole range.
void __sanitizer_cov_trace_pc_guard_init(uint32_t *start, uint32_t *stop) {
    if (start == stop || *start != 0)
        return;
    if (static_cast<size_t>(stop - start) >= MOST_EDGES - gGuardCount)
        Fail("more than fit", "edges");
    for (; start < stop; start++)
        *start = ++gGuardCount;
}

void __sanitizer_cov_pcs_init(const uintptr_t *start, const uintptr_t *stop) {
    for (; start < stop && gPlaceCount < gGuardCount; start += 2)
        gEdges[++gPlaceCount].place = *start;
}

void __sanitizer_cov_trace_pc_guard(const uint32_t *guard) {
    gEdges[*guard].taken = true;
}
}

static void RunFile(const char *path) {
    static uint8_t bytes[MOST_BYTES];
    int file = open(path, O_RDONLY | O_CLOEXEC);
    ssize_t length = file < 0 ? -1 : read(file, bytes, sizeof bytes);
    if (length < 0)
        Fail("cannot be read", path);
    close(file);
    uint8_t *exact = static_cast<uint8_t *>(malloc(static_cast<size_t>(length) + 1));
    memcpy(exact, bytes, static_cast<size_t>(length));
    LLVMFuzzerTestOneInput(exact, static_cast<size_t>(length));
    free(exact);
}

static void Tell(const char *path) {
    FILE *out = fopen(path, "w");
    if (!out)
        Fail("cannot be written", path);
    for (uint32_t i = 1; i <= gPlaceCount; i++) {
        Dl_info library;
        if (dladdr(reinterpret_cast<const void *>(gEdges[i].place), &library) != 0)
            fprintf(out, "%s %zx %d\n", library.dli_fname,
                    gEdges[i].place - reinterpret_cast<uintptr_t>(library.dli_fbase), gEdges[i].taken);
    }
    if (fclose(out) != 0)
        Fail("cannot be written", path);
}

int main(int argc, char **argv) {
    if (argc < 3)
        Fail("expected: NAME OUT FILE...", "arguments");
    LLVMFuzzerInitialize(&argc, &argv);
    for (int i = 2; i < argc; i++)
        RunFile(argv[i]);
    Tell(argv[1]);
    _exit(0);
}
