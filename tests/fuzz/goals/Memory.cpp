// memory: the search over physical memory page by page, on its own and going on behind a match. Asserted: the
// places of a search without going back over what was loaded, as the header tells it: pages are counted by
// the process, and the page that a call begins within is empty.
#include <stdlib.h>
#include <string.h>

#include "BasicLib/PhysMem.h"
#include "Goal.h"
#include "Machine.h"
#include "Models.h"
#include "Platform/MemSearch.h"

namespace {

constexpr uint32_t BASE = 0xC0000;
constexpr uint32_t PAGES = 5;
constexpr uint32_t AREA_BYTES = PAGES * PAGE_4KB;
constexpr uint32_t MOST_CALLS = 4;
constexpr size_t MOST_PATTERN = 6;

alignas(4096) uint8_t gBytes[AREA_BYTES];
uint32_t gPagesLoaded; // as the process counts them

// What a call sees from position 0 on: nothing before its first page.
struct Seen {
    uint8_t bytes[AREA_BYTES + PAGE_4KB];
};
Seen gSeen;

uint8_t ByteAt(uint32_t address) {
    return address - BASE < AREA_BYTES ? gBytes[address - BASE] : 0xFF;
}

void LoadPage(uint32_t start, uint32_t position) {
    uint32_t from = start + gPagesLoaded * PAGE_4KB;
    for (uint32_t i = 0; i < PAGE_4KB; i++)
        gSeen.bytes[position / PAGE_4KB * PAGE_4KB + i] = ByteAt(from + i);
    gPagesLoaded++;
}

// The search, from the pages that it has to load.
uint64_t Model(uint32_t start, uint32_t length, const char *pattern, uint32_t from) {
    memset(&gSeen, 0, sizeof gSeen);
    if (from >= length || *pattern == 0)
        return *pattern == 0 ? from : NOT_THERE;
    uint64_t found = NOT_THERE;
    uint32_t at = from;
    uint32_t begins = from;
    while (at < length && found == NOT_THERE) {
        if (gPagesLoaded == 0 || at % PAGE_4KB == 0)
            LoadPage(start, at);
        uint32_t end = (at / PAGE_4KB + 1) * PAGE_4KB;
        end = end < length ? end : length;
        found = FindWithoutGoingBack(gSeen.bytes, end, reinterpret_cast<const uint8_t *>(pattern),
                                     strlen(pattern), begins);
        at = end;
    }
    return found;
}

void PutPattern(const char *pattern, Input *input) {
    uint32_t place = TakeBelow(input, AREA_BYTES);
    if (place % 4 == 0) // at a border
        place = place / PAGE_4KB * PAGE_4KB - TakeByte(input) % 4;
    for (size_t i = 0; pattern[i] && place + i < AREA_BYTES; i++)
        gBytes[place + i] = static_cast<uint8_t>(pattern[i]);
}

// Calls that begin anew (1), at the front but with the pages counted on (2), or behind the last match (0).
void CheckCall(uint32_t start, uint32_t length, const char *pattern, uint32_t restart, uint32_t *position) {
    uint32_t from = restart != 0 ? 0 : *position;
    if (restart == 1)
        gPagesLoaded = 0;
    uint64_t found = Model(start, length, pattern, from);
    EFI_STATUS status = SearchFromMemReadByte(start, length, pattern, position, restart);
    Expect(*position == (found == NOT_THERE ? 0xFFFFFFFF : found), "the place of the match");
    EFI_STATUS expected = found == NOT_THERE ? EFI_NOT_FOUND : found < length ? EFI_SUCCESS : EFI_ABORTED;
    Expect(status == expected, "a match is told from one at the end of the range");
}

} // namespace

void FuzzMemory(Input input) {
    const Machine none = {};
    StartMachine(&none);
    AddMemory(BASE, gBytes, AREA_BYTES);
    memset(gBytes, TakeByte(&input) & 1 ? 'a' : 0, sizeof gBytes);
    char *pattern = TakeText(&input, MOST_PATTERN);
    for (char *at = pattern; *at; at++)
        *at = "ab_"[static_cast<uint8_t>(*at) % 3];
    uint32_t start = BASE + TakeBelow(&input, 3) * (TakeByte(&input) & 1 ? PAGE_4KB : 0x123);
    uint32_t length = Take16(&input) % AREA_BYTES;
    for (uint32_t copies = TakeByte(&input) % 4; copies > 0; copies--)
        PutPattern(pattern, &input);
    uint32_t position = 0;
    CheckCall(start, length, pattern, 1, &position);
    for (uint32_t calls = TakeByte(&input) % MOST_CALLS; calls > 0; calls--)
        CheckCall(start, length, pattern, TakeByte(&input) % 4 == 3 ? 2 : 0, &position);
    Expect(SearchFromMemReadByte(start, length, nullptr, &position, 0) == EFI_INVALID_PARAMETER,
           "no pattern");
    free(pattern);
    StopMachine();
}
