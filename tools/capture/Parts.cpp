#include "tools/capture/Parts.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "Base/Memory.h"
#include "BasicLib/PhysMem.h"
#include "Platform/SmbiosTable.h"
#include "tools/capture/Sheet.h"

constexpr uint64_t MEMORY_END = 0x100000000;
constexpr uint64_t MOST_BYTES = 256 << 20; // of all parts: firmware may say anything

static MemoryPart *mFirst = nullptr;
static MemoryPart **mLast = &mFirst;
static uint64_t mTaken = 0;

int ReadPhysical(uint32_t start, uint32_t length, uint8_t *buffer) {
    uint8_t page[PAGE_4KB];
    for (uint32_t done = 0; done < length;) {
        uint32_t offset = (start + done) % PAGE_4KB;
        uint32_t count = PAGE_4KB - offset;
        if (count > length - done)
            count = length - done;
        if (Dump_PhysMem(start + done, page, PAGE_4KB) == 0)
            return errno == 0 ? ENODEV : errno;
        memcpy(buffer + done, page + offset, count);
        done += count;
    }
    return 0;
}

static MemoryPart *Append(uint32_t start, uint32_t length, const uint8_t *bytes, const char *title) {
    MemoryPart *part = static_cast<MemoryPart *>(Malloc(sizeof(MemoryPart)));
    uint8_t *copy = static_cast<uint8_t *>(Malloc(length + SMBIOS_GUARD));
    if (part == nullptr || copy == nullptr) {
        Free(part);
        Free(copy);
        PutMissing(title, ENOMEM);
        return nullptr;
    }
    memcpy(copy, bytes, length);
    memset(copy + length, 0, SMBIOS_GUARD);
    *part = {start, length, copy, "", nullptr};
    snprintf(part->title, sizeof(part->title), "%s", title);
    *mLast = part;
    mLast = &part->next;
    return part;
}

static void PutRefused(uint32_t start, uint32_t last, const char *title, int error) {
    Put("# missing: memory %x-%x, %s: %s\n", start, last, title, strerror(error));
}

// The bytes from at on that lie in pages which all can be read, or all cannot; the error in *error.
static uint32_t RunOfPages(uint32_t at, uint32_t length, uint8_t *buffer, int *error) {
    uint32_t run = 0;
    *error = 0;
    while (run < length) {
        uint32_t count = PAGE_4KB - (at + run) % PAGE_4KB;
        if (count > length - run)
            count = length - run;
        int found = ReadPhysical(at + run, count, buffer + run);
        if (run != 0 && found != *error)
            return run;
        *error = found;
        run += count;
    }
    return run;
}

static MemoryPart *AddRuns(uint32_t start, uint32_t length, uint8_t *buffer, const char *title) {
    MemoryPart *first = nullptr;
    for (uint32_t done = 0; done < length;) {
        int error;
        uint32_t run = RunOfPages(start + done, length - done, buffer, &error);
        if (error != 0)
            PutRefused(start + done, start + done + (run - 1), title, error);
        MemoryPart *part = error == 0 ? Append(start + done, run, buffer, title) : nullptr;
        first = first == nullptr ? part : first;
        done += run;
    }
    return first;
}

MemoryPart *AddPart(uint32_t start, uint64_t length, const char *title, ...) {
    char text[PART_TITLE];
    va_list args;
    va_start(args, title);
    vsnprintf(text, sizeof(text), title, args);
    va_end(args);
    if (length > MEMORY_END - start)
        length = MEMORY_END - start;
    if (length == 0 || mTaken + length > MOST_BYTES) {
        if (length != 0)
            PutRefused(start, static_cast<uint32_t>(start + length - 1), text, EFBIG);
        return nullptr;
    }
    mTaken += length;
    uint8_t *buffer = static_cast<uint8_t *>(Malloc(length));
    if (buffer == nullptr) {
        PutRefused(start, static_cast<uint32_t>(start + length - 1), text, ENOMEM);
        return nullptr;
    }
    MemoryPart *part = AddRuns(start, static_cast<uint32_t>(length), buffer, text);
    Free(buffer);
    return part;
}

MemoryPart *FirstPart() {
    return mFirst;
}

void PatchParts(uint32_t address, const uint8_t *bytes, uint32_t length) {
    for (MemoryPart *part = mFirst; part != nullptr; part = part->next) {
        for (uint32_t i = 0; i < length; ++i) {
            uint32_t offset = address + i - part->start;
            if (address + i >= part->start && offset < part->length)
                part->bytes[offset] = bytes[i];
        }
    }
}

void PutParts() {
    for (MemoryPart *part = mFirst; part != nullptr; part = part->next) {
        Put("# %s\n", part->title);
        PutMemory(part->start, part->bytes, part->length);
    }
}
