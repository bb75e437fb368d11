#include "BasicLib/PhysMem.h"

#include <sys/mman.h>
#include <sys/prctl.h>

#include <cerrno>
#include <cstring>

#include "Base/Memory.h"
#include "BasicLib/Driver.h"
#include "Common/Sprint.h"

constexpr uint32_t PAGE_MASK = 0xFFFFF000;
constexpr uint32_t ACCESS_MAP_SIZE = 2 * PAGE_4KB; // an access may cross into the next page

// Registers and memory at any alignment; volatile, so that each access is one instruction.
typedef volatile uint8_t Register8;
typedef volatile uint16_t __attribute__((aligned(1))) Register16;
typedef volatile uint32_t __attribute__((aligned(1))) Register32;

static void *MapThrough(int16_t fd, uint32_t address, size_t size, int protection) {
    return mmap(nullptr, size, protection, MAP_SHARED, fd, static_cast<off_t>(address & PAGE_MASK));
}

// Maps size bytes from the page of address on; NULL when the kernel refuses. With EAGAIN the kernel says that
// it holds the page cached itself and will not map it uncached as well: then, and only then, a cached map is
// tried.
static volatile uint8_t *MapPages(uint32_t address, size_t size, int protection = PROT_READ | PROT_WRITE) {
    void *map = MapThrough(gMemFd, address, size, protection);
    if (map == MAP_FAILED && errno == EAGAIN && CachedMemFd() != MEM_FD_NONE)
        map = MapThrough(CachedMemFd(), address, size, protection);
    return map == MAP_FAILED ? nullptr : static_cast<volatile uint8_t *>(map);
}

static void UnmapPages(volatile uint8_t *map, size_t size) {
    munmap(const_cast<uint8_t *>(map), size);
}

static int ProbePages(uint32_t address, size_t size) {
    if (gMemFd == MEM_FD_NONE)
        return ENODEV;
    volatile uint8_t *map = MapPages(address, size, PROT_READ);
    if (map == nullptr)
        return errno;
    UnmapPages(map, size);
    return 0;
}

int ProbePhysMem(uint32_t address) {
    return ProbePages(address, PAGE_4KB);
}

int ProbePhysAccess(uint32_t address) {
    return ProbePages(address, ACCESS_MAP_SIZE);
}

static uint32_t LoadOnce(volatile uint8_t *place, uint32_t width) {
    switch (width) {
    case 1:
        return *static_cast<Register8 *>(place);
    case 2:
        return *reinterpret_cast<Register16 *>(place);
    default:
        return *reinterpret_cast<Register32 *>(place);
    }
}

static void StoreOnce(volatile uint8_t *place, uint32_t width, uint32_t value) {
    switch (width) {
    case 1:
        *static_cast<Register8 *>(place) = static_cast<uint8_t>(value);
        break;
    case 2:
        *reinterpret_cast<Register16 *>(place) = static_cast<uint16_t>(value);
        break;
    default:
        *reinterpret_cast<Register32 *>(place) = value;
        break;
    }
}

static uint32_t ReadMapped(uint32_t address, uint32_t width, uint32_t failure) {
    errno = 0;
    if (gMemFd == MEM_FD_NONE)
        return 0xFFFFFFFF;
    volatile uint8_t *map = MapPages(address, ACCESS_MAP_SIZE);
    if (map == nullptr)
        return failure;
    uint32_t value = LoadOnce(map + (address & ~PAGE_MASK), width);
    UnmapPages(map, ACCESS_MAP_SIZE);
    return value;
}

static void WriteMapped(uint32_t address, uint32_t width, uint32_t value) {
    errno = 0;
    if (gMemFd == MEM_FD_NONE)
        return;
    volatile uint8_t *map = MapPages(address, ACCESS_MAP_SIZE);
    if (map == nullptr)
        return;
    StoreOnce(map + (address & ~PAGE_MASK), width, value);
    UnmapPages(map, ACCESS_MAP_SIZE);
}

uint32_t MemRead8(uint32_t address) {
    return ReadMapped(address, 1, 0xFF);
}

uint32_t MemRead16(uint32_t address) {
    return ReadMapped(address, 2, 0xFFFF);
}

uint32_t MemRead32(uint32_t address) {
    return ReadMapped(address, 4, 0xFFFF); // 16 bits on purpose, see the header
}

void MemWrite8(uint32_t address, uint32_t value) {
    WriteMapped(address, 1, value);
}

void MemWrite16(uint32_t address, uint32_t value) {
    WriteMapped(address, 2, value);
}

void MemWrite32(uint32_t address, uint32_t value) {
    WriteMapped(address, 4, value);
}

// Device memory is mapped uncached, where every load is a bus transaction: eight bytes at a time, each
// aligned, and never a library copy, which may fall back to single bytes.
static void CopyPage(uint8_t *buffer, volatile uint8_t *page) {
    volatile uint64_t *source = reinterpret_cast<volatile uint64_t *>(page);
    for (uint32_t i = 0; i < PAGE_4KB / sizeof(uint64_t); ++i) {
        uint64_t value = source[i];
        memcpy(buffer + i * sizeof(uint64_t), &value, sizeof(value));
    }
}

// What is copied from memory may be anybody's and must not lie in a core dump. Once is enough.
static void KeepOutOfCoreDumps() {
    static bool mKeptOut = false;
    if (!mKeptOut)
        prctl(PR_SET_DUMPABLE, 0);
    mKeptOut = true;
}

int Dump_PhysMem(uint32_t address, uint8_t *buffer, uint32_t length) {
    if (length < PAGE_4KB)
        PrintAssert(BASIC_LIB_SOURCE, 537, "length >= PAGE_4KB");
    errno = 0;
    if (gMemFd == MEM_FD_NONE || buffer == nullptr)
        return 0;
    volatile uint8_t *map = MapPages(address, PAGE_4KB);
    if (map == nullptr) {
        Memset(buffer, 0xFF, PAGE_4KB);
        return 0;
    }
    KeepOutOfCoreDumps();
    CopyPage(buffer, map);
    UnmapPages(map, PAGE_4KB);
    return 1;
}

EFI_STATUS MemDump(uint32_t start, uint32_t length, uint8_t *buffer) {
    uint8_t page[PAGE_4KB] = {};
    if (length > 0xFFFFFFFF - start)
        length = 0 - start; // up to the 4 GiB border
    if (buffer == nullptr)
        return EFI_INVALID_PARAMETER;

    uint32_t skip = start & ~PAGE_MASK;
    if (skip != 0) {
        uint32_t head = PAGE_4KB - skip;
        Dump_PhysMem(start & PAGE_MASK, page, PAGE_4KB);
        if (length <= head) {
            Memcpy(buffer, page + skip, length);
            return EFI_SUCCESS;
        }
        Memcpy(buffer, page + skip, head);
        buffer += head;
        start = (start & PAGE_MASK) + PAGE_4KB;
        length -= head;
    }

    uint32_t counter = 0;
    while (length >= PAGE_4KB && counter <= length - PAGE_4KB) {
        Dump_PhysMem(start, buffer, PAGE_4KB);
        buffer += PAGE_4KB;
        start += PAGE_4KB;
        counter += PAGE_4KB;
    }
    // A length of 0 reads its page too and takes nothing of it.
    if ((counter != 0 && counter < length) || length < PAGE_4KB) {
        Dump_PhysMem(start, page, PAGE_4KB);
        Memcpy(buffer, page, length & ~PAGE_MASK);
    }
    return EFI_SUCCESS;
}

uint8_t *CopyPhysical(uint32_t address, uint32_t size) {
    uint8_t *copy = static_cast<uint8_t *>(Malloc(size));
    if (copy == nullptr)
        return nullptr;
    Memset(copy, 0, size);
    MemDump(address, size, copy);
    return copy;
}
