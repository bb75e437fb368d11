// The battery-backed clock behind ports 70h/71h (MC146818A): time of day, alarm, wake-up. Times are seconds
// since midnight; the 12-hour mode is not considered.
//
// No command reaches: getRTCData.
#pragma once

#include <cstdint>

// The clock's number format in this process: 0xFF not known yet, 1 BCD, 0 binary.
extern uint8_t BcdData;

struct TimeOfDay {
    uint8_t hours, minutes, seconds; // binary, or as the registers hold them where that is said
};

// One CMOS register.
uint8_t Get8IO7071(uint8_t index);
void Set8IO7071(uint8_t index, uint8_t value);

// 1 when the clock counts in BCD, else 0; asked once per process.
uint8_t isCmosInBCD();

// Waits until the clock is outside an update cycle. False, after a message, when it stays in one for
// 0x10000000 polls.
bool WaitInProgress();

// The clock's time, outside an update cycle. Registers that cannot be a time are read again, up to eight
// times; a clock that never gives one gives what was read last.
TimeOfDay GetTimeOfDay();

// The same in seconds since midnight.
uint32_t GetTotalSec();

// The alarm's register values for a time: in BCD or binary, then wrapped by the BCD limits in both formats.
// Past midnight (86,400 and more) the hour is thus wrapped as its stored byte, in BCD modulo 24 of the BCD
// byte and in binary only from 36 on. Intended: an alarm past the next midnight may name an hour that the
// clock never shows, and the machine then stays off.
TimeOfDay AlarmRegisters(uint32_t seconds, bool bcd);

// Programs the alarm for a time of day, by these register values, and enables its interrupt.
void SetTotalSec(uint32_t seconds);

// Clears RTC_STS and sets RTC_EN in the PM1 block (ACPI 6.4, 4.8.3.1), then programs the alarm.
void SetRtcWakeupTimer2CMOS(uint32_t seconds);

// Copies registers 0x00-0x0D into a buffer of 14 bytes. Always 14.
int getRTCData(uint8_t *buffer);
