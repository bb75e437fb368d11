#include "Repeat.h"

#include "Command.h"
#include "Sandbox.h"
#include "sim/Board.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

constexpr int INPUT = 500; // descriptors in the fresh process
constexpr int RECORD = 501;
constexpr size_t MAX_RECORD = static_cast<size_t>(16) << 20;

char gRecord[MAX_RECORD];
size_t gLength;
const char *gProgram;
const char *gName;
const char *gFindings = "";

void AddText(const char *text, size_t length) {
    size_t room = MAX_RECORD - gLength;
    if (length > room)
        length = room;
    memcpy(gRecord + gLength, text, length);
    gLength += length;
}

void AddFiles() {
    char text[4096];
    const char *name;
    int file;
    for (int i = 0; RecordedFile(i, &name, &file); i++) {
        int head = snprintf(text, sizeof text, "\n--- file %s\n", name);
        AddText(text, static_cast<size_t>(head));
        ssize_t count;
        for (off_t at = 0; (count = pread(file, text, sizeof text, at)) > 0; at += count)
            AddText(text, static_cast<size_t>(count));
    }
}

int NewFile(int descriptor) {
    int made = memfd_create("run", 0);
    if (made < 0 || dup2(made, descriptor) != descriptor)
        Fail("cannot be made", "file");
    close(made);
    return descriptor;
}

void WriteBeside(const char *name, const void *bytes, size_t length) {
    char path[4096];
    snprintf(path, sizeof path, "%sdifference-%s", gFindings, name);
    int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0 || write(file, bytes, length) != ssize_t(length))
        fprintf(stderr, "%s cannot be written\n", path);
    else
        fprintf(stderr, "wrote %s\n", path);
    close(file);
}

int RunFresh(Input input) {
    NewFile(INPUT);
    NewFile(RECORD);
    if (write(INPUT, input.bytes, input.length) != ssize_t(input.length))
        Fail("cannot be written", "input");
    char file[40];
    snprintf(file, sizeof file, "/proc/self/fd/%d", INPUT);
    const char *words[] = {gProgram, "--show", file, nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, RECORD, STDOUT_FILENO);
    pid_t child;
    int status = -1;
    if (posix_spawn(&child, "/proc/self/exe", &actions, nullptr, const_cast<char **>(words), environ) != 0)
        Fail("cannot be started", "a fresh process");
    while (waitpid(child, &status, 0) != child) {
    }
    posix_spawn_file_actions_destroy(&actions);
    close(INPUT);
    return status;
}

} // namespace

void Record(bool left) {
    char status[32];
    size_t length;
    const char *output = RecordedOutput(&length);
    int end = left ? snprintf(status, sizeof status, "left\n--- output\n")
                   : snprintf(status, sizeof status, "%d\n--- output\n", RunStatus());
    gLength = 0;
    AddText(status, static_cast<size_t>(end));
    AddText(output, length);
    constexpr char accesses[] = "\n--- accesses\n";
    AddText(accesses, sizeof accesses - 1);
    AddText(BoardLog(), strlen(BoardLog()));
    BoardLogClear();
    AddFiles();
}

void ShowRecord() {
    if (write(STDOUT_FILENO, gRecord, gLength) != ssize_t(gLength))
        Fail("cannot be written", "record");
}

void RepeatIn(const char *program, const char *name, char **options) {
    constexpr char prefix[] = "-artifact_prefix=";
    gProgram = program;
    gName = name;
    for (; *options; options++)
        if (strncmp(*options, prefix, sizeof prefix - 1) == 0)
            gFindings = *options + sizeof prefix - 1;
}

void RepeatAndCompare(Input input) {
    int status = RunFresh(input);
    size_t length = static_cast<size_t>(lseek(RECORD, 0, SEEK_END));
    void *fresh = length == 0 ? nullptr : mmap(nullptr, length, PROT_READ, MAP_PRIVATE, RECORD, 0);
    if (status != 0 || length != gLength || memcmp(fresh, gRecord, length) != 0) {
        WriteBeside("input", input.bytes, input.length);
        WriteBeside("here", gRecord, gLength);
        WriteBeside("fresh", fresh, length);
        Fail("a fresh process does something else with this input", gName);
    }
    munmap(fresh, length);
    close(RECORD);
}
