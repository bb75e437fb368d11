// boards: texts as board files, to the simulator's reader, once up to the first mistake and once with all of
// them. Asserted: whatever the text, it is read or told of, with the name of the file; the first mistake is
// the first of all; reading leaves no descriptor open; and the same text gives the same again.
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Goal.h"

namespace {

constexpr size_t ROOM = 1 << 16;
constexpr int FIRST_DESCRIPTOR = 300; // of the file, out of the way

// The reader's own library: the board that the other fuzzers run on is not touched by this one.
typedef int (*Check)(const char *path, bool all, char *text, uint64_t size);
Check gCheck;
int gFile;
char gPath[40];

void OpenReader() {
    setenv("HWBOARD_PATH", HWREG_FUZZ_FOLDER "/../../sim/boards", 1); // where "include" finds files
    void *reader = dlopen(HWREG_BOARD_READER, RTLD_NOW | RTLD_LOCAL);
    gCheck = reinterpret_cast<Check>(reader ? dlsym(reader, "BoardCheck") : nullptr);
    Expect(gCheck != nullptr, "the reader's library can be loaded");
    int made = memfd_create("board", MFD_CLOEXEC);
    gFile = fcntl(made, F_DUPFD_CLOEXEC, FIRST_DESCRIPTOR);
    close(made);
    snprintf(gPath, sizeof gPath, "/proc/self/fd/%d", gFile);
}

int LowestFree() {
    int lowest = dup(STDERR_FILENO);
    close(lowest);
    return lowest;
}

// Each message begins with a file's name and a line's number, or is of the simulator as a whole.
void CheckMessages(const char *text, int count) {
    int lines = 0;
    for (const char *at = text; *at;) {
        const char *end = strchr(at, '\n');
        Expect(end != nullptr || strlen(text) == ROOM - 1, "a message is a line");
        Expect(memchr(at, ':', end ? static_cast<size_t>(end - at) : strlen(at)) != nullptr,
               "a mistake has a place");
        at = end ? end + 1 : at + strlen(at);
        lines++;
    }
    Expect((count == 0) == (lines == 0) && (lines == count || strlen(text) == ROOM - 1),
           "each mistake is told");
}

} // namespace

void FuzzBoards(Input input) {
    static char first[ROOM], all[ROOM], again[ROOM];
    if (!gCheck)
        OpenReader();
    Expect(ftruncate(gFile, 0) == 0 && pwrite(gFile, input.bytes, input.length, 0) == ssize_t(input.length),
           "a file");
    int free = LowestFree();
    int one = gCheck(gPath, false, first, ROOM);
    int every = gCheck(gPath, true, all, ROOM);
    CheckMessages(first, one);
    CheckMessages(all, every);
    Expect(one == (every != 0), "a file with mistakes is told from one without");
    Expect(strncmp(first, all, strlen(first)) == 0, "the first mistake is the first of all");
    Expect(gCheck(gPath, true, again, ROOM) == every && strcmp(all, again) == 0,
           "the same text, the same mistakes");
    Expect(LowestFree() == free, "no descriptor is left open");
}
