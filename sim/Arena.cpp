#include "Arena.h"

#include "Mistake.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr size_t ARENA_SIZE = static_cast<size_t>(256) << 20; // address space; pages arrive when touched
constexpr int FIRST_HIGH_DESCRIPTOR = 200;

struct Area {
    uint8_t *start;
    size_t used;
};
Area gArena;
Area gRegisters;

void *Take(Area *area, size_t size) {
    if (!area->start) {
        long at = syscall(SYS_mmap, nullptr, ARENA_SIZE, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0L);
        if (at == -1)
            BoardFail("no address space");
        area->start = reinterpret_cast<uint8_t *>(at);
    }
    size = (size + 15) & ~static_cast<size_t>(15);
    if (size > ARENA_SIZE - area->used)
        BoardFail("the board is too large");
    uint8_t *taken = area->start + area->used;
    area->used += size;
    return taken;
}

void Reset(Area *area) {
    if (area->used != 0)
        syscall(SYS_madvise, area->start, area->used, MADV_DONTNEED);
    area->used = 0;
}

// True when the file holds the registers: those that it held, or ours when it was empty.
bool HoldsRegisters(int descriptor) {
    struct stat status;
    if (descriptor < 0 || syscall(SYS_fstat, descriptor, &status) != 0)
        return false;
    if (status.st_size == 0)
        return ArenaWriteRegisters(descriptor, 0);
    return status.st_size == static_cast<long>(gRegisters.used);
}

} // namespace

void *ArenaTake(size_t size) {
    return Take(&gArena, size);
}

void *ArenaTakeRegisters(size_t size) {
    return Take(&gRegisters, size);
}

void ArenaArea(int number, void **start, uint64_t *length) {
    const Area *area = number == 0 ? &gArena : &gRegisters;
    *start = area->start;
    *length = area->used;
}

uint64_t ArenaRegisterBytes() {
    return gRegisters.used;
}

bool ArenaWriteRegisters(int descriptor, uint64_t offset) {
    long length = static_cast<long>(gRegisters.used);
    long written = syscall(SYS_pwrite64, descriptor, gRegisters.start, length, offset);
    if (written >= 0 && written < length)
        errno = ENOSPC;
    return written == length;
}

bool ArenaMapRegisters(int descriptor, uint64_t offset) {
    return syscall(SYS_mmap, gRegisters.start, gRegisters.used, PROT_READ | PROT_WRITE,
                   MAP_SHARED | MAP_FIXED, descriptor, offset) != -1;
}

void ArenaShareRegisters(const char *path) {
    int descriptor =
        static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    syscall(SYS_flock, descriptor, LOCK_EX); // one process fills the file
    if (!HoldsRegisters(descriptor) || !ArenaMapRegisters(descriptor, 0))
        BoardFail("%s: no file for the registers of this board", path);
    syscall(SYS_flock, descriptor, LOCK_UN); // the mapping would hold it
    syscall(SYS_close, descriptor);
}

void ArenaReset() {
    Reset(&gArena);
    Reset(&gRegisters);
}

int MoveDescriptorHigh(int descriptor) {
    if (descriptor < 0)
        return descriptor;
    int high = static_cast<int>(syscall(SYS_fcntl, descriptor, F_DUPFD_CLOEXEC, FIRST_HIGH_DESCRIPTOR));
    syscall(SYS_close, descriptor);
    return high;
}
