// The file is the board's memory, as /dev/mem shows it, and behind that a header and the registers. It is
// sparse, as the memory is.
#include "State.h"

#include "Arena.h"
#include "Contents.h"
#include "Memory.h"
#include "Mistake.h"

#include <elf.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <signal.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" const ElfW(Ehdr) __ehdr_start __attribute__((visibility("hidden"))); // of this library

namespace {

constexpr char MAGIC[16] = "hwreg-sim state";
constexpr uint64_t HEADER = MEMORY_SIZE;
constexpr uint64_t REGISTERS = HEADER + 4096;
constexpr unsigned BUILD_ID_LENGTH = 20;

struct Header {
    char magic[sizeof MAGIC];
    uint64_t complete;              // 0 while the file is being filled
    uint8_t build[BUILD_ID_LENGTH]; // of the library: the next one may have other registers
    uint64_t board;
    uint64_t registers; // their length
};

[[noreturn]] void FailToBegin(const char *message) {
    BoardFail("%s; --reset begins anew", message);
}

[[noreturn]] void FailToKeep(const char *reason) {
    BoardFail("%s; --state needs a file that can be written, and --reset leaves this alone", reason);
}

// The linker's number for this very build; zeros where it gave none.
void ReadBuildId(uint8_t *id) {
    const uint8_t *image = reinterpret_cast<const uint8_t *>(&__ehdr_start);
    const ElfW(Phdr) *segments = reinterpret_cast<const ElfW(Phdr) *>(image + __ehdr_start.e_phoff);
    for (int i = 0; i < __ehdr_start.e_phnum; i++) {
        if (segments[i].p_type != PT_NOTE || segments[i].p_align != 4)
            continue;
        const uint8_t *at = image + segments[i].p_vaddr;
        const uint8_t *end = at + segments[i].p_memsz;
        while (at < end) {
            const ElfW(Nhdr) *note = reinterpret_cast<const ElfW(Nhdr) *>(at);
            const uint8_t *contents = at + sizeof *note + ((note->n_namesz + 3) & ~3u);
            if (note->n_type == NT_GNU_BUILD_ID && note->n_descsz == BUILD_ID_LENGTH)
                memcpy(id, contents, BUILD_ID_LENGTH);
            at = contents + ((note->n_descsz + 3) & ~3u);
        }
    }
}

Header OwnHeader() {
    Header header = {};
    memcpy(header.magic, MAGIC, sizeof MAGIC);
    ReadBuildId(header.build);
    header.board = ContentsNumber();
    header.registers = ArenaRegisterBytes();
    return header;
}

uint64_t Length(int descriptor) {
    struct stat status;
    if (syscall(SYS_fstat, descriptor, &status) != 0)
        FailToKeep(strerror(errno));
    if (!S_ISREG(status.st_mode))
        FailToKeep("not a regular file");
    return static_cast<uint64_t>(status.st_size);
}

int OpenAndLock(const char *path) {
    int descriptor = MoveDescriptorHigh(static_cast<int>(
        syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666)));
    if (descriptor < 0)
        FailToKeep(strerror(errno));
    while (syscall(SYS_flock, descriptor, LOCK_EX) != 0)
        if (errno != EINTR)
            FailToKeep(strerror(errno));
    return descriptor;
}

void WriteHeader(int descriptor, const Header *header) {
    if (syscall(SYS_pwrite64, descriptor, header, sizeof *header, HEADER) != sizeof *header)
        FailToKeep(strerror(errno));
}

// The header comes first and says at last that all is there: what is left by a process that was killed
// meanwhile counts as empty.
void Fill(int descriptor) {
    Header header = OwnHeader();
    if (syscall(SYS_ftruncate, descriptor, 0L) != 0)
        FailToKeep(strerror(errno));
    WriteHeader(descriptor, &header);
    if (!MemoryCopy(descriptor) || !ArenaWriteRegisters(descriptor, REGISTERS))
        FailToKeep(strerror(errno));
    header.complete = 1;
    WriteHeader(descriptor, &header);
}

// True when the file holds a state, and false when it may be filled.
bool HoldsState(int descriptor, Header *header) {
    uint64_t length = Length(descriptor);
    if (length == 0)
        return false;
    long got = syscall(SYS_pread64, descriptor, header, sizeof *header, HEADER);
    if (got != sizeof *header || memcmp(header->magic, MAGIC, sizeof MAGIC) != 0)
        BoardFail(
            "not the state of a simulated machine, or only a part of one; --reset leaves it alone: remove "
            "it or name another file");
    return header->complete != 0;
}

void CheckState(int descriptor, const Header *header) {
    Header own = OwnHeader();
    if (memcmp(header->build, own.build, sizeof own.build) != 0)
        FailToBegin("the state that another version of hwreg-sim has left");
    if (header->board != own.board || header->registers != own.registers)
        FailToBegin("the state of another board, or of this one before its files were changed");
    if (Length(descriptor) != REGISTERS + own.registers)
        FailToBegin("a state that has been cut off");
}

const char *gPath;

// The disk has no room for a page of the file that is written to for the first time.
void TellFullDisk(int) {
    MistakePlace(gPath, 0);
    BoardFail("the disk is full: what this run has changed so far is kept, and no more");
}

} // namespace

void StateTake(const char *path, bool anew) {
    MistakePlace(path, 0);
    int descriptor = OpenAndLock(path);
    Header header;
    if (!HoldsState(descriptor, &header) || anew)
        Fill(descriptor);
    else
        CheckState(descriptor, &header);
    if (!MemoryTake(descriptor) || !ArenaMapRegisters(descriptor, REGISTERS))
        FailToKeep(strerror(errno));
    MistakePlace(nullptr, 0);
    gPath = path;
    struct sigaction full = {};
    full.sa_handler = TellFullDisk;
    sigaction(SIGBUS, &full, nullptr);
}
