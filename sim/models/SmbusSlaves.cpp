#include "SmbusSlaves.h"

#include "../Arena.h"

#include <string.h>

namespace {

constexpr uint32_t PAGE = 256;
constexpr uint32_t NEVER = 2 * PAGE;
constexpr uint8_t SPD_ADDRESSES = 0xA0;
constexpr uint8_t SELECT_PAGE_0 = 0x6C; // SPA0; with the read bit RPA, read page address
constexpr uint8_t SELECT_PAGE_1 = 0x6E; // SPA1; with the read bit it is no command
constexpr uint8_t NOT_DRIVEN = 0xFF;

constexpr unsigned ADDRESSES = 128;

struct Slave {
    bool present, paged;
    uint8_t bytes[2 * PAGE];
    uint32_t writeTime;
    uint64_t answersFrom; // microseconds
    uint32_t stops, collides, holds;
};

struct Bus {
    Slave slaves[ADDRESSES];
    uint32_t spdPage;
};

Bus *gBus;
Slave *gCurrent;  // the one that the lines of the board file are about
LinePlace gPlace; // of its line

Slave *Find(uint8_t address) {
    Slave *slave = &gBus->slaves[address / 2];
    return slave->present ? slave : nullptr;
}

bool HasSpd() {
    for (const Slave &slave : gBus->slaves)
        if (slave.present && slave.paged)
            return true;
    return false;
}

// The slave's answer to its address and the offset in its page, which becomes one in all its bytes.
SmbusOutcome Address(const Slave *slave, uint32_t *offset, uint64_t time) {
    if (!slave || time < slave->answersFrom)
        return SMBUS_NOT_ACKNOWLEDGED;
    if (slave->paged)
        *offset += (gBus->spdPage & 1) * PAGE;
    if (*offset >= slave->collides)
        return SMBUS_COLLISION;
    if (*offset >= slave->holds)
        return SMBUS_HELD;
    return *offset >= slave->stops ? SMBUS_NOT_ACKNOWLEDGED : SMBUS_DONE;
}

// Two notations are about: 50 with 7 bits is a0 with 8.
void NeedWholeAddress(const BoardLine *line, uint8_t address, bool spd) {
    if (spd && (address & 0xF0) != SPD_ADDRESSES)
        LineFail(line, "a module answers at a0 to ae (addresses have 8 bits: 50 is a0)", line->words[1]);
    if (address & 1)
        LineFail(line, "bit 0 of an address is the direction (addresses have 8 bits: 51 is a2)",
                 line->words[1]);
}

void NewSlave(BoardLine *line, bool paged) {
    uint8_t address = static_cast<uint8_t>(LineNumber(line, 1, 0xFF));
    gCurrent = &gBus->slaves[address / 2];
    if (!gCurrent->present) {
        *gCurrent = {};
        gCurrent->present = true;
        gCurrent->stops = gCurrent->collides = gCurrent->holds = NEVER;
    }
    if (!line->captured)
        gPlace = {line->path, line->number};
    gCurrent->paged = paged;
    NeedWholeAddress(line, address, paged);
    for (int i = 2; i < line->count; i++) {
        if (LineOption(line, i, "write-time"))
            gCurrent->writeTime = static_cast<uint32_t>(LineNumber(line, ++i, UINT32_MAX));
        else if (LineOption(line, i, "stops"))
            gCurrent->stops = static_cast<uint32_t>(LineNumber(line, ++i, NEVER));
        else if (LineOption(line, i, "collides"))
            gCurrent->collides = static_cast<uint32_t>(LineNumber(line, ++i, NEVER));
        else if (LineOption(line, i, "holds"))
            gCurrent->holds = static_cast<uint32_t>(LineNumber(line, ++i, NEVER));
        else
            LineFail(line, "none of \"write-time\", \"stops\", \"collides\", \"holds\"", line->words[i]);
    }
}

// Where the contents of the current slave begin that this line gives; `count` bytes are to fit.
uint8_t *Contents(const BoardLine *line, uint32_t offset, uint32_t count) {
    if (!gCurrent)
        LineFail(line, "no slave comes before", line->words[0]);
    if (offset + count > (gCurrent->paged ? 2 * PAGE : PAGE))
        LineFail(line, "beyond the slave's end", line->words[1]);
    return gCurrent->bytes + offset;
}

} // namespace

void SmbusSlavesReset() {
    gBus = static_cast<Bus *>(ArenaTakeRegisters(sizeof(Bus)));
    gCurrent = nullptr;
    gPlace = {};
}

LinePlace SmbusSlavePlace() {
    return gPlace;
}

SmbusOutcome SmbusReadByte(uint8_t address, uint8_t command, uint8_t *data, uint64_t time) {
    const Slave *slave = Find(address);
    if (!slave && HasSpd() && (address & 0xFE) == SELECT_PAGE_0 && gBus->spdPage == 0) {
        *data = NOT_DRIVEN;
        return SMBUS_DONE;
    }
    uint32_t offset = command;
    SmbusOutcome outcome = Address(slave, &offset, time);
    if (outcome == SMBUS_DONE)
        *data = slave->bytes[offset];
    return outcome;
}

SmbusOutcome SmbusWriteByte(uint8_t address, uint8_t command, uint8_t data, uint64_t time) {
    Slave *slave = Find(address);
    bool selects = HasSpd() && (address == SELECT_PAGE_0 || address == SELECT_PAGE_1);
    if (selects)
        gBus->spdPage = address == SELECT_PAGE_1;
    if (!slave && selects)
        return SMBUS_DONE;
    uint32_t offset = command;
    SmbusOutcome outcome = Address(slave, &offset, time);
    if (outcome == SMBUS_DONE) {
        slave->bytes[offset] = data;
        slave->answersFrom = time + slave->writeTime;
    }
    return outcome;
}

void SmbusEepromLine(BoardLine *line) {
    NewSlave(line, false);
}

void SmbusSpdLine(BoardLine *line) {
    NewSlave(line, true);
}

void SmbusRemoveLine(BoardLine *line) {
    Slave *gone = Find(static_cast<uint8_t>(LineNumber(line, 1, 0xFF)));
    if (!gone)
        LineFail(line, "no such slave", line->words[1]);
    gone->present = false;
    gCurrent = nullptr;
}

void SmbusBytesLine(BoardLine *line) {
    LineWord(line, 2);
    uint32_t count = static_cast<uint32_t>(line->count - 2);
    uint8_t *bytes = Contents(line, static_cast<uint32_t>(LineNumber(line, 1, NEVER)), count);
    for (uint32_t i = 0; i < count; i++)
        bytes[i] = LineByte(line, static_cast<int>(i + 2));
}

void SmbusFillLine(BoardLine *line) {
    uint32_t count = static_cast<uint32_t>(LineCount(line, 2, NEVER));
    uint8_t *bytes = Contents(line, static_cast<uint32_t>(LineNumber(line, 1, NEVER)), count);
    bool counting = LineHas(line, 3, "counting");
    uint8_t value = counting ? static_cast<uint8_t>(0) : static_cast<uint8_t>(LineNumber(line, 3, 0xFF));
    for (uint32_t i = 0; i < count; i++)
        bytes[i] = counting ? static_cast<uint8_t>(i) : value;
}
