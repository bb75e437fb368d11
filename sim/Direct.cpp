#include "Direct.h"

#include "Arena.h"
#include "Changes.h"
#include "Cpuid.h"
#include "Log.h"
#include "Memory.h"
#include "Mistake.h"
#include "ServedFiles.h"
#include "Trap.h"

#include <fcntl.h>
#include <linux/falloc.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#define EXPORTED __attribute__((visibility("default")))

namespace {

constexpr uint64_t PAGE = BOARD_PAGE;
constexpr int MAX_KEPT = 256;
constexpr long MAX_BLOCKS = 2 * (256 << 10); // of 512 bytes: 256 MiB
constexpr int LOOK_EVERY = 1000;

// A piece of the memory that holds something, whole pages.
struct Kept {
    uint64_t start, length;
    const uint8_t *bytes;
};

BoardWindow *gWindow;
Kept gKept[MAX_KEPT];
int gKeptCount;

struct Store {
    bool pending;
    uint64_t address;
    unsigned width;
};
Store gStore;

uint64_t PlaceOf(const volatile void *at) {
    return reinterpret_cast<uintptr_t>(at) - gWindow->start;
}

bool Allowed(const volatile void *at, unsigned width, int wanted) {
    uint64_t first, last;
    int protection;
    uintptr_t start = reinterpret_cast<uintptr_t>(at);
    return FindMapping(start, &first, &protection) && (protection & wanted) &&
           FindMapping(start + width - 1, &last, &protection);
}

void RestorePage(uint64_t page) {
    uint8_t *memory = MemoryAt(page, PAGE);
    for (int i = 0; i < gKeptCount; i++)
        if (page - gKept[i].start < gKept[i].length) {
            memcpy(memory, gKept[i].bytes + (page - gKept[i].start), PAGE);
            return;
        }
    memset(memory, 0, PAGE);
}

void RestoreAll() {
    syscall(SYS_fallocate, MemoryDescriptor(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0L, MEMORY_SIZE);
    for (int i = 0; i < gKeptCount; i++)
        memcpy(MemoryAt(gKept[i].start, gKept[i].length), gKept[i].bytes, gKept[i].length);
}

// Pages that were only looked at take room, too.
bool TakesTooMuch() {
    static int looks;
    struct stat status;
    return ++looks % LOOK_EVERY == 0 && syscall(SYS_fstat, MemoryDescriptor(), &status) == 0 &&
           status.st_blocks > MAX_BLOCKS;
}

} // namespace

bool IsDirectMapping(const void *at) {
    if (!gWindow || PlaceOf(at) >= MEMORY_SIZE)
        return false;
    BoardSettle();
    gWindow->plain = 0;
    return true;
}

EXPORTED void BoardDirect(BoardWindow *window) {
    gWindow = window;
    DirectStart();
    LogPause(true);
}

EXPORTED void BoardLogAccesses(int wanted) {
    LogPause(!wanted);
}

EXPORTED int BoardBeforeLoad(const volatile void *at, unsigned width) {
    uint64_t address = PlaceOf(at);
    BoardSettle();
    if (!Allowed(at, width, PROT_READ))
        return 0;
    if (AccessTrapped(address, width)) {
        LoadFromDevices(address, width);
        LogMemory(false, false, address, width);
    } else if (!PageTrapped(address))
        gWindow->plain = reinterpret_cast<uintptr_t>(at) & ~(PAGE - 1);
    return 1;
}

EXPORTED int BoardBeforeStore(const volatile void *at, unsigned width) {
    uint64_t address = PlaceOf(at);
    BoardSettle();
    if (!Allowed(at, width, PROT_WRITE))
        return 0;
    NoteChange(address, width);
    if (AccessTrapped(address, width))
        gStore = {true, address, width};
    return 1;
}

EXPORTED void BoardSettle() {
    if (!gStore.pending)
        return;
    gStore.pending = false;
    LogMemory(false, true, gStore.address, gStore.width);
    StoreToDevices(gStore.address, gStore.width);
}

EXPORTED void BoardCpuid(uint32_t leaf, uint32_t subleaf, uint32_t registers[4]) {
    AnswerCpuid(leaf, subleaf, registers);
}

EXPORTED int BoardServes(const char *path) {
    return IsServed(path);
}

EXPORTED int BoardMappings() {
    return MappingCount();
}

EXPORTED void BoardArea(int number, void **start, uint64_t *length) {
    ArenaArea(number, start, length);
}

EXPORTED void BoardKeepMemory() {
    long start = 0;
    gKeptCount = 0;
    ForgetChanges();
    KeepServedFiles();
    gWindow->start = reinterpret_cast<uintptr_t>(MemoryAt(0, MEMORY_SIZE));
    gWindow->length = MEMORY_SIZE;
    gWindow->plain = 0;
    while ((start = syscall(SYS_lseek, MemoryDescriptor(), start, SEEK_DATA)) >= 0) {
        long end = syscall(SYS_lseek, MemoryDescriptor(), start, SEEK_HOLE);
        uint64_t length = static_cast<uint64_t>(end - start);
        if (gKeptCount == MAX_KEPT)
            BoardFail("the memory's contents are in more than %d pieces", MAX_KEPT);
        uint8_t *bytes = static_cast<uint8_t *>(ArenaTake(length));
        memcpy(bytes, MemoryAt(static_cast<uint64_t>(start), length), length);
        gKept[gKeptCount++] = {static_cast<uint64_t>(start), length, bytes};
        start = end;
    }
}

EXPORTED void BoardTakeBackMemory() {
    const uint32_t *pages;
    int count = ChangedPages(&pages);
    gStore.pending = false;
    if (count == MAX_CHANGED || TakesTooMuch())
        RestoreAll();
    else
        for (int i = 0; i < count; i++)
            RestorePage(pages[i] * PAGE);
    ForgetChanges();
    TakeBackServedFiles();
}
