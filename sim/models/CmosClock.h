// How the CMOS clock counts: the time in its registers, the update cycle once a second, the alarm.
#pragma once

#include <stdint.h>

// Registers of the MC146818A.
enum : uint8_t {
    RTC_SECONDS = 0x00,
    RTC_SECONDS_ALARM = 0x01,
    RTC_MINUTES = 0x02,
    RTC_MINUTES_ALARM = 0x03,
    RTC_HOURS = 0x04,
    RTC_HOURS_ALARM = 0x05,
    RTC_DAY_OF_WEEK = 0x06, // 1 is Sunday
    RTC_DAY = 0x07,
    RTC_MONTH = 0x08,
    RTC_YEAR = 0x09,
    RTC_A = 0x0A,
    RTC_B = 0x0B,
    RTC_C = 0x0C,
    RTC_D = 0x0D,
    RTC_CENTURY = 0x32, // by convention of the firmware; the clock does not count it
};

enum : uint8_t { A_UPDATE_IN_PROGRESS = 0x80 }; // read-only

enum ClockSource { CLOCK_STANDS_STILL, CLOCK_BY_DELAYS, CLOCK_BY_HOST };

constexpr uint64_t STUCK_FOR_EVER = UINT64_MAX;

struct ClockTime {
    unsigned year, month, day, hours, minutes, seconds;
};

void CmosClockReset();

// What makes the clock run, and how many times as fast.
void CmosClockStart(ClockSource source, uint64_t factor);

// Register A announces an update in its next so many reads.
void CmosClockStick(uint64_t polls);

// Puts a time into the registers, in the form that register B asks for.
void CmosClockSet(uint8_t *registers, const ClockTime *time);

// To be called before each access: lets the time pass that has passed since the last one, which may lie in
// another process or long ago.
void CmosClockCatchUp(uint8_t *registers);

// True in an update cycle, and in the time before it in which register A announces it. To be asked once for
// each read of register A.
bool CmosClockAnnouncesUpdate(const uint8_t *registers);

// True while the cycle is under way: the first ten registers are out of reach.
bool CmosClockUpdates(const uint8_t *registers);

// True when an alarm interrupt has come since this was asked before.
bool CmosClockTakeAlarm();
