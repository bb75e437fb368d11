// Runs the fuzzer that the first word names, many times in one process, driven by libFuzzer.
//
//   hwreg_fuzz NAME [OPTION...] [CORPUS...]    the options of libFuzzer (-help=1)
//   hwreg_fuzz NAME --show FILE                one run: its status, its output and its accesses
//   hwreg_fuzz --list                          the names
#include "Fuzzers.h"
#include "Repeat.h"
#include "Sandbox.h"
#include "State.h"
#include "Surroundings.h"

#include <fcntl.h>
#include <setjmp.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

constexpr uint64_t REPEATED = 1000; // each so many inputs one in a fresh process, too
constexpr size_t MAX_INPUT = 1 << 20;

constexpr const char *NAME_INHERITED = "HWREG_FUZZER";

static const Fuzzer *gFuzzer;
static jmp_buf gLeave;

extern "C" const char *__asan_default_options() {
    return "abort_on_error=1:detect_leaks=0:allocator_may_return_null=1:handle_abort=0";
}

extern "C" const char *__ubsan_default_options() {
    return "halt_on_error=1:abort_on_error=1:print_stacktrace=1";
}

void Fail(const char *what, const char *name) {
    fprintf(stderr, "hwreg_fuzz: %s: %s\n", name, what);
    abort();
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

void LeaveRun() {
    _longjmp(gLeave, 1);
}

static void Run(Input input, bool recorded) {
    StateBegin();
    SandboxBegin(recorded);
    bool left = _setjmp(gLeave) != 0;
    if (!left)
        gFuzzer->run(input);
    LeaveSandbox();
    if (recorded)
        Record(left);
    PutBackSurroundings(left);
    SandboxEnd();
    StateEnd();
}

static Input ReadInput(const char *path) {
    static uint8_t bytes[MAX_INPUT];
    int file = open(path, O_RDONLY | O_CLOEXEC);
    ssize_t length = file < 0 ? -1 : read(file, bytes, sizeof bytes);
    if (length < 0)
        Fail("cannot be read", path);
    close(file);
    uint8_t *exact = static_cast<uint8_t *>(malloc(static_cast<size_t>(length) + 1)) + 1;
    memcpy(exact, bytes, static_cast<size_t>(length));
    return {exact, static_cast<size_t>(length)};
}

// Takes the name out of the words. libFuzzer starts itself again for some options, and knows nothing of it.
static const char *TakeName(int *argc, char ***argv) {
    const char *inherited = getenv(NAME_INHERITED);
    if (inherited)
        return inherited;
    const char *name = *argc > 1 ? (*argv)[1] : "";
    if (strcmp(name, "--list") == 0) {
        ListFuzzers();
        exit(0);
    }
    if (*argc > 1) {
        (*argv)[1] = (*argv)[0];
        ++*argv;
        --*argc;
    }
    setenv(NAME_INHERITED, name, 1);
    return name;
}

// A fresh process that hangs ends with the one that waits for it, which libFuzzer ends after its -timeout.
static void Show(const char *path) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (gFuzzer->light)
        gFuzzer->run(ReadInput(path)); // compares for itself
    else {
        Run(ReadInput(path), true);
        ShowRecord();
    }
    _exit(0);
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
    const char *name = TakeName(argc, argv);
    gFuzzer = FindFuzzer(name);
    if (!gFuzzer)
        Fail("no fuzzer has this name", name);
    if (gFuzzer->prepare)
        gFuzzer->prepare(name);
    if (!gFuzzer->light)
        StateStart();
    if (*argc == 3 && strcmp((*argv)[1], "--show") == 0)
        Show((*argv)[2]);
    RepeatIn((*argv)[0], name, *argv + 1);
    return 0;
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *bytes, size_t length, size_t most, unsigned seed) {
    return gFuzzer->mutate ? gFuzzer->mutate(bytes, length, most, seed)
                           : LLVMFuzzerMutate(bytes, length, most);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t length) {
    static uint64_t runs;
    Input input = {bytes, length};
    if (gFuzzer->light) {
        gFuzzer->run(input);
        return 0;
    }
    bool recorded = ++runs % REPEATED == 0;
    Run(input, recorded);
    if (recorded)
        RepeatAndCompare(input);
    return 0;
}
