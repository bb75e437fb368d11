#include "State.h"

#include "Fuzzed.h"
#include "Fuzzers.h"
#include "sim/Board.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr uintptr_t PAGE = 4096;
constexpr int MAX_RANGES = 8;
constexpr int MAX_BOARDS = 16;
constexpr int FIRST_DESCRIPTOR = 300;
constexpr int FIRST_OF_BOARD = 200;
constexpr int MAX_CPU_NODES = 256;

// proc(5), /proc/PID/pagemap: eight bytes a page.
constexpr uint64_t PAGE_IS_PRESENT = static_cast<uint64_t>(1) << 63;
constexpr uint64_t PAGE_IS_OF_A_FILE = static_cast<uint64_t>(1) << 61; // and not the process's own copy
constexpr uintptr_t PAGES_AT_A_TIME = 512;
int gPageMap;

struct Range {
    uintptr_t start, end; // whole pages
};

// What ranges of memory hold, in a file. It is mapped there privately: so the kernel tells which pages have
// been written to since, and only these are copied back. A page that was once written to is copied from then
// on, which takes less time than to map it anew.
struct Snapshot {
    int file;
    const uint8_t *bytes; // of all ranges, one behind the other
    int count;
    Range ranges[MAX_RANGES];
};

struct Board {
    char name[32];
    Snapshot variables; // of the library, where those of the other boards are, too
    Snapshot storage;
    BoardWindow window;
};

Snapshot gProgram;
Snapshot gNoBoard;
const Snapshot *gInPlace; // of the board
int gFree;                // the lowest free descriptor of those that the board takes
Board gBoards[MAX_BOARDS];
int gBoardCount;

uintptr_t PageDown(uintptr_t address) {
    return address & ~(PAGE - 1);
}

uintptr_t PageUp(uintptr_t address) {
    return PageDown(address + PAGE - 1);
}

void AddRange(Snapshot *snapshot, uintptr_t start, uintptr_t end) {
    if (snapshot->count == MAX_RANGES)
        Fail("too many ranges", "state");
    if (start < end)
        snapshot->ranges[snapshot->count++] = {start, end};
}

struct Library {
    const char *name;
    Snapshot *snapshot;
};

// The writable segments, but for what the loader has closed after it had filled it in.
int AddSegments(dl_phdr_info *info, size_t, void *argument) {
    const Library *library = static_cast<const Library *>(argument);
    const char *slash = strrchr(info->dlpi_name, '/');
    if (strcmp(slash ? slash + 1 : info->dlpi_name, library->name) != 0)
        return 0;
    uintptr_t closed = 0;
    for (int i = 0; i < info->dlpi_phnum; i++)
        if (info->dlpi_phdr[i].p_type == PT_GNU_RELRO)
            closed = PageDown(info->dlpi_addr + info->dlpi_phdr[i].p_vaddr + info->dlpi_phdr[i].p_memsz);
    for (int i = 0; i < info->dlpi_phnum; i++) {
        const ElfW(Phdr) *header = &info->dlpi_phdr[i];
        if (header->p_type != PT_LOAD || !(header->p_flags & PF_W))
            continue;
        uintptr_t start = PageDown(info->dlpi_addr + header->p_vaddr);
        uintptr_t end = PageUp(info->dlpi_addr + header->p_vaddr + header->p_memsz);
        AddRange(library->snapshot, start < closed && closed <= end ? closed : start, end);
    }
    return 1;
}

void AddLibrary(Snapshot *snapshot, const char *name) {
    Library library = {name, snapshot};
    if (dl_iterate_phdr(AddSegments, &library) != 1)
        Fail("is not loaded", name);
}

// The kernel is called directly from here on: the functions for it are the board's, whose variables change.
void PutInPlace(const Snapshot *snapshot) {
    uint64_t offset = 0;
    for (int i = 0; i < snapshot->count; i++) {
        const Range *range = &snapshot->ranges[i];
        if (syscall(SYS_mmap, range->start, range->end - range->start, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_FIXED, snapshot->file, offset) == -1)
            Fail("cannot be put in place", "state");
        offset += range->end - range->start;
    }
}

void Take(Snapshot *snapshot) {
    int made = memfd_create("snapshot", MFD_CLOEXEC);
    snapshot->file = fcntl(made, F_DUPFD_CLOEXEC, FIRST_DESCRIPTOR);
    close(made);
    uintptr_t total = 0;
    for (int i = 0; i < snapshot->count; i++) {
        const Range *range = &snapshot->ranges[i];
        ssize_t length = static_cast<ssize_t>(range->end - range->start);
        // The sanitizer's write would see the redzones between the variables.
        if (syscall(SYS_write, snapshot->file, range->start, length) != length)
            Fail("cannot be kept", "state");
        total += static_cast<uintptr_t>(length);
    }
    long bytes = syscall(SYS_mmap, nullptr, total, PROT_READ, MAP_SHARED, snapshot->file, 0L);
    if (bytes == -1)
        Fail("cannot be mapped", "state");
    snapshot->bytes = reinterpret_cast<const uint8_t *>(bytes);
    PutInPlace(snapshot);
}

// By the instruction itself, as the sanitizer must not see it: between the variables are its redzones.
void Copy(void *to, const void *from, size_t count) {
    __asm__ volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(count) : : "memory");
}

void PutBackRange(const Range *range, const uint8_t *bytes) {
    uint64_t pages[PAGES_AT_A_TIME];
    for (uintptr_t at = range->start; at < range->end; at += PAGES_AT_A_TIME * PAGE) {
        uintptr_t left = (range->end - at) / PAGE;
        uintptr_t count = left < PAGES_AT_A_TIME ? left : PAGES_AT_A_TIME;
        if (syscall(SYS_pread64, gPageMap, pages, count * 8, at / PAGE * 8) != static_cast<long>(count * 8))
            Fail("cannot be read", "/proc/self/pagemap");
        for (uintptr_t i = 0; i < count; i++)
            if ((pages[i] & (PAGE_IS_PRESENT | PAGE_IS_OF_A_FILE)) == PAGE_IS_PRESENT)
                Copy(reinterpret_cast<void *>(at + i * PAGE), bytes + (at - range->start) + i * PAGE, PAGE);
    }
}

void PutBack(const Snapshot *snapshot) {
    const uint8_t *bytes = snapshot->bytes;
    for (int i = 0; i < snapshot->count; i++) {
        PutBackRange(&snapshot->ranges[i], bytes);
        bytes += snapshot->ranges[i].end - snapshot->ranges[i].start;
    }
}

void PutVariablesBack(const Snapshot *snapshot) {
    if (gInPlace == snapshot)
        PutBack(snapshot);
    else
        PutInPlace(snapshot);
    gInPlace = snapshot;
}

// The board moves its descriptors up to there, out of the way of the program.
int LowestFree() {
    int free = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, FIRST_OF_BOARD);
    close(free);
    return free;
}

// The board makes a file for a device when it is opened for the first time.
void OpenDevices() {
    close(open("/dev/mem", O_RDONLY | O_CLOEXEC));
    for (int cpu = 0; cpu < MAX_CPU_NODES; cpu++) {
        char path[40];
        snprintf(path, sizeof path, "/dev/cpu/%d/msr", cpu);
        int node = open(path, O_RDONLY | O_CLOEXEC);
        if (node >= 0)
            close(node);
    }
}

Board *NewBoard(const char *name) {
    char path[4096];
    if (gBoardCount == MAX_BOARDS)
        Fail("too many boards", name);
    Board *board = &gBoards[gBoardCount++];
    snprintf(board->name, sizeof board->name, "%s", name);
    snprintf(path, sizeof path, "%s/boards/%s.board", HWREG_FUZZ_FOLDER, name);
    PutVariablesBack(&gNoBoard);
    BoardLoad(path);
    OpenDevices();
    BoardKeepMemory();
    AddLibrary(&board->variables, "libhwboard.so");
    for (int i = 0; i < BOARD_AREAS; i++) {
        void *start;
        uint64_t length;
        BoardArea(i, &start, &length);
        uintptr_t at = reinterpret_cast<uintptr_t>(start);
        AddRange(&board->storage, at, PageUp(at + length));
    }
    Take(&board->storage);
    Take(&board->variables);
    board->window = gWindow;
    return board;
}

// A variable of the program that is not put back, to see that this is found.
struct LeftOut {
    void *place;
    size_t size;
    uint8_t value[64];
};
LeftOut gLeftOut;

void FindLeftOut(const char *name) {
    Dl_info found;
    void *extra;
    gLeftOut.place = dlsym(RTLD_DEFAULT, name);
    if (!gLeftOut.place || !dladdr1(gLeftOut.place, &found, &extra, RTLD_DL_SYMENT))
        Fail("is no variable of the program", name);
    gLeftOut.size = static_cast<const ElfW(Sym) *>(extra)->st_size;
    if (gLeftOut.size > sizeof gLeftOut.value)
        Fail("is too large", name);
}

} // namespace

void StateStart() {
    gPageMap = fcntl(open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC), F_DUPFD_CLOEXEC, FIRST_DESCRIPTOR);
    BoardDirect(&gWindow);
    AddLibrary(&gNoBoard, "libhwboard.so");
    Take(&gNoBoard);
    AddLibrary(&gProgram, "libhwreg_fuzzed.so");
    uint8_t *counters, *end; // they lie among the variables
    FuzzedCounters(&counters, &end);
    memset(counters, 0, static_cast<size_t>(end - counters));
    Take(&gProgram);
    const char *leftOut = getenv("HWREG_FUZZ_LEFT_OUT");
    gLeftOut.place = gLeftOut.value;
    if (leftOut)
        FindLeftOut(leftOut);
}

void StateBegin() {
    Copy(gLeftOut.value, gLeftOut.place, gLeftOut.size);
    PutBack(&gProgram);
    Copy(gLeftOut.place, gLeftOut.value, gLeftOut.size);
}

void LoadBoard(const char *name) {
    Board *board = gBoards;
    while (board < gBoards + gBoardCount && strcmp(board->name, name) != 0)
        board++;
    if (board == gBoards + gBoardCount)
        board = NewBoard(name);
    PutVariablesBack(&board->variables);
    PutBack(&board->storage);
    gWindow = board->window;
    gFree = LowestFree();
}

void StateEnd() {
    if (!gInPlace)
        return;
    BoardTakeBackMemory();
    if (LowestFree() != gFree)
        Fail("a descriptor was left open or closed", "the board");
}
