// The switch of the mutants. $HWREG_MUTANT is the number of the one to switch on, $HWREG_REACHED a file in
// which each number that is asked for is marked. Both are taken before any constructor of the program runs,
// with bare system calls: the heap and libc's functions stay as they would be without.
#include "Mutants.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Mutants {

static unsigned char mOwn[MOST];
static void (*mProcedures[256])();
static unsigned mProcedureCount = 0;

int gSwitched = 0;
volatile unsigned char *gReached = mOwn;

constexpr unsigned SECONDS = 3; // of computing time, after which a program with a mutant is taken not to end

// Tables are filled at no call of the program: that marks nothing.
static void Fill(void (*procedure)()) {
    volatile unsigned char *reached = gReached;
    gReached = mOwn;
    procedure();
    gReached = reached;
}

bool WhenSwitched(void (*procedure)()) {
    mProcedures[mProcedureCount++] = procedure;
    if (gSwitched != 0)
        Fill(procedure);
    return true;
}

void Switch(int number) {
    gSwitched = number;
    for (unsigned i = 0; i < mProcedureCount; ++i)
        Fill(mProcedures[i]);
}

static void MarkIn(int descriptor, int flags) {
    long place = syscall(SYS_mmap, nullptr, MOST, PROT_READ | PROT_WRITE, flags, descriptor, 0);
    if (place > 0)
        gReached = reinterpret_cast<unsigned char *>(place);
}

void ShareReached() {
    MarkIn(-1, MAP_SHARED | MAP_ANONYMOUS);
}

static const char *ValueOf(char **environment, const char *name) {
    for (; *environment != nullptr; ++environment) {
        const char *word = *environment;
        const char *wanted = name;
        for (; *wanted != 0 && *word == *wanted; ++word)
            ++wanted;
        if (*wanted == 0 && *word == '=')
            return word + 1;
    }
    return nullptr;
}

__attribute__((constructor(101))) static void Begin(int, char **, char **environment) {
    if (const char *path = ValueOf(environment, "HWREG_REACHED")) {
        long descriptor = syscall(SYS_open, path, O_RDWR);
        if (descriptor >= 0) {
            MarkIn(static_cast<int>(descriptor), MAP_SHARED);
            syscall(SYS_close, descriptor);
        }
    }
    if (const char *digits = ValueOf(environment, "HWREG_MUTANT")) {
        for (; *digits != 0; ++digits)
            gSwitched = gSwitched * 10 + (*digits - '0');
        rlimit limit = {SECONDS, SECONDS};
        syscall(SYS_prlimit64, 0, RLIMIT_CPU, &limit, nullptr);
    }
}

} // namespace Mutants
