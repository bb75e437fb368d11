#include "tools/capture/Resources.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "BasicLib/PhysMem.h"
#include "Common/FileLib.h"
#include "tools/capture/Pci.h"
#include "tools/capture/Sheet.h"

constexpr uint64_t MEMORY_END = 0x100000000;
constexpr uint32_t MOST_BORDERS = 1 << 18; // four of each function, and of thousands of ranges
constexpr uint64_t STEP = 0x10000;         // between pages that are tried where there is no map
constexpr const char *MEMORY_MAP = "/proc/iomem";

// Pages at which the kernel may begin to think otherwise.
static uint64_t *mBorders = nullptr;
static uint32_t mCount = 0;

static void AddBorder(uint64_t address) {
    if (address <= MEMORY_END && mCount < MOST_BORDERS)
        mBorders[mCount++] = address;
}

// Ranges share the pages in which they meet: what lies at both sides of those is tried apart from them.
static void AddRange(uint64_t first, uint64_t behind) {
    uint64_t mask = PAGE_4KB - 1;
    AddBorder(first & ~mask);
    AddBorder((first + mask) & ~mask);
    AddBorder(behind & ~mask);
    AddBorder((behind + mask) & ~mask);
}

static int Compare(const void *a, const void *b) {
    uint64_t left = *static_cast<const uint64_t *>(a);
    uint64_t right = *static_cast<const uint64_t *>(b);
    return left < right ? -1 : left > right;
}

// The kernel thinks otherwise from one page of this step on: error is what it thinks of the step's first one.
static void AddBorderWithin(uint64_t low, int error) {
    uint64_t high = low + STEP;
    while (high - low > PAGE_4KB) {
        uint64_t middle = (low + high) / 2;
        if (ProbePhysMem(static_cast<uint32_t>(middle)) == error)
            low = middle;
        else
            high = middle;
    }
    AddBorder(high);
}

// A simulated machine has no map.
static void AddSteps() {
    int before = ProbePhysMem(0);
    AddBorder(0);
    for (uint64_t at = STEP; at < MEMORY_END; at += STEP) {
        int error = ProbePhysMem(static_cast<uint32_t>(at));
        if (error != before)
            AddBorderWithin(at - STEP, before);
        before = error;
    }
    AddBorder(MEMORY_END);
}

static void AddMemoryMap() {
    char line[256];
    FILE *file = Fopen(MEMORY_MAP, "r");
    if (file == nullptr)
        AddSteps();
    while (file != nullptr && fgets(line, sizeof(line), file) != nullptr) {
        char *rest = nullptr;
        uint64_t first = strtoull(line, &rest, 16);
        if (*rest == '-')
            AddRange(first, strtoull(rest + 1, nullptr, 16) + 1);
    }
    if (file != nullptr)
        Fclose(file);
}

static void AddWindowPages() {
    uint32_t page = 0;
    for (uint32_t number = 0; NextWindowPage(&number, &page); ++number)
        AddRange(page, static_cast<uint64_t>(page) + PAGE_4KB);
}

static void PutRefusal(uint64_t first, uint64_t behind, int error) {
    if (error != 0)
        Put("refuse %llx %llx %s\n", static_cast<unsigned long long>(first),
            static_cast<unsigned long long>(behind - first), ErrorName(error));
}

void PutRefusals() {
    mBorders = static_cast<uint64_t *>(malloc(MOST_BORDERS * sizeof(uint64_t)));
    if (mBorders == nullptr)
        return Put("# missing: memory that the kernel refuses: no memory\n");
    AddMemoryMap();
    AddWindowPages();
    qsort(mBorders, mCount, sizeof(uint64_t), Compare);
    uint64_t begun = 0;
    int error = 0;
    for (uint32_t i = 0; i + 1 < mCount; ++i) {
        if (mBorders[i] == mBorders[i + 1])
            continue;
        int found = ProbePhysMem(static_cast<uint32_t>(mBorders[i]));
        if (found != error) {
            PutRefusal(begun, mBorders[i], error);
            begun = mBorders[i];
            error = found;
        }
    }
    if (mCount != 0)
        PutRefusal(begun, mBorders[mCount - 1], error);
    free(mBorders);
}

static void PutFile(const char *name, const char *path) {
    char line[256];
    FILE *file = Fopen(path, "r");
    if (file == nullptr)
        PutMissing(path, errno);
    while (file != nullptr && fgets(line, sizeof(line), file) != nullptr) {
        line[strcspn(line, "\n")] = 0;
        Put("# %s: %s\n", name, line);
    }
    if (file != nullptr)
        Fclose(file);
}

void PutResources() {
    Put("# --- resources\n");
    PutFile("iomem", MEMORY_MAP);
    PutFile("ioports", "/proc/ioports");
}
