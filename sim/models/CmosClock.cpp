// MC146818A data sheet: "Time, Calendar, and Alarm Locations", "Update Cycle" (the cycle takes 1984 us with a
// 32,768 Hz crystal and is announced 244 us ahead), registers A to C.
#include "CmosClock.h"

#include "../Arena.h"
#include "SimplePorts.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

enum : uint8_t {
    B_HOURS_24 = 0x02,
    B_BINARY = 0x04,
    B_UPDATE_INTERRUPT = 0x10,
    B_ALARM_INTERRUPT = 0x20,
    B_SET = 0x80, // the time is being set: no updates
    C_UPDATE_ENDED = 0x10,
    C_ALARM = 0x20,
    C_INTERRUPT = 0x80,
    HOURS_PM = 0x80,
    ALARM_DOES_NOT_MATTER = 0xC0, // this and above: every hour, minute or second
};

constexpr uint64_t SECOND = 1000000; // in microseconds of the clock
constexpr uint64_t ANNOUNCEMENT = 244;
constexpr uint64_t CYCLE = 1984;
constexpr uint64_t DAY = 86400;          // in seconds
constexpr uint64_t CALENDAR = 7 * 36525; // in days: then the date and the day of the week come again

ClockSource gSource;
uint64_t gFactor;
uint64_t gHostAhead; // of the time since the host's start

struct Progress {
    uint64_t seen;    // microseconds of the source, when the clock was last looked at
    uint64_t elapsed; // of the clock's, in its present second
    uint64_t stuckPolls;
    bool alarm;
};

Progress *gProgress;

uint8_t InRegisterForm(const uint8_t *registers, unsigned value) {
    return static_cast<uint8_t>(registers[RTC_B] & B_BINARY ? value : value / 10 * 16 + value % 10);
}

unsigned FromRegisterForm(const uint8_t *registers, unsigned value) {
    return registers[RTC_B] & B_BINARY ? value : value / 16 * 10 + value % 16;
}

uint8_t HoursInRegisterForm(const uint8_t *registers, unsigned hours) {
    if (registers[RTC_B] & B_HOURS_24)
        return InRegisterForm(registers, hours);
    unsigned shown = hours % 12 == 0 ? 12 : hours % 12;
    return static_cast<uint8_t>(InRegisterForm(registers, shown) | (hours >= 12 ? HOURS_PM : 0));
}

unsigned HoursFromRegisterForm(const uint8_t *registers, unsigned value) {
    if (registers[RTC_B] & B_HOURS_24)
        return FromRegisterForm(registers, value);
    unsigned shown = FromRegisterForm(registers, value & ~static_cast<unsigned>(HOURS_PM));
    return shown % 12 + (value & HOURS_PM ? 12 : 0);
}

// Days since a Sunday, in the Gregorian calendar, with the year beginning in March.
unsigned DayOfWeek(const ClockTime *time) {
    unsigned month = (time->month + 9) % 12;
    unsigned year = time->year - (time->month < 3);
    unsigned days = 365 * year + year / 4 - year / 100 + year / 400 + (month * 306 + 5) / 10 + time->day - 1;
    return (days + 3) % 7 + 1; // 0000-03-01 was a Wednesday
}

// The clock knows a year by its last two digits: every fourth one has 29 days in February.
unsigned DaysInMonth(unsigned year, unsigned month) {
    static const uint8_t DAYS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && year % 4 == 0 ? 29 : DAYS[(month - 1) % 12];
}

// Counts a register on from `first` to `last` and round again; true when it went round.
bool Count(uint8_t *registers, int which, unsigned first, unsigned last) {
    unsigned value = FromRegisterForm(registers, registers[which]);
    bool round = value >= last;
    registers[which] = InRegisterForm(registers, round ? first : value + 1);
    return round;
}

bool CountHours(uint8_t *registers) {
    unsigned hours = HoursFromRegisterForm(registers, registers[RTC_HOURS]);
    bool round = hours >= 23;
    registers[RTC_HOURS] = HoursInRegisterForm(registers, round ? 0 : hours + 1);
    return round;
}

void CountDate(uint8_t *registers) {
    unsigned month = FromRegisterForm(registers, registers[RTC_MONTH]);
    unsigned year = FromRegisterForm(registers, registers[RTC_YEAR]);
    Count(registers, RTC_DAY_OF_WEEK, 1, 7);
    if (Count(registers, RTC_DAY, 1, DaysInMonth(year, month)) && Count(registers, RTC_MONTH, 1, 12))
        Count(registers, RTC_YEAR, 0, 99);
}

bool AlarmMatches(const uint8_t *registers, int alarm, int time) {
    return registers[alarm] >= ALARM_DOES_NOT_MATTER || registers[alarm] == registers[time];
}

void Raise(uint8_t *registers, uint8_t flag, uint8_t enable) {
    registers[RTC_C] |= flag;
    if (registers[RTC_B] & enable)
        registers[RTC_C] |= C_INTERRUPT;
}

void Update(uint8_t *registers) {
    if (Count(registers, RTC_SECONDS, 0, 59) && Count(registers, RTC_MINUTES, 0, 59) && CountHours(registers))
        CountDate(registers);
    Raise(registers, C_UPDATE_ENDED, B_UPDATE_INTERRUPT);
    if (!AlarmMatches(registers, RTC_SECONDS_ALARM, RTC_SECONDS) ||
        !AlarmMatches(registers, RTC_MINUTES_ALARM, RTC_MINUTES) ||
        !AlarmMatches(registers, RTC_HOURS_ALARM, RTC_HOURS))
        return;
    Raise(registers, C_ALARM, B_ALARM_INTERRUPT);
    if (registers[RTC_B] & B_ALARM_INTERRUPT)
        gProgress->alarm = true;
}

// Many seconds cost no more than two days: then the time of day, and with it the alarm, has been what it is
// going to be, and only the date goes on.
void PassSeconds(uint8_t *registers, uint64_t seconds) {
    if (registers[RTC_B] & B_SET)
        return;
    uint64_t days = seconds > 2 * DAY ? seconds / DAY - 1 : 0;
    for (uint64_t left = seconds - days * DAY; left > 0; left--)
        Update(registers);
    for (days %= CALENDAR; days > 0; days--)
        CountDate(registers);
}

uint64_t HostMicroseconds(clockid_t clock) {
    timespec now = {};
    syscall(SYS_clock_gettime, clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * SECOND + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

// From one process to the next the host's time of day goes on, within one nobody may set it.
uint64_t SourceMicroseconds() {
    return gSource == CLOCK_BY_HOST ? gHostAhead + HostMicroseconds(CLOCK_MONOTONIC)
                                    : DelayPortMicroseconds();
}

// A duration of the update cycle. On a fast clock it takes as much of the source's time as on a real one, so
// that a reader has the time that it counts on, but at most an eighth of a second of the clock's.
uint64_t Stretched(uint64_t microseconds) {
    uint64_t duration = microseconds * gFactor;
    return duration < SECOND / 8 ? duration : SECOND / 8;
}

// True in the last part of the present second.
bool WithinLast(const uint8_t *registers, uint64_t microseconds) {
    if (gSource == CLOCK_STANDS_STILL || (registers[RTC_B] & B_SET))
        return false;
    return gProgress->elapsed >= SECOND - microseconds;
}

} // namespace

void CmosClockReset() {
    gSource = CLOCK_STANDS_STILL;
    gProgress = static_cast<Progress *>(ArenaTakeRegisters(sizeof(Progress)));
}

void CmosClockStart(ClockSource source, uint64_t factor) {
    gSource = source;
    gFactor = factor;
    gHostAhead = HostMicroseconds(CLOCK_REALTIME) - HostMicroseconds(CLOCK_MONOTONIC);
    gProgress->seen = SourceMicroseconds();
    gProgress->elapsed = 0;
}

void CmosClockStick(uint64_t polls) {
    gProgress->stuckPolls = polls;
}

void CmosClockSet(uint8_t *registers, const ClockTime *time) {
    registers[RTC_SECONDS] = InRegisterForm(registers, time->seconds);
    registers[RTC_MINUTES] = InRegisterForm(registers, time->minutes);
    registers[RTC_HOURS] = HoursInRegisterForm(registers, time->hours);
    registers[RTC_DAY_OF_WEEK] = InRegisterForm(registers, DayOfWeek(time));
    registers[RTC_DAY] = InRegisterForm(registers, time->day);
    registers[RTC_MONTH] = InRegisterForm(registers, time->month);
    registers[RTC_YEAR] = InRegisterForm(registers, time->year % 100);
    registers[RTC_CENTURY] = InRegisterForm(registers, time->year / 100);
}

void CmosClockCatchUp(uint8_t *registers) {
    if (gSource == CLOCK_STANDS_STILL)
        return;
    uint64_t now = SourceMicroseconds();
    if (now > gProgress->seen) // the host's time of day may have been set back since another process
        gProgress->elapsed += (now - gProgress->seen) * gFactor;
    gProgress->seen = now;
    PassSeconds(registers, gProgress->elapsed / SECOND);
    gProgress->elapsed %= SECOND;
}

bool CmosClockAnnouncesUpdate(const uint8_t *registers) {
    if (gProgress->stuckPolls != 0) {
        gProgress->stuckPolls -= gProgress->stuckPolls != STUCK_FOR_EVER;
        return true;
    }
    return WithinLast(registers, Stretched(ANNOUNCEMENT) + Stretched(CYCLE));
}

bool CmosClockUpdates(const uint8_t *registers) {
    return WithinLast(registers, Stretched(CYCLE));
}

bool CmosClockTakeAlarm() {
    bool alarm = gProgress->alarm;
    gProgress->alarm = false;
    return alarm;
}
