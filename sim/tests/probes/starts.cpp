// Shows where the instructions of a file's functions begin: `starts FILE`. A line for each function, in
// hexadecimal: its begin, its end, and where its instructions begin; "unknown" where one of them is not
// known.
#include "sim/Encoding.h"
#include "sim/Functions.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>

// The file as it is: its addresses in memory are told by the segments, which here lie one after the other in
// the file.
static const uint8_t *MapFile(const char *path, size_t *size) {
    struct stat status;
    int descriptor = open(path, O_RDONLY);
    if (descriptor < 0 || fstat(descriptor, &status) != 0)
        return nullptr;
    *size = static_cast<size_t>(status.st_size);
    void *at = mmap(nullptr, *size, PROT_READ, MAP_PRIVATE, descriptor, 0);
    return at == MAP_FAILED ? nullptr : static_cast<const uint8_t *>(at);
}

// Lays the segments out as the loader does.
static uint8_t *Load(const uint8_t *file, const ElfW(Phdr) * headers, size_t count) {
    uintptr_t end = 0;
    for (size_t i = 0; i < count; i++)
        if (headers[i].p_type == PT_LOAD && headers[i].p_vaddr + headers[i].p_memsz > end)
            end = headers[i].p_vaddr + headers[i].p_memsz;
    void *at = mmap(nullptr, end, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (at == MAP_FAILED)
        return nullptr;
    uint8_t *base = static_cast<uint8_t *>(at);
    for (size_t i = 0; i < count; i++)
        if (headers[i].p_type == PT_LOAD)
            memcpy(base + headers[i].p_vaddr, file + headers[i].p_offset, headers[i].p_filesz);
    return base;
}

static void ShowFunction(const CodeRange *function, const uint8_t *base) {
    printf("%lx %lx", static_cast<unsigned long>(function->start - base),
           static_cast<unsigned long>(function->end - base));
    unsigned length;
    for (const uint8_t *at = function->start; at < function->end; at += length) {
        Encoding encoding;
        length = InstructionLength(at, function->end, &encoding);
        if (length == 0) {
            printf(" unknown %lx", static_cast<unsigned long>(at - base));
            break;
        }
        printf(" %lx", static_cast<unsigned long>(at - base));
    }
    printf("\n");
}

int main(int argc, char **argv) {
    size_t size;
    const uint8_t *file = argc == 2 ? MapFile(argv[1], &size) : nullptr;
    if (!file)
        return 1;
    const ElfW(Ehdr) *header = reinterpret_cast<const ElfW(Ehdr) *>(file);
    const ElfW(Phdr) *headers = reinterpret_cast<const ElfW(Phdr) *>(file + header->e_phoff);
    const uint8_t *base = Load(file, headers, header->e_phnum);
    if (!base)
        return 1;
    LoadedFile loaded = {reinterpret_cast<uintptr_t>(base), headers, header->e_phnum};
    FunctionTable table = FindFunctionTable(&loaded);
    for (size_t i = 0; i < table.count; i++) {
        CodeRange function = FunctionAt(&table, i);
        if (function.start < function.end)
            ShowFunction(&function, base);
    }
    return 0;
}
