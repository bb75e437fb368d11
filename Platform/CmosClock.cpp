#include "Platform/CmosClock.h"

#include "BasicLib/IndexIo.h"
#include "BasicLib/Place.h"
#include "BasicLib/PortIo.h"
#include "Common/ComFunc/Numeral.h"
#include "Common/Sprint.h"
#include "Platform/PmBase.h"

constexpr uint8_t RTC_SECONDS = 0x00;
constexpr uint8_t RTC_SECONDS_ALARM = 0x01;
constexpr uint8_t RTC_MINUTES = 0x02;
constexpr uint8_t RTC_MINUTES_ALARM = 0x03;
constexpr uint8_t RTC_HOURS = 0x04;
constexpr uint8_t RTC_HOURS_ALARM = 0x05;
constexpr uint8_t RTC_REG_A = 0x0A;
constexpr uint8_t RTC_REG_B = 0x0B;
constexpr uint8_t RTC_REG_C = 0x0C;
constexpr uint8_t RTC_REG_D = 0x0D;
constexpr uint8_t REG_A_UIP = 0x80;       // the time may be half old and half new
constexpr uint8_t REG_B_DM_BINARY = 0x04; // else BCD
constexpr uint8_t REG_B_AIE = 0x20;
constexpr uint8_t REG_D_VRT = 0x80; // the battery is good; later chips keep the alarm's day in the bits below
constexpr int RTC_REGISTERS = 14;
constexpr int READ_AGAIN = 8; // a clock in its 12-hour mode may never show a time of the 24-hour one
constexpr uint32_t UPDATE_POLLS = 0x10000000; // half an hour on real ports; an update takes 2 ms

constexpr uint8_t FORMAT_UNKNOWN = 0xFF;
constexpr uint32_t PM1_RTC_BIT = 10; // RTC_STS and RTC_EN
constexpr uint16_t PM1_ENABLE = 2;   // from the event block

uint8_t BcdData = FORMAT_UNKNOWN;

uint8_t Get8IO7071(uint8_t index) {
    return static_cast<uint8_t>(LegacyIoIndexRead8(CMOS_INDEX, CMOS_DATA, index));
}

void Set8IO7071(uint8_t index, uint8_t value) {
    LegacyIoIndexWrite8(CMOS_INDEX, CMOS_DATA, index, value);
}

uint8_t isCmosInBCD() {
    if (BcdData == FORMAT_UNKNOWN)
        BcdData = (Get8IO7071(RTC_REG_B) & REG_B_DM_BINARY) == 0 ? 1 : 0;
    return BcdData;
}

bool WaitInProgress() {
    Get8IO7071(
        RTC_REG_C); // a read clears the interrupt flags: an alarm of yesterday must not look like today's
    for (uint32_t i = 0; i < UPDATE_POLLS; ++i) {
        if ((Get8IO7071(RTC_REG_A) & REG_A_UIP) == 0)
            return true;
        IoDelay(1);
    }
    Printf("RTC wait time out!\n");
    return false;
}

// True when a register can hold this in BCD.
static bool IsBcd(uint8_t value) {
    return (value & 0x0F) <= 9 && value >> 4 <= 9;
}

static uint8_t FromRegister(uint8_t value) {
    return isCmosInBCD() ? HexToDecimal8(value) : value;
}

// Reads the three registers as they stand, outside an update cycle when *settled is set.
static TimeOfDay ReadTimeRegisters(bool *settled) {
    *settled = WaitInProgress();
    TimeOfDay raw;
    raw.hours = Get8IO7071(RTC_HOURS);
    raw.minutes = Get8IO7071(RTC_MINUTES);
    raw.seconds = Get8IO7071(RTC_SECONDS);
    return raw;
}

static bool IsTime(TimeOfDay raw) {
    if (isCmosInBCD() && (!IsBcd(raw.hours) || !IsBcd(raw.minutes) || !IsBcd(raw.seconds)))
        return false;
    return FromRegister(raw.hours) <= 23 && FromRegister(raw.minutes) <= 59 &&
           FromRegister(raw.seconds) <= 59;
}

// The process may be put aside between the wait and the registers, and an update come in between; what it
// reads then need not be a time at all. An alarm must not be set by that, nor a countdown end.
TimeOfDay GetTimeOfDay() {
    isCmosInBCD(); // asks register B now, not between the registers of the time
    bool settled;
    TimeOfDay raw = ReadTimeRegisters(&settled);
    for (int again = 0; again < READ_AGAIN && settled && !IsTime(raw); ++again)
        raw = ReadTimeRegisters(&settled);
    return {FromRegister(raw.hours), FromRegister(raw.minutes), FromRegister(raw.seconds)};
}

uint32_t GetTotalSec() {
    TimeOfDay time = GetTimeOfDay();
    return time.seconds + time.hours * 3600u + time.minutes * 60u;
}

// Seconds and minutes never exceed the limits after the divisions; the three rules stand together.
TimeOfDay AlarmRegisters(uint32_t seconds, bool bcd) {
    TimeOfDay alarm;
    alarm.hours = bcd ? DecimalToHex8(seconds / 3600) : static_cast<uint8_t>(seconds / 3600);
    alarm.minutes = bcd ? DecimalToHex8(seconds % 3600 / 60) : static_cast<uint8_t>(seconds % 3600 / 60);
    alarm.seconds = bcd ? DecimalToHex8(seconds % 60) : static_cast<uint8_t>(seconds % 60);
    if (alarm.seconds > 0x5F) {
        ++alarm.minutes;
        alarm.seconds = alarm.seconds % 60;
    }
    if (alarm.minutes > 0x5F) {
        ++alarm.hours;
        alarm.minutes = alarm.minutes % 60;
    }
    if (alarm.hours > 0x23)
        alarm.hours = alarm.hours % 24;
    return alarm;
}

void SetTotalSec(uint32_t seconds) {
    bool bcd = isCmosInBCD() != 0;
    WaitInProgress();
    TimeOfDay alarm = AlarmRegisters(seconds, bcd);
    Set8IO7071(RTC_SECONDS_ALARM, alarm.seconds);
    Set8IO7071(RTC_MINUTES_ALARM, alarm.minutes);
    Set8IO7071(RTC_HOURS_ALARM, alarm.hours);
    Set8IO7071(RTC_REG_D, Get8IO7071(RTC_REG_D) & REG_D_VRT); // on whatever day comes next
    Set8IO7071(RTC_REG_B, Get8IO7071(RTC_REG_B) | REG_B_AIE);
    const char *format = bcd ? "SetCmos timer:  %02x:%02x:%02x\n" : "SetCmos timer:  %02d:%02d:%02d\n";
    Printf(format, alarm.hours, alarm.minutes, alarm.seconds);
}

void SetRtcWakeupTimer2CMOS(uint32_t seconds) {
    uint16_t base = static_cast<uint16_t>(GetPMBaseAddress(PM_EVENT_BLOCK));
    IoWriteBit(base, PM1_RTC_BIT, 1); // writing the status back clears the other bits that were set, too
    IoWriteBit(static_cast<uint16_t>(base + PM1_ENABLE), PM1_RTC_BIT, 1);
    SetTotalSec(seconds);
}

int getRTCData(uint8_t *buffer) {
    WaitInProgress();
    for (int i = 0; i < RTC_REGISTERS; ++i)
        buffer[i] = Get8IO7071(static_cast<uint8_t>(i));
    return RTC_REGISTERS;
}
