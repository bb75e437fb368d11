#include "Platform/MemSearch.h"

#include <cstring>

#include "BasicLib/PhysMem.h"

constexpr uint32_t SEARCH_PAGE = 0x1000;

// Pages that searches have loaded since one was restarted.
static uint32_t mPagesLoaded = 0;

// Bytes from pos on, up to the end of the page or of the range, that cannot begin a match.
static uint32_t SkipMismatches(const uint8_t *page, uint32_t pos, uint32_t length, char first) {
    uint32_t offset = pos % SEARCH_PAGE;
    uint32_t left = SEARCH_PAGE - offset;
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
    uint8_t page[SEARCH_PAGE] = {};
    while (pos < length && *p != 0) {
        if (mPagesLoaded == 0 || pos % SEARCH_PAGE == 0) {
            MemDump(start + mPagesLoaded * SEARCH_PAGE, SEARCH_PAGE, page);
            ++mPagesLoaded;
        }
        uint32_t skip = p == pattern ? SkipMismatches(page, pos, length, *p) : 0;
        if (skip != 0) {
            pos += skip;
            continue;
        }
        bool equal = page[pos % SEARCH_PAGE] == static_cast<uint8_t>(*p);
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
