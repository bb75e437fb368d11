// Runs the program once, with the words, tables, devices or keys that a file holds.
//
//   hwreg_fuzz words|tables|devices|keys FILE
//
// Under afl-fuzz each input has a fresh copy of the process, made before anything of the board or the program
// has come to life.
#include "Command.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

constexpr size_t MAX_INPUT = 1 << 16;

// A 4 MiB allocation is the largest that succeeds: the program asks for the largest that it can get.
extern "C" const char *__asan_default_options() {
    return "abort_on_error=1:detect_leaks=0:allocator_may_return_null=1:max_allocation_size_mb=4:handle_segv="
           "0";
}

extern "C" const char *__ubsan_default_options() {
    return "halt_on_error=1:abort_on_error=1:print_stacktrace=1";
}

uint8_t TakeByte(Input *input) {
    if (input->length == 0)
        return 0;
    input->length--;
    return *input->bytes++;
}

Input TakeBytes(Input *input, size_t count) {
    Input taken = {input->bytes, count < input->length ? count : input->length};
    input->bytes += taken.length;
    input->length -= taken.length;
    return taken;
}

static Input ReadInput(const char *path) {
    static uint8_t bytes[MAX_INPUT];
    int file = open(path, O_RDONLY | O_CLOEXEC);
    ssize_t length = file < 0 ? -1 : read(file, bytes, sizeof bytes);
    if (length < 0)
        Fail("cannot be read", path);
    close(file);
    return {bytes, static_cast<size_t>(length)};
}

static void Run(const char *name, Input input) {
    if (strcmp(name, "words") == 0)
        FuzzWords(input);
    else if (strcmp(name, "tables") == 0)
        FuzzTables(input);
    else if (strcmp(name, "devices") == 0)
        FuzzDevices(input);
    else
        FuzzKeys(input);
}

int main(int argc, char **argv) {
    if (argc != 3)
        Fail("expected: words|tables|devices|keys FILE", "arguments");
    if (strcmp(argv[1], "words") != 0)
        ReadCommands(argv[1]);
    int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    close(nothing);
    __AFL_INIT();
    Input input = ReadInput(argv[2]);
    if (chdir("/dev") != 0) // the folder that the program syncs: one that is on no disk
        Fail("cannot be entered", "/dev");
    Run(argv[1], input);
    return 0;
}
