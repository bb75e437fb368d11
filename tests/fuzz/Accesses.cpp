// The program's accesses go to the board straight away: an instruction that faults takes many times as long.
#include "Fuzzed.h"
#include "Fuzzers.h"
#include "goals/Machine.h"
#include "sim/Board.h"

constexpr uint16_t DELAY_PORT = 0xED;

static uint32_t Read(uint32_t port, unsigned width) {
    if (MachineIsOn())
        return MachineReadPort(port, width);
    BoardSettle();
    return BoardPortRead(static_cast<uint16_t>(port), width);
}

static void Write(uint32_t port, unsigned width, uint32_t value) {
    if (MachineIsOn())
        return MachineWritePort(port, width, value);
    BoardSettle();
    BoardPortWrite(static_cast<uint16_t>(port), width, value);
}

void FailBeyondMapping() {
    Fail("an access beyond what is mapped of it", "physical memory");
}

extern "C" {

uint32_t __wrap__Z7IoRead8j(uint32_t port) {
    return Read(port, 1);
}

uint32_t __wrap__Z8IoRead16j(uint32_t port) {
    return Read(port, 2);
}

uint32_t __wrap__Z8IoRead32j(uint32_t port) {
    return Read(port, 4);
}

void __wrap__Z8IoWrite8jj(uint32_t port, uint32_t value) {
    Write(port, 1, value & 0xFF);
}

void __wrap__Z9IoWrite16jj(uint32_t port, uint32_t value) {
    Write(port, 2, value & 0xFFFF);
}

void __wrap__Z9IoWrite32jj(uint32_t port, uint32_t value) {
    Write(port, 4, value);
}

void __wrap__Z7IoDelayj(uint32_t count) {
    if (MachineIsOn())
        return MachineDelay(count);
    for (; count > 0; --count)
        Write(DELAY_PORT, 1, 0);
}

void __wrap__Z8GetCpuIdjPj(uint32_t leaf, uint32_t registers[4]) {
    if (!MachineCpuid(leaf, registers))
        BoardCpuid(leaf, 0, registers);
}
}
