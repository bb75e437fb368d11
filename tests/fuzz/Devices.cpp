#include "Command.h"
#include "sim/Board.h"

constexpr uint32_t EXTENDED_SIGNATURE = 0x80000001;
constexpr uint32_t FAMILY_17H_SIGNATURE = 0x00870F10;

// Few processors can make CPUID fault, so the leaf that /SMN and /SMU ask for is answered here: AMD's family
// 17h.
extern "C" void __real__Z8GetCpuIdjPj(uint32_t leaf, uint32_t registers[4]);
extern "C" void __wrap__Z8GetCpuIdjPj(uint32_t leaf, uint32_t registers[4]) {
    __real__Z8GetCpuIdjPj(leaf, registers);
    if (leaf == EXTENDED_SIGNATURE)
        registers[0] = FAMILY_17H_SIGNATURE;
}

void FuzzDevices(Input input) {
    Words words;
    ChooseCommand(TakeByte(&input), &words);
    unsigned doors = TakeByte(&input);
    uint8_t rest = TakeByte(&input);
    BoardAnswer(doors, input.bytes, input.length, rest);
    RunProgram(&words);
}
