// clock: the battery-backed clock and its alarm, against one whose registers hold what the input says, BCD or
// not, with updates between the reads. Asserted: the time that was read last, of reads that give no time
// again; the alarm's registers against the rule in the header; the bits of the PM1 block; registers that are
// read in order.
#include <string.h>

#include "Common/ComFunc/Numeral.h"
#include "Goal.h"
#include "Machine.h"
#include "Platform/CmosClock.h"
#include "Platform/PmBase.h"

namespace {

constexpr uint16_t PM_BLOCK = 0x800;
constexpr uint32_t DAY = 86400;
constexpr uint32_t MOST_READS = 9; // of a time that is none

struct Chip {
    uint8_t index;
    uint8_t registers[128];
    uint8_t pm[4];
    bool answers; // times come from the input, one byte a register
    uint32_t timeReads;
    uint8_t last[3];   // hours, minutes, seconds as they were read last
    uint32_t updating; // reads of register A that still find an update
};
Chip gChip;
Input *gAnswers;

uint8_t *RegisterOf(uint8_t index) {
    return &gChip.registers[index & 0x7F];
}

uint8_t ReadClock() {
    uint8_t index = gChip.index & 0x7F;
    if (index == 0x0A) {
        bool updating = gChip.updating > 0;
        gChip.updating -= updating;
        return static_cast<uint8_t>((*RegisterOf(index) & 0x7F) | (updating ? 0x80 : 0));
    }
    if (index != 0 && index != 2 && index != 4)
        return *RegisterOf(index);
    uint8_t value = gChip.answers ? TakeByte(gAnswers) : *RegisterOf(index);
    gChip.timeReads++;
    return gChip.last[2 - index / 2] = value;
}

uint32_t ReadPort(uint16_t port, unsigned width) {
    if (port == 0x71 && width == 1)
        return ReadClock();
    uint32_t value = 0;
    Expect(port >= PM_BLOCK && port + width <= PM_BLOCK + 4u, "the clock's ports and the PM1 block's");
    memcpy(&value, gChip.pm + (port - PM_BLOCK), width);
    return value;
}

void WritePort(uint16_t port, unsigned width, uint32_t value) {
    if (port == 0x70 && width == 1)
        gChip.index = static_cast<uint8_t>(value);
    else if (port == 0x71 && width == 1)
        *RegisterOf(gChip.index) = static_cast<uint8_t>(value);
    else {
        Expect(port >= PM_BLOCK && port + width <= PM_BLOCK + 4u, "the clock's ports and the PM1 block's");
        memcpy(gChip.pm + (port - PM_BLOCK), &value, width);
    }
}

bool IsBcdByte(uint8_t value) {
    return value % 16 < 10 && value / 16 < 10;
}

uint8_t Binary(uint8_t value, bool bcd) {
    return bcd ? static_cast<uint8_t>(value % 16 + value / 16 * 10) : value;
}

bool IsTimeOfDay(const uint8_t *raw, bool bcd) {
    bool digits = !bcd || (IsBcdByte(raw[0]) && IsBcdByte(raw[1]) && IsBcdByte(raw[2]));
    return digits && Binary(raw[0], bcd) < 24 && Binary(raw[1], bcd) < 60 && Binary(raw[2], bcd) < 60;
}

// The answers, three at a time in the order hours, minutes, seconds, until they are a time.
uint32_t ModelReads(Input answers, bool bcd) {
    uint32_t reads = 0;
    uint8_t raw[3];
    do {
        for (uint8_t &part : raw)
            part = TakeByte(&answers);
        reads++;
    } while (!IsTimeOfDay(raw, bcd) && reads < MOST_READS);
    return reads;
}

void CheckTime(bool bcd) {
    gChip.answers = true;
    uint32_t reads = ModelReads(*gAnswers, bcd);
    TimeOfDay time = GetTimeOfDay();
    Expect(gChip.timeReads == 3 * reads, "registers that are no time are read again, up to eight times");
    Expect(time.hours == Binary(gChip.last[0], bcd) && time.minutes == Binary(gChip.last[1], bcd) &&
               time.seconds == Binary(gChip.last[2], bcd),
           "the time that was read last");
    gAnswers->length = 0;
    gChip.answers = false;
    uint8_t noon[] = {12, 34, 56};
    for (uint8_t i = 0; i < 3; i++)
        *RegisterOf(static_cast<uint8_t>(4 - 2 * i)) = bcd ? DecimalToHex8(noon[i]) : noon[i];
    Expect(GetTotalSec() == 12 * 3600 + 34 * 60 + 56, "seconds since midnight");
}

// The header's rule, in decimal: the hour as its stored byte, modulo 24 of that byte beyond 23h.
uint8_t ModelHour(uint32_t seconds, bool bcd) {
    uint8_t hours = static_cast<uint8_t>(seconds / 3600);
    uint8_t stored = bcd ? static_cast<uint8_t>(hours / 10 * 16 + hours % 10) : hours;
    return stored > 0x23 ? stored % 24 : stored;
}

void CheckAlarm(Input *input, bool bcd) {
    uint32_t seconds = static_cast<uint32_t>(TakeOdd(input, 32));
    seconds = TakeByte(input) & 1 ? seconds % (2 * DAY) : seconds;
    TimeOfDay alarm = AlarmRegisters(seconds, bcd);
    Expect(Binary(alarm.minutes, bcd) == seconds / 60 % 60 && Binary(alarm.seconds, bcd) == seconds % 60,
           "the alarm's minute and second");
    Expect(alarm.hours == ModelHour(seconds, bcd), "the alarm's hour");
    uint8_t before = *RegisterOf(0x0B);
    uint8_t valid = *RegisterOf(0x0D);
    uint8_t enabled = gChip.pm[3];
    size_t printed;
    BeginOutput();
    SetRtcWakeupTimer2CMOS(seconds);
    EndOutputOf(&printed);
    Expect(*RegisterOf(1) == alarm.seconds && *RegisterOf(3) == alarm.minutes &&
               *RegisterOf(5) == alarm.hours,
           "the alarm's registers");
    Expect(*RegisterOf(0x0B) == (before | 0x20) && *RegisterOf(0x0D) == (valid & 0x80),
           "the alarm is enabled");
    Expect(gChip.pm[3] == (enabled | 4), "the PM1 block lets the clock wake the machine");
    Expect(printed != 0, "the alarm is told");
}

void CheckRegisters(Input *input) {
    uint8_t index = TakeByte(input) & 0x7F;
    uint8_t value = TakeByte(input);
    uint8_t buffer[15];
    buffer[14] = 0xEE;
    Set8IO7071(index, value);
    Expect(*RegisterOf(index) == value, "a register is written");
    Expect(getRTCData(buffer) == 14 && buffer[14] == 0xEE, "fourteen registers");
    for (uint8_t i = 0; i < 14; i++)
        Expect(buffer[i] == (i == 0x0A ? *RegisterOf(i) & 0x7F : *RegisterOf(i)), "the registers in order");
}

} // namespace

void FuzzClock(Input input) {
    static const Machine machine = {ReadPort, WritePort, nullptr, nullptr, nullptr, nullptr, nullptr};
    uint8_t form = TakeByte(&input);
    bool bcd = (form & 1) != 0;
    gChip = {};
    Input *answers = &input;
    gAnswers = answers;
    gChip.updating = TakeByte(answers) % 8;
    for (uint8_t &byte : gChip.pm)
        byte = TakeByte(answers);
    *RegisterOf(0x0B) = static_cast<uint8_t>((TakeByte(answers) & ~4) | (bcd ? 0 : 4));
    *RegisterOf(0x0D) = TakeByte(answers);
    BcdData = 0xFF;
    PmAddress = {PM_BLOCK, 0xCF9, 6};
    StartMachine(&machine);
    Expect((isCmosInBCD() != 0) == bcd, "the number format");
    switch (form >> 1 & 3) {
    case 0:
    case 1:
        CheckTime(bcd);
        break;
    case 2:
        CheckAlarm(answers, bcd);
        break;
    default:
        CheckRegisters(answers);
        break;
    }
    StopMachine();
    PmAddress = {0, 0, 0};
    gAnswers = nullptr;
}
