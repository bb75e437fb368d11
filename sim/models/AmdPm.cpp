// AMD BKDG for family 16h models 30h-3Fh (52740), 3.26.3: IOCD6 PM_Index, IOCD7 PM_Data, both read-write.
#include "AmdPm.h"

#include "../Arena.h"
#include "../Mistake.h"
#include "../Ports.h"

namespace {

constexpr uint16_t PM_INDEX = 0xCD6;
constexpr int REGISTERS = 0x100;
constexpr int MAX_FOLLOWERS = 8;

struct Follower {
    void (*changed)(void *device);
    void *device;
};

struct AmdPm {
    uint8_t registers[REGISTERS];
    uint8_t index;
};

AmdPm *gPm;
bool gPresent;
Follower gFollowers[MAX_FOLLOWERS];
int gFollowerCount;

uint32_t Read(void *, uint16_t port, unsigned) {
    return port == PM_INDEX ? gPm->index : gPm->registers[gPm->index];
}

void Write(void *, uint16_t port, unsigned, uint32_t value) {
    if (port == PM_INDEX) {
        gPm->index = static_cast<uint8_t>(value);
        return;
    }
    gPm->registers[gPm->index] = static_cast<uint8_t>(value);
    AmdPmPlaceDevices();
}

} // namespace

void AmdPmReset() {
    gPm = static_cast<AmdPm *>(ArenaTakeRegisters(sizeof(AmdPm)));
    gFollowerCount = 0;
    gPresent = false;
}

void NeedAmdPm(const BoardLine *line) {
    if (!gPresent && !line->captured)
        LineFail(line, "no \"pm-registers\" line comes before", line->words[0]);
}

void AmdPmLine(BoardLine *) {
    gPresent = true;
    ClaimPorts(PM_INDEX, 2, WIDTH_8, Read, Write, nullptr);
}

void AmdPmBytesLine(BoardLine *line) {
    NeedAmdPm(line);
    uint32_t first = static_cast<uint32_t>(LineNumber(line, 1, REGISTERS - 1));
    LineWord(line, 2);
    for (int i = 2; i < line->count; i++) {
        uint32_t at = first + static_cast<uint32_t>(i) - 2;
        if (at >= REGISTERS)
            LineFail(line, "there are 256 registers", LineWord(line, i));
        gPm->registers[at] = static_cast<uint8_t>(LineNumber(line, i, 0xFF));
    }
    AmdPmPlaceDevices();
}

void AmdPmPlaceDevices() {
    for (int i = 0; i < gFollowerCount; i++)
        gFollowers[i].changed(gFollowers[i].device);
}

uint8_t AmdPmRegister(uint8_t index) {
    return gPm->registers[index];
}

void AmdPmFollow(void (*changed)(void *device), void *device) {
    if (gFollowerCount == MAX_FOLLOWERS)
        BoardFail("more than %d devices follow the power-management registers", MAX_FOLLOWERS);
    gFollowers[gFollowerCount++] = {changed, device};
}
