// MC146818A data sheet (address map, registers A to D). Ports, the NMI mask in bit 7 of port 70h and the
// second bank as in Intel's 300 series chipset data sheet, volume 2, real-time clock; neither index port can
// be read back.
#include "Cmos.h"

#include "../Arena.h"
#include "../Ports.h"
#include "CmosClock.h"

namespace {

constexpr uint8_t BANK_SIZE = 0x80;

enum : uint8_t {
    A_DEFAULT = 0x26, // 32,768 Hz, periodic rate of 976 us
    B_DEFAULT = 0x02, // BCD, 24 hours
    D_VALID = 0x80,   // read-only: the battery is good
    D_DATE_ALARM = 0x3F,
};

struct Bank {
    uint8_t index;
    uint8_t bytes[BANK_SIZE];
};

struct Cmos {
    Bank clock;    // 70h and 71h
    Bank extended; // 72h and 73h
};

Cmos *gCmos;

// The byte that the index names, whatever a state file has in it.
uint8_t IndexOf(const Bank *bank) {
    return bank->index & (BANK_SIZE - 1);
}

void WriteIndex(void *device, uint16_t, unsigned, uint32_t value) {
    static_cast<Bank *>(device)->index = value & (BANK_SIZE - 1);
}

uint32_t ReadClock(void *device, uint16_t, unsigned) {
    Bank *bank = static_cast<Bank *>(device);
    CmosClockCatchUp(bank->bytes);
    uint8_t index = IndexOf(bank);
    uint8_t value = bank->bytes[index];
    if (index < RTC_A && CmosClockUpdates(bank->bytes))
        return 0xFF; // undefined
    if (index == RTC_A && CmosClockAnnouncesUpdate(bank->bytes))
        return value | A_UPDATE_IN_PROGRESS;
    if (index == RTC_C) // reading acknowledges the interrupts
        bank->bytes[RTC_C] = 0;
    return value;
}

void WriteClock(void *device, uint16_t, unsigned, uint32_t value) {
    Bank *bank = static_cast<Bank *>(device);
    CmosClockCatchUp(bank->bytes);
    uint8_t index = IndexOf(bank);
    if (index < RTC_A && CmosClockUpdates(bank->bytes))
        return; // lost
    uint8_t *byte = &bank->bytes[index];
    switch (index) {
    case RTC_A:
        *byte = static_cast<uint8_t>((*byte & A_UPDATE_IN_PROGRESS) |
                                     (value & static_cast<uint8_t>(~A_UPDATE_IN_PROGRESS)));
        break;
    case RTC_C:
        break;
    case RTC_D:
        *byte = static_cast<uint8_t>((*byte & D_VALID) | (value & D_DATE_ALARM));
        break;
    default:
        *byte = static_cast<uint8_t>(value);
        break;
    }
}

uint32_t ReadExtended(void *device, uint16_t, unsigned) {
    const Bank *bank = static_cast<const Bank *>(device);
    return bank->bytes[IndexOf(bank)];
}

void WriteExtended(void *device, uint16_t, unsigned, uint32_t value) {
    Bank *bank = static_cast<Bank *>(device);
    bank->bytes[IndexOf(bank)] = static_cast<uint8_t>(value);
}

// A decimal number of so many digits and the character behind it (0 at the word's end); moves on.
unsigned TakeNumber(const BoardLine *line, int word, const char **at, int digits, char end,
                    unsigned maximum) {
    unsigned value = 0;
    for (int i = 0; i < digits; i++, ++*at) {
        if (**at < '0' || **at > '9')
            LineFail(line, "neither YYYY-MM-DD nor HH:MM:SS", line->words[word]);
        value = value * 10 + unsigned(**at - '0');
    }
    if (**at != end || value > maximum)
        LineFail(line, "neither YYYY-MM-DD nor HH:MM:SS", line->words[word]);
    if (end)
        ++*at;
    return value;
}

unsigned DaysOfMonth(unsigned year, unsigned month) {
    static const uint8_t DAYS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : DAYS[month - 1];
}

void NeedCmos(const BoardLine *line) {
    if (!gCmos)
        LineFail(line, "the board has no cmos yet", nullptr);
}

} // namespace

void CmosReset() {
    gCmos = nullptr;
    CmosClockReset();
}

bool CmosTakeAlarm() {
    if (gCmos)
        CmosClockCatchUp(gCmos->clock.bytes);
    return CmosClockTakeAlarm();
}

void CmosLine(BoardLine *line) {
    if (gCmos)
        LineFail(line, "the board has a cmos already", nullptr);
    gCmos = static_cast<Cmos *>(ArenaTakeRegisters(sizeof(Cmos)));
    gCmos->clock.bytes[RTC_A] = A_DEFAULT;
    gCmos->clock.bytes[RTC_B] = B_DEFAULT;
    gCmos->clock.bytes[RTC_D] = D_VALID;
    const ClockTime start = {2000, 1, 1, 0, 0, 0};
    CmosClockSet(gCmos->clock.bytes, &start);
    ClaimPorts(0x70, 1, WIDTH_8, nullptr, WriteIndex, &gCmos->clock);
    ClaimPorts(0x71, 1, WIDTH_8, ReadClock, WriteClock, &gCmos->clock);
    ClaimPorts(0x72, 1, WIDTH_8, nullptr, WriteIndex, &gCmos->extended);
    ClaimPorts(0x73, 1, WIDTH_8, ReadExtended, WriteExtended, &gCmos->extended);
}

void CmosBytesLine(BoardLine *line) {
    NeedCmos(line);
    uint32_t first = static_cast<uint32_t>(LineNumber(line, 1, 2 * BANK_SIZE - 1));
    LineWord(line, 2);
    for (int i = 2; i < line->count; i++) {
        uint32_t at = first + static_cast<uint32_t>(i) - 2;
        if (at >= 2 * BANK_SIZE)
            LineFail(line, "more bytes than there are behind the index", LineWord(line, 1));
        Bank *bank = at < BANK_SIZE ? &gCmos->clock : &gCmos->extended;
        bank->bytes[at % BANK_SIZE] = LineByte(line, i);
    }
}

void CmosTimeLine(BoardLine *line) {
    NeedCmos(line);
    ClockTime time;
    const char *at = LineWord(line, 1);
    time.year = TakeNumber(line, 1, &at, 4, '-', 9999);
    time.month = TakeNumber(line, 1, &at, 2, '-', 12);
    time.day = TakeNumber(line, 1, &at, 2, 0, 31);
    at = LineWord(line, 2);
    time.hours = TakeNumber(line, 2, &at, 2, ':', 23);
    time.minutes = TakeNumber(line, 2, &at, 2, ':', 59);
    time.seconds = TakeNumber(line, 2, &at, 2, 0, 59);
    if (time.month == 0 || time.day == 0 || time.day > DaysOfMonth(time.year, time.month))
        LineFail(line, "no day of the calendar", line->words[1]);
    CmosClockSet(gCmos->clock.bytes, &time);
}

void CmosRunLine(BoardLine *line) {
    NeedCmos(line);
    if (!LineHas(line, 1, "delays") && !LineHas(line, 1, "real"))
        LineFail(line, "neither \"delays\" nor \"real\"", LineWord(line, 1));
    uint64_t factor = line->count > 2 ? LineCount(line, 2, 0xFFFF) : 1;
    CmosClockStart(LineHas(line, 1, "real") ? CLOCK_BY_HOST : CLOCK_BY_DELAYS, factor);
}

void CmosStopLine(BoardLine *line) {
    NeedCmos(line);
    CmosClockStart(CLOCK_STANDS_STILL, 1);
}

void CmosStuckLine(BoardLine *line) {
    NeedCmos(line);
    CmosClockStick(line->count > 1 ? LineNumber(line, 1, UINT32_MAX) : STUCK_FOR_EVER);
}
