// The counters of the executable are a file that all its processes share, so that what a process has done
// counts however it ends: by a signal, by _exit, in another program. libgcov's own way is to write files at
// the end.
//
// The program must not see any of it: no function of libc is called (tests stand in front of them and count),
// no descriptor stays open, and nothing is done at the end.
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/mman.h>
#include <sys/syscall.h>

#include <cstddef>
#include <cstdint>

extern "C" {
#include <gcov.h> // has no C++ of its own
void __gcov_merge_add(int64_t *counters, unsigned count);
}

extern char gCounters[], gCountersEnd[];           // counters.ld
extern const gcov_info *const __start_gcov_info[]; // the linker's
extern const gcov_info *const __stop_gcov_info[];

#define UNCOUNTED __attribute__((no_profile_instrument_function))

// Tells a table of counters that they are sums. libgcov's own brings the functions with it that write files.
UNCOUNTED void __gcov_merge_add(int64_t *, unsigned) {
}

namespace {

char gText[1 << 16];
size_t gTextUsed;

UNCOUNTED long Kernel(long number, long a, long b, long c, long d = 0, long e = 0, long f = 0) {
    long result;
    register long fourth asm("r10") = d;
    register long fifth asm("r8") = e;
    register long sixth asm("r9") = f;
    asm volatile("syscall"
                 : "=a"(result)
                 : "a"(number), "D"(a), "S"(b), "d"(c), "r"(fourth), "r"(fifth), "r"(sixth)
                 : "rcx", "r11", "memory");
    return result;
}

UNCOUNTED const char *Variable(char **environment, const char *name) {
    for (; *environment != nullptr; ++environment) {
        size_t length = 0;
        while (name[length] != 0 && (*environment)[length] == name[length])
            ++length;
        if (name[length] == 0 && (*environment)[length] == '=')
            return *environment + length + 1;
    }
    return nullptr;
}

UNCOUNTED void Append(char *path, size_t size, const char *text) {
    size_t at = 0;
    while (path[at] != 0)
        ++at;
    for (; *text != 0 && at + 1 < size; ++text)
        path[at++] = *text;
    path[at] = 0;
}

// openat2: some tests look at what the program opens, with the older calls.
UNCOUNTED void MapCounters(const char *folder, bool create) {
    char path[4096] = "";
    Append(path, sizeof(path), folder != nullptr ? folder : HWREG_COUNTERS);
    Append(path, sizeof(path), "/" HWREG_PROGRAM);
    open_how how = {};
    how.flags = static_cast<uint64_t>(O_RDWR | O_CLOEXEC | (create ? O_CREAT : 0));
    how.mode = create ? 0666 : 0;
    long file = Kernel(SYS_openat2, AT_FDCWD, reinterpret_cast<long>(path), reinterpret_cast<long>(&how),
                       sizeof(how));
    if (file < 0)
        return;
    long size = gCountersEnd - gCounters;
    if (create)
        Kernel(SYS_ftruncate, file, size, 0);
    Kernel(SYS_mmap, reinterpret_cast<long>(gCounters), size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED,
           file, 0);
    Kernel(SYS_close, file, 0, 0);
}

// A piece of the stream that the report reads: its length, then its bytes.
UNCOUNTED void Flush() {
    for (size_t done = 0; done < gTextUsed;) {
        long written =
            Kernel(SYS_write, 1, reinterpret_cast<long>(gText + done), static_cast<long>(gTextUsed - done));
        if (written <= 0)
            Kernel(SYS_exit_group, 1, 0, 0);
        done += static_cast<size_t>(written);
    }
    gTextUsed = 0;
}

UNCOUNTED void Put(const void *bytes, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        if (gTextUsed == sizeof(gText))
            Flush();
        gText[gTextUsed++] = static_cast<const char *>(bytes)[i];
    }
}

UNCOUNTED void Piece(const void *bytes, unsigned length, void *) {
    Put(&length, sizeof(length));
    Put(bytes, length);
}

UNCOUNTED void Name(const char *name, void *) {
    unsigned length = 0;
    while (name[length] != 0)
        ++length;
    Piece(nullptr, 0, nullptr); // an empty piece begins a file
    Piece(name, length, nullptr);
}

UNCOUNTED void *NoMemory(unsigned, void *) {
    Kernel(SYS_exit_group, 1, 0, 0); // is asked for by other kinds of counters alone
    return nullptr;
}

// With HWREG_TELL_COUNTERS the process tells the counters on standard output, and is none of the program's.
UNCOUNTED __attribute__((constructor(101))) void Begin(int, char **, char **environment) {
    bool tells = Variable(environment, "HWREG_TELL_COUNTERS") != nullptr;
    MapCounters(Variable(environment, "HWREG_COUNTERS"), tells);
    if (!tells)
        return;
    for (const gcov_info *const *info = __start_gcov_info; info < __stop_gcov_info; ++info)
        __gcov_info_to_gcda(*info, Name, Piece, NoMemory, nullptr);
    Flush();
    Kernel(SYS_exit_group, 0, 0, 0);
}

} // namespace
