#include "Command.h"
#include "State.h"

void FuzzWords(Input input) {
    Words words;
    LoadBoard(TakeByte(&input) == 'a' ? "amd" : "intel");
    BeginWords(&words);
    AddWords(&words, reinterpret_cast<const char *>(input.bytes), input.length, '\n');
    RunProgram(&words);
}
