#include "Answers.h"

#include "../AnswerDoors.h"
#include "../Memory.h"
#include "../Ports.h"

namespace {

constexpr uint32_t DELAY_PORT = 0xED;
constexpr uint32_t PCI_PORTS = 0xCF8; // configuration mechanism 1: address and data, 8 ports
constexpr uint32_t PCI_PORTS_END = 0xD00;
constexpr uint32_t ALL_PORTS_END = 0x10000;
constexpr uint64_t DEVICE_MEMORY = 0x80000000;

const uint8_t *gNext;
const uint8_t *gEnd;
uint8_t gRest;
bool gMsrs;

uint64_t NextAnswer(unsigned width) {
    uint64_t value = 0;
    for (unsigned i = 0; i < width; i++)
        value |= static_cast<uint64_t>(gNext < gEnd ? *gNext++ : gRest) << (8 * i);
    return value;
}

uint32_t AnswerPort(void *, uint16_t, unsigned width) {
    return static_cast<uint32_t>(NextAnswer(width));
}

uint32_t AnswerMemory(void *, uint64_t, unsigned width) {
    return static_cast<uint32_t>(NextAnswer(width));
}

void ClaimPortsBetween(uint32_t start, uint32_t end) {
    ClaimPorts(start, end - start, WIDTH_ANY, AnswerPort, nullptr, nullptr);
}

} // namespace

void AnswersStart(unsigned doors, const void *bytes, uint64_t length, uint8_t rest) {
    gNext = static_cast<const uint8_t *>(bytes);
    gEnd = gNext + length;
    gRest = rest;
    gMsrs = (doors & ANSWER_MSRS) != 0;
    if (doors & ANSWER_PCI_PORTS)
        ClaimPortsBetween(PCI_PORTS, PCI_PORTS_END);
    if (doors & ANSWER_OTHER_PORTS) { // but for the port that keeps the board's time
        ClaimPortsBetween(0, DELAY_PORT);
        ClaimPortsBetween(DELAY_PORT + 1, PCI_PORTS);
        ClaimPortsBetween(PCI_PORTS_END, ALL_PORTS_END);
    }
    if (doors & ANSWER_DEVICE_MEMORY)
        ClaimMemory(DEVICE_MEMORY, DEVICE_MEMORY, AnswerMemory, nullptr, nullptr);
}

void AnswersReset() {
    gMsrs = false;
}

bool AnswerMsr(uint64_t *value) {
    if (gMsrs)
        *value = NextAnswer(sizeof *value);
    return gMsrs;
}
