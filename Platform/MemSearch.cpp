#include "Platform/MemSearch.h"

#include <cstring>

#include "BasicLib/PhysMem.h"

// Pages that searches have loaded since one was restarted.
static uint32_t mPagesLoaded = 0;

// Bytes from pos on, up to the end of the page or of the range, that cannot begin a match.
static uint32_t SkipMismatches(const uint8_t *page, uint32_t pos, uint32_t length, char first) {
    uint32_t offset = pos % PAGE_4KB;
    uint32_t left = PAGE_4KB - offset;
    if (left > length - pos)
        left = length - pos;
    const void *found = memchr(page + offset, first, left);
    if (found == nullptr)
        return left;
    return static_cast<uint32_t>(static_cast<const uint8_t *>(found) - (page + offset));
}

EFI_STATUS SearchFromMemReadByte(uint32_t start, uint32_t length, const char *pattern, uint32_t *position,
                                 uint32_t restart) {
    if (restart == 1)
        mPagesLoaded = 0;
    if (pattern == nullptr)
        return EFI_INVALID_PARAMETER;
    uint32_t pos = restart != 0 ? 0 : *position;
    const char *p = pattern;
    uint8_t page[PAGE_4KB] = {};
    while (pos < length && *p != 0) {
        if (mPagesLoaded == 0 || pos % PAGE_4KB == 0) {
            MemDump(start + mPagesLoaded * PAGE_4KB, PAGE_4KB, page);
            ++mPagesLoaded;
        }
        uint32_t skip = p == pattern ? SkipMismatches(page, pos, length, *p) : 0;
        if (skip != 0) {
            pos += skip;
            continue;
        }
        bool equal = page[pos % PAGE_4KB] == static_cast<uint8_t>(*p);
        p = equal ? p + 1 : pattern;
        ++pos;
    }
    if (*p != 0) {
        *position = 0xFFFFFFFF;
        return EFI_NOT_FOUND;
    }
    *position = pos;
    return length > pos ? EFI_SUCCESS : EFI_ABORTED;
}
