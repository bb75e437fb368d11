#include "Command.h"
#include "sim/Board.h"

void FuzzDevices(Input input) {
    Words words;
    ChooseCommand(TakeByte(&input), &words);
    unsigned doors = TakeByte(&input);
    uint8_t rest = TakeByte(&input);
    BoardAnswer(doors, input.bytes, input.length, rest);
    RunProgram(&words);
}
