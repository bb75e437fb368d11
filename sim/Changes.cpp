#include "Changes.h"

namespace {

constexpr uint64_t PAGE = 4096;

bool gDirect;
uint32_t gChanged[MAX_CHANGED];
int gChangedCount;

} // namespace

void DirectStart() {
    gDirect = true;
}

bool Direct() {
    return gDirect;
}

void NoteChange(uint64_t address, uint64_t length) {
    if (!gDirect || length == 0)
        return;
    uint64_t last = (address + length - 1) / PAGE;
    for (uint64_t page = address / PAGE; page <= last && gChangedCount < MAX_CHANGED; page++)
        if (gChangedCount == 0 || gChanged[gChangedCount - 1] != page)
            gChanged[gChangedCount++] = static_cast<uint32_t>(page);
}

int ChangedPages(const uint32_t **pages) {
    *pages = gChanged;
    return gChangedCount;
}

void ForgetChanges() {
    gChangedCount = 0;
}
