#include "Arena.h"

#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr size_t ARENA_SIZE = static_cast<size_t>(256) << 20; // address space; pages arrive when touched
constexpr int FIRST_HIGH_DESCRIPTOR = 200;

uint8_t *gArena;
size_t gArenaUsed;

} // namespace

void *ArenaTake(size_t size) {
    if (!gArena) {
        long at = syscall(SYS_mmap, nullptr, ARENA_SIZE, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0L);
        if (at == -1)
            BoardFail("no address space");
        gArena = reinterpret_cast<uint8_t *>(at);
    }
    size = (size + 15) & ~static_cast<size_t>(15);
    if (size > ARENA_SIZE - gArenaUsed)
        BoardFail("the board is too large");
    uint8_t *taken = gArena + gArenaUsed;
    gArenaUsed += size;
    return taken;
}

void ArenaReset() {
    if (gArenaUsed != 0)
        syscall(SYS_madvise, gArena, gArenaUsed, MADV_DONTNEED);
    gArenaUsed = 0;
}

int MoveDescriptorHigh(int descriptor) {
    if (descriptor < 0)
        return descriptor;
    int high = static_cast<int>(syscall(SYS_fcntl, descriptor, F_DUPFD_CLOEXEC, FIRST_HIGH_DESCRIPTOR));
    syscall(SYS_close, descriptor);
    return high;
}

void BoardFail(const char *format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(text, sizeof text - 1, format, arguments);
    va_end(arguments);
    if (length > static_cast<int>(sizeof text) - 2)
        length = static_cast<int>(sizeof text) - 2;
    text[length] = '\n';
    syscall(SYS_write, 2, "board: ", 7L);
    syscall(SYS_write, 2, text, static_cast<long>(length) + 1);
    // SIGABRT, and not an exit status, which could be taken for a value that the program has read.
    signal(SIGABRT, SIG_DFL);
    syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), SIGABRT);
    _exit(127);
}
