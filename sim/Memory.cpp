#include "Memory.h"

#include "Arena.h"
#include "Changes.h"
#include "Contents.h"
#include "Lies.h"
#include "Log.h"
#include "Mistake.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/falloc.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr uint64_t PAGE = 4096;
constexpr uint64_t MAX_CONTENTS = static_cast<uint64_t>(256) << 20; // that a board file may give
constexpr int MAX_RANGES = 512;
constexpr int MAX_MAPPINGS = 1024;

enum RangeKind { RANGE_DEVICE, RANGE_WATCHED, RANGE_REFUSED };

struct Range {
    RangeKind kind;
    uint64_t start, end;
    MemoryReader read;
    MemoryWriter write;
    void *device;
    int error; // RANGE_REFUSED
    bool syncOnly;
};

struct Mapping {
    uintptr_t at;
    size_t length;
    uint64_t address;
    int protection;
};

int gMemoryDescriptor = -1;
bool gMemoryNamed;
uint8_t *gMemory;
uint64_t gContents;
Range gRanges[MAX_RANGES];
int gRangeCount;
Mapping gMappings[MAX_MAPPINGS];
int gMappingCount;

uint64_t PageDown(uint64_t address) {
    return address & ~(PAGE - 1);
}

uint64_t PageUp(uint64_t address) {
    return PageDown(address + PAGE - 1);
}

Range *AddRange(RangeKind kind, uint64_t start, uint64_t length) {
    if (gRangeCount == MAX_RANGES)
        BoardFail("more than %d memory ranges", MAX_RANGES);
    Range *range = &gRanges[gRangeCount++];
    *range = {kind, start, start + length, nullptr, nullptr, nullptr, 0, false};
    return range;
}

bool Touches(const Range *range, uint64_t start, uint64_t end) {
    return range->start < end && start < range->end;
}

const Range *DeviceAt(uint64_t address) {
    for (int i = gRangeCount - 1; i >= 0; i--)
        if (gRanges[i].kind == RANGE_DEVICE && Touches(&gRanges[i], address, address + 1))
            return &gRanges[i];
    return nullptr;
}

// The bytes from address on that one device sees in one go: within one aligned dword and within its range.
unsigned PieceLength(const Range *range, uint64_t address, uint64_t end) {
    uint64_t last = (address | 3) + 1;
    if (last > end)
        last = end;
    unsigned count = 1;
    while (address + count < last && DeviceAt(address + count) == range)
        count++;
    return count;
}

Mapping *MappingOf(uintptr_t at) {
    for (int i = gMappingCount - 1; i >= 0; i--)
        if (at >= gMappings[i].at && at - gMappings[i].at < gMappings[i].length)
            return &gMappings[i];
    return nullptr;
}

void AddMapping(const Mapping *mapping) {
    if (gMappingCount == MAX_MAPPINGS)
        BoardFail("more than %d mappings of /dev/mem are held", MAX_MAPPINGS);
    gMappings[gMappingCount++] = *mapping;
}

bool IsSync(int descriptor) {
    return (syscall(SYS_fcntl, descriptor, F_GETFL) & O_SYNC) == O_SYNC;
}

} // namespace

static void OpenMemory(const char *path) {
    if (gMemory)
        syscall(SYS_munmap, gMemory, MEMORY_SIZE);
    if (gMemoryDescriptor >= 0)
        syscall(SYS_close, gMemoryDescriptor);
    int opened = path ? static_cast<int>(
                            syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666))
                      : static_cast<int>(syscall(SYS_memfd_create, "board-memory", MFD_CLOEXEC));
    gMemoryDescriptor = MoveDescriptorHigh(opened);
    if (gMemoryDescriptor < 0 || syscall(SYS_ftruncate, gMemoryDescriptor, MEMORY_SIZE) != 0)
        BoardFail("%s: the memory file cannot be made", path ? path : "memfd");
    long at = syscall(SYS_mmap, nullptr, MEMORY_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE,
                      gMemoryDescriptor, 0L);
    if (at == -1)
        BoardFail("the board's memory cannot be mapped");
    gMemory = reinterpret_cast<uint8_t *>(at);
    gMemoryNamed = path != nullptr;
}

void MemoryReset(const char *path) {
    // The file without a name stays the same one, so that descriptors opened before a reset still lead to it.
    if (gMemoryDescriptor < 0 || path || gMemoryNamed)
        OpenMemory(path);
    else
        syscall(SYS_fallocate, gMemoryDescriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0L,
                MEMORY_SIZE);
    gContents = 0;
    gRangeCount = 0;
    gMappingCount = 0;
}

bool MemoryCopy(int descriptor) {
    long start = 0;
    while ((start = syscall(SYS_lseek, gMemoryDescriptor, start, SEEK_DATA)) >= 0) {
        long end = syscall(SYS_lseek, gMemoryDescriptor, start, SEEK_HOLE);
        while (start < end) {
            long written = syscall(SYS_pwrite64, descriptor, gMemory + start, end - start, start);
            if (written <= 0)
                return false;
            start += written;
        }
    }
    return errno == ENXIO; // there is no more
}

bool MemoryTake(int descriptor) {
    if (syscall(SYS_mmap, gMemory, MEMORY_SIZE, PROT_READ | PROT_WRITE,
                MAP_SHARED | MAP_NORESERVE | MAP_FIXED, descriptor, 0L) == -1)
        return false;
    syscall(SYS_close, gMemoryDescriptor);
    gMemoryDescriptor = descriptor;
    gMemoryNamed = true;
    return true;
}

int MemoryDescriptor() {
    return gMemoryDescriptor;
}

uint8_t *MemoryAt(uint64_t address, uint64_t length) {
    return gMemory && length <= MEMORY_SIZE && address <= MEMORY_SIZE - length ? gMemory + address : nullptr;
}

void ClaimMemory(uint64_t start, uint64_t length, MemoryReader read, MemoryWriter write, void *device) {
    Range *range = AddRange(RANGE_DEVICE, start, length);
    range->read = read;
    range->write = write;
    range->device = device;
}

int MappingRefused(uint64_t start, uint64_t length, int descriptor) {
    for (int i = 0; i < gRangeCount; i++) {
        const Range *range = &gRanges[i];
        if (range->kind == RANGE_REFUSED && range->start < PageUp(start + length) &&
            PageDown(start) < range->end && (!range->syncOnly || IsSync(descriptor)))
            return range->error;
    }
    return 0;
}

void MappingAdded(uintptr_t at, size_t length, uint64_t address, int protection) {
    Mapping mapping = {at, static_cast<size_t>(PageUp(length)), address, protection};
    RemovedMapping replaced;
    MappingRemoved(at, mapping.length, &replaced);
    AddMapping(&mapping);
    if (Direct())
        return;
    uint64_t end = address + mapping.length;
    for (int i = 0; i < gRangeCount; i++) {
        const Range *range = &gRanges[i];
        if (range->kind == RANGE_REFUSED || !Touches(range, address, end))
            continue;
        uint64_t from = PageDown(range->start) > address ? PageDown(range->start) : address;
        uint64_t to = PageUp(range->end) < end ? PageUp(range->end) : end;
        syscall(SYS_mprotect, at + (from - address), to - from, PROT_NONE);
    }
}

bool MappingRemoved(uintptr_t at, size_t length, RemovedMapping *removed) {
    uintptr_t end = at + PageUp(length);
    bool any = false;
    for (int i = 0; i < gMappingCount; i++) {
        Mapping whole = gMappings[i];
        uintptr_t wholeEnd = whole.at + whole.length;
        if (whole.at >= end || at >= wholeEnd)
            continue;
        uintptr_t from = whole.at > at ? whole.at : at;
        uintptr_t to = wholeEnd < end ? wholeEnd : end;
        if (!any)
            *removed = {whole.address + (from - whole.at), to - from};
        any = true;
        gMappings[i--] = gMappings[--gMappingCount];
        Mapping before = {whole.at, from - whole.at, whole.address, whole.protection};
        Mapping after = {to, wholeEnd - to, whole.address + (to - whole.at), whole.protection};
        if (before.length != 0)
            AddMapping(&before);
        if (after.length != 0)
            AddMapping(&after);
    }
    return any;
}

int MappingCount() {
    return gMappingCount;
}

bool FindMapping(uintptr_t at, uint64_t *address, int *protection) {
    Mapping *mapping = MappingOf(at);
    if (!mapping)
        return false;
    *address = mapping->address + (at - mapping->at);
    *protection = mapping->protection;
    return true;
}

bool AccessTrapped(uint64_t address, unsigned width) {
    for (int i = 0; i < gRangeCount; i++)
        if (gRanges[i].kind != RANGE_REFUSED && Touches(&gRanges[i], address, address + width))
            return true;
    return false;
}

bool PageTrapped(uint64_t address) {
    return AccessTrapped(PageDown(address), PAGE);
}

void LoadFromDevices(uint64_t address, unsigned width) {
    uint64_t end = address + width;
    while (address < end) {
        const Range *range = DeviceAt(address);
        unsigned count = PieceLength(range, address, end);
        uint8_t *bytes = MemoryAt(address, count);
        if (range && bytes) {
            uint64_t value = range->read ? range->read(range->device, address, count) : 0xFFFFFFFF;
            value = LieOr(LIE_MEMORY, address, count, value);
            memcpy(bytes, &value, count);
            NoteChange(address, count);
        }
        address += count;
    }
}

void StoreToDevices(uint64_t address, unsigned width) {
    uint64_t end = address + width;
    while (address < end) {
        const Range *range = DeviceAt(address);
        unsigned count = PieceLength(range, address, end);
        const uint8_t *bytes = MemoryAt(address, count);
        if (range && range->write && bytes) {
            uint32_t value = 0;
            memcpy(&value, bytes, count);
            range->write(range->device, address, count, value);
        }
        address += count;
    }
}

// The memory of so many bytes that the line describes.
static uint8_t *LineMemory(const BoardLine *line, uint64_t address, uint64_t length) {
    if (length > MEMORY_END - address)
        LineFail(line, "the range does not end below 4 GiB", line->words[1]);
    if (length > MAX_CONTENTS - gContents)
        LineFail(line, "more than 256 MiB of contents", line->words[1]);
    gContents += length;
    return gMemory + address;
}

void BytesLine(BoardLine *line) {
    uint64_t address = LineAddress(line, 1);
    LineWord(line, 2);
    uint8_t *memory = LineMemory(line, address, static_cast<uint64_t>(line->count) - 2);
    for (int i = 2; i < line->count; i++)
        *memory++ = LineByte(line, i);
}

void TextLine(BoardLine *line) {
    uint64_t address = LineAddress(line, 1);
    const char *text = LineText(line, 2);
    memcpy(LineMemory(line, address, strlen(text)), text, strlen(text));
}

static void FillWithAddresses(const BoardLine *line, uint64_t address, uint64_t length) {
    if (address % 4 != 0 || length % 4 != 0)
        LineFail(line, "dwords stand at multiples of 4", line->words[address % 4 != 0 ? 1 : 2]);
    uint8_t *memory = LineMemory(line, address, length);
    for (uint64_t i = 0; i < length; i += 4) {
        uint32_t own = static_cast<uint32_t>(address + i);
        memcpy(memory + i, &own, sizeof own);
    }
}

void FillLine(BoardLine *line) {
    uint64_t address = LineAddress(line, 1);
    uint64_t length = LineLength(line, 2, address);
    if (LineHas(line, 3, "address")) {
        FillWithAddresses(line, address, length);
        return;
    }
    int value = static_cast<int>(LineNumber(line, 3, 0xFF));
    memset(LineMemory(line, address, length), value, length);
}

void MemoryFileLine(BoardLine *line) {
    uint64_t address = LineAddress(line, 1);
    const char *path = PathBeside(line, LineWord(line, 2));
    uint64_t length;
    int descriptor = OpenContents(line, path, MAX_CONTENTS, &length);
    ReadContents(line, descriptor, path, LineMemory(line, address, length), length);
}

void WatchLine(BoardLine *line) {
    uint64_t address = LineAddress(line, 1);
    AddRange(RANGE_WATCHED, address, LineLength(line, 2, address));
}

void HoleLine(BoardLine *line) {
    uint64_t address = LineAddress(line, 1);
    ClaimMemory(address, LineLength(line, 2, address), nullptr, nullptr, nullptr);
}

void RefuseLine(BoardLine *line) {
    uint64_t address = LineAddress(line, 1);
    uint64_t length = LineLength(line, 2, address);
    int error = ErrorNumber(LineWord(line, 3));
    if (error == 0)
        LineFail(line, "not the name of an error", LineWord(line, 3));
    Range *range = AddRange(RANGE_REFUSED, address, length);
    range->error = error;
    range->syncOnly = LineHas(line, 4, "sync");
}
