#include "Command.h"
#include "Sandbox.h"
#include "sim/Board.h"
#include "tests/support/TableCommand.h"

constexpr uint64_t MEMORY_END = static_cast<uint64_t>(1) << 32;

static uint32_t TakeNumber(Input *input, unsigned bytes) {
    uint32_t number = 0;
    for (unsigned i = 0; i < bytes; i++)
        number |= static_cast<uint32_t>(TakeByte(input)) << (8 * i);
    return number;
}

static Input TakeCounted(Input *input) {
    uint8_t length = TakeByte(input);
    return TakeBytes(input, length);
}

static void PutPiece(Input *input) {
    uint64_t address = TakeNumber(input, 4);
    Input piece = TakeBytes(input, TakeNumber(input, 2));
    uint64_t room = MEMORY_END - address;
    BoardPoke(address, piece.bytes, piece.length < room ? piece.length : room);
}

void FuzzTables(Input input) {
    Words words;
    ChooseCommand(TakeByte(&input), &words);
    Input word = TakeCounted(&input);
    if (word.length != 0)
        AddWord(&words, reinterpret_cast<const char *>(word.bytes), word.length);
    Input systemTable = TakeCounted(&input);
    SetSystemTable(reinterpret_cast<const char *>(systemTable.bytes), systemTable.length);
    while (input.length != 0)
        PutPiece(&input);
    RunWithHardware(RunTableCommand, &words);
}
