// The fuzzers. Each makes a machine and a command line, or the operands of a procedure, of its input and runs
// the program, or the procedure, on it once. Many runs share a process: before each all is as it was at first
// (State.h).
#pragma once

#include <stddef.h>
#include <stdint.h>

struct Input {
    const uint8_t *bytes;
    size_t length;
};

// The next byte, 0 behind the last one.
uint8_t TakeByte(Input *input);
// The next count bytes, or as many as there are.
Input TakeBytes(Input *input, size_t count);

struct Fuzzer {
    const char *name;
    void (*prepare)(const char *name); // once; may be null
    void (*run)(Input input);
    // Makes another input of one, as libFuzzer's LLVMFuzzerCustomMutator; may be null.
    size_t (*mutate)(uint8_t *bytes, size_t length, size_t most, unsigned seed);
    bool light; // puts back itself what it changes, and needs neither a board nor a sandbox
};

// Null when there is none of this name.
const Fuzzer *FindFuzzer(const char *name);
// To standard output, a line each.
void ListFuzzers();

// Ends the process with a message: what is wrong, and with what.
[[noreturn]] void Fail(const char *what, const char *name);

// libFuzzer's own way to make another input.
extern "C" size_t LLVMFuzzerMutate(uint8_t *bytes, size_t length, size_t most);

// words: the words of the command line. A byte that chooses the board ('a': amd, others: intel), then the
// words, each ended by a line feed.
void FuzzWords(Input input);

// tables: firmware tables. A byte that chooses a line of tables.commands; a length byte and a word that
// stands behind that line (none for 0); a length byte and the text of the system table file (no file for 0);
// then pieces of memory to the end: address (4 bytes, lowest first), length (2 bytes), contents.
void FuzzTables(Input input);

// devices: what devices answer. A byte that chooses a line of devices.commands, one with the doors that
// answer (the ANSWER_ bits of Board.h; the others keep their devices), one that is read when there are no
// more answers, then the answers.
void FuzzDevices(Input input);

// keys: what is typed. A byte that chooses a line of keys.commands, one whose bit 0 says where the keys come
// from (0: a pipe that ends behind them, 1: a terminal), then the keys.
void FuzzKeys(Input input);
// Now and then all keys are others: a row of random ones holds as many pairs of neighbours.
size_t MutateKeys(uint8_t *bytes, size_t length, size_t most, unsigned seed);
