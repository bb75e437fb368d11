#include "SimplePorts.h"

#include "../Arena.h"
#include "../Ports.h"

#include <string.h>

namespace {

constexpr size_t PORTS = 0x10000;
constexpr uint32_t USUAL_DELAY_PORT = 0xED;

uint8_t *gStored;
bool gLatched[PORTS];
uint64_t *gMicroseconds;

uint32_t ReadLatch(void *, uint16_t port, unsigned) {
    return gStored[port];
}

void WriteLatch(void *, uint16_t port, unsigned, uint32_t value) {
    gStored[port] = static_cast<uint8_t>(value);
}

void ClaimLatches(uint32_t port, uint32_t count) {
    ClaimPorts(port, count, WIDTH_8, ReadLatch, WriteLatch, nullptr);
    memset(gLatched + port, true, count);
}

void CountMicrosecond(void *, uint16_t, unsigned, uint32_t) {
    (*gMicroseconds)++;
}

} // namespace

void SimplePortsReset() {
    gStored = static_cast<uint8_t *>(ArenaTakeRegisters(PORTS));
    memset(gLatched, 0, sizeof gLatched);
    gMicroseconds = static_cast<uint64_t *>(ArenaTakeRegisters(sizeof(uint64_t)));
}

void LatchPortLine(BoardLine *line) {
    uint32_t port = static_cast<uint32_t>(LineNumber(line, 1, 0xFFFF));
    uint32_t count = static_cast<uint32_t>(LineCount(line, 2, 0x10000 - port));
    bool counting = LineHas(line, 3, "counting");
    uint8_t value = line->count > 3 && !counting ? static_cast<uint8_t>(LineNumber(line, 3, 0xFF)) : 0;
    ClaimLatches(port, count);
    for (uint32_t i = 0; i < count; i++)
        gStored[port + i] = counting ? static_cast<uint8_t>(i) : value;
}

void LatchPortSet(uint16_t port, uint8_t value) {
    if (!gLatched[port])
        ClaimLatches(port, 1);
    gStored[port] = value;
}

uint8_t LatchPortGet(uint16_t port) {
    return gStored[port];
}

namespace {

struct Constant {
    uint16_t port;
    uint8_t bytes[MAX_WORDS];
};

uint32_t ReadConstant(void *device, uint16_t port, unsigned) {
    const Constant *constant = static_cast<const Constant *>(device);
    return constant->bytes[port - constant->port];
}

} // namespace

void ConstantPortLine(BoardLine *line) {
    Constant *constant = static_cast<Constant *>(ArenaTake(sizeof(Constant)));
    constant->port = static_cast<uint16_t>(LineNumber(line, 1, 0xFFFF));
    LineWord(line, 2);
    if (constant->port + line->count - 3 > 0xFFFF)
        LineFail(line, "the ports end at ffff", line->words[line->count - 1]);
    for (int i = 2; i < line->count; i++)
        constant->bytes[i - 2] = static_cast<uint8_t>(LineNumber(line, i, 0xFF));
    ClaimPorts(constant->port, static_cast<uint32_t>(line->count - 2), WIDTH_8, ReadConstant, nullptr,
               constant);
}

static void ClaimDelay(uint32_t port) {
    ClaimPorts(port, 1, WIDTH_8, nullptr, CountMicrosecond, nullptr);
}

void DelayPortStart() {
    ClaimDelay(USUAL_DELAY_PORT);
}

void DelayPortLine(BoardLine *line) {
    ClaimDelay(static_cast<uint32_t>(LineNumber(line, 1, 0xFFFF)));
}

uint64_t DelayPortMicroseconds() {
    return *gMicroseconds;
}
