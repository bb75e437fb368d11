#include "Sequence.h"

#include "../Arena.h"
#include "../Memory.h"

namespace {

struct Sequence {
    uint32_t count, next;
    uint32_t values[MAX_WORDS];
};

uint32_t ReadNext(void *device, uint64_t, unsigned) {
    Sequence *sequence = static_cast<Sequence *>(device);
    uint32_t value = sequence->values[sequence->next % MAX_WORDS]; // a state file may say what it likes
    if (sequence->next + 1 < sequence->count)
        sequence->next++;
    return value;
}

} // namespace

void SequenceLine(BoardLine *line) {
    Sequence *sequence = static_cast<Sequence *>(ArenaTakeRegisters(sizeof(Sequence)));
    uint64_t address = LineAddress(line, 1);
    if (address % 4 != 0)
        LineFail(line, "dwords stand at multiples of 4", line->words[1]);
    LineWord(line, 2);
    for (int i = 2; i < line->count; i++)
        sequence->values[sequence->count++] = static_cast<uint32_t>(LineNumber(line, i, UINT32_MAX));
    ClaimMemory(address, 4, ReadNext, nullptr, sequence);
}
