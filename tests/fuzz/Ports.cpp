// The program's port accesses go to the board straight away: an instruction that faults takes many times as
// long.
#include "sim/Board.h"

constexpr uint16_t DELAY_PORT = 0xED;

extern "C" {

uint32_t __wrap__Z7IoRead8j(uint32_t port) {
    return BoardPortRead(static_cast<uint16_t>(port), 1);
}

uint32_t __wrap__Z8IoRead16j(uint32_t port) {
    return BoardPortRead(static_cast<uint16_t>(port), 2);
}

uint32_t __wrap__Z8IoRead32j(uint32_t port) {
    return BoardPortRead(static_cast<uint16_t>(port), 4);
}

void __wrap__Z8IoWrite8jj(uint32_t port, uint32_t value) {
    BoardPortWrite(static_cast<uint16_t>(port), 1, value & 0xFF);
}

void __wrap__Z9IoWrite16jj(uint32_t port, uint32_t value) {
    BoardPortWrite(static_cast<uint16_t>(port), 2, value & 0xFFFF);
}

void __wrap__Z9IoWrite32jj(uint32_t port, uint32_t value) {
    BoardPortWrite(static_cast<uint16_t>(port), 4, value);
}

void __wrap__Z7IoDelayj(uint32_t count) {
    for (; count > 0; --count)
        BoardPortWrite(DELAY_PORT, 1, 0);
}
}
