#include "tools/check/lines/Pages.h"

#include <cstring>

#include "BasicLib/PhysMem.h"
#include "tools/check/machine/MemoryDoor.h"

constexpr uint32_t MOST_LOOKS = 16384; // 64 MiB
constexpr uint32_t LAST_PAGE = 0xFFFFF000;

static void JudgePage(Line *line, Verdict verdict, int status, uint32_t page, int error) {
    FindingName because = ReasonOfPage(page, error);
    Judge(line, verdict, status, because);
    const char *found = FindingOf(because)->found;
    Why(line, "the page at %Xh cannot be mapped (%s)%s%s", page, strerror(error), *found == 0 ? "" : ": ",
        found);
}

bool JudgeAccess(Line *line, uint32_t address, AccessWidth width, uint32_t bit) {
    if (MemoryError() != 0) {
        JudgeValue(line, VERDICT_REFUSED, ReasonOfPage(address, MemoryError()), width, bit, 0xFFFFFFFF);
        return true;
    }
    int error = ProbePhysAccess(address);
    if (error == 0)
        return false;
    uint32_t page = address & LAST_PAGE;
    bool next = PageError(page) == 0;
    bool isByte = width == ACCESS_BYTE || (width == ACCESS_BIT && bit < 8);
    JudgeValue(line, VERDICT_REFUSED, FINDING_NONE, width, bit, isByte ? 0xFF : 0xFFFF);
    int status = line->answer->status;
    if (next && page == LAST_PAGE) {
        Judge(line, VERDICT_REFUSED, status, FINDING_STRICT_DEVMEM);
        Why(line, "an access maps the page behind its own, too, and the one at 4 GiB is refused: %s",
            strerror(error));
    } else {
        JudgePage(line, VERDICT_REFUSED, status, next ? page + PAGE_4KB : page, error);
        if (next)
            Caution(
                line,
                "the page itself can be mapped, but an access takes the one behind it, too: /RF does not");
    }
    return true;
}

// What there is of a range.
struct Looked {
    uint32_t good, refused;
    uint32_t page; // the first one that is refused
    int error;
};

static Looked LookAt(uint32_t address, uint32_t length) {
    Looked looked = {0, 0, 0, 0};
    uint64_t end = static_cast<uint64_t>(address) + length;
    uint64_t pages = (end - (address & LAST_PAGE) + PAGE_4KB - 1) / PAGE_4KB;
    uint64_t step = (pages / MOST_LOOKS + 1) * PAGE_4KB;
    for (uint64_t page = address & LAST_PAGE; page < end && page <= LAST_PAGE; page += step) {
        int error = PageError(static_cast<uint32_t>(page));
        if (error == 0) {
            ++looked.good;
        } else if (looked.refused++ == 0) {
            looked.page = static_cast<uint32_t>(page);
            looked.error = error;
        }
    }
    return looked;
}

bool JudgeCopy(Line *line, uint32_t address, uint32_t length, int status, uint8_t *filler) {
    bool noDevice = MemoryError() != 0;
    *filler = noDevice ? 0 : 0xFF;
    if (noDevice) {
        Judge(line, VERDICT_REFUSED, status, ReasonOfPage(address, MemoryError()));
        return true;
    }
    Looked looked = LookAt(address, length);
    if (looked.refused == 0)
        return false;
    JudgePage(line, looked.good == 0 ? VERDICT_REFUSED : VERDICT_OTHER, status, looked.page, looked.error);
    Shows(line, "FFh in place of the bytes of %u of %u pages that were looked at", looked.refused,
          looked.good + looked.refused);
    return looked.good == 0;
}
