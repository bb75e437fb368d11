#include "Platform/CmosClock.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "BasicLib/IndexIo.h"
#include "BasicLib/Place.h"
#include "BasicLib/PortIo.h"
#include "Common/ComFunc/Numeral.h"
#include "Common/Sprint.h"
#include "Platform/PmBase.h"
#include "TestHelp.h"
#include "sim/Board.h"

// A board whose clock shows a time in the form of register B. Nothing is known of it yet.
static void OpenClock(const std::string &time, const std::string &registerB, const std::string &lines = "") {
    OpenBoard("intel", "cmos-bytes b " + registerB + "\ncmos-time 2024-02-03 " + time + "\n" + lines);
    BcdData = 0xFF;
    PmAddress = {0, 0, 0};
}

static const char *const BCD = "02";
static const char *const BINARY = "06";

static Log Read(const std::string &index, const std::string &value) {
    return Delays(2) + Log{"out8 0070 " + index, "in8 0071 -> " + value};
}

static Log Write(const std::string &index, const std::string &value) {
    return Delays(2) + Log{"out8 0070 " + index, "out8 0071 " + value};
}

static Log Wait() {
    return Read("0c", "00") + Read("0a", "26");
}

TEST(CmosClock, ARegisterIsReachedThroughPorts70And71) {
    OpenClock("04:05:06", BCD);
    EXPECT_EQ(Get8IO7071(0x04), 0x04);
    EXPECT_EQ(TakeLog(), Read("04", "04"));
    Set8IO7071(0x40, 0x5A);
    EXPECT_EQ(TakeLog(), Write("40", "5a"));
    EXPECT_EQ(Get8IO7071(0x40), 0x5A);
}

TEST(CmosClock, TheNumberFormatIsReadOnce) {
    OpenClock("04:05:06", BCD);
    EXPECT_EQ(BcdData, 0xFF);
    EXPECT_EQ(isCmosInBCD(), 1);
    EXPECT_EQ(TakeLog(), Read("0b", "02"));
    EXPECT_EQ(BcdData, 1);
    Set8IO7071(0x0B, 0x06);
    TakeLog();
    EXPECT_EQ(isCmosInBCD(), 1);
    EXPECT_EQ(TakeLog(), Log{});
    OpenClock("04:05:06", BINARY);
    EXPECT_EQ(isCmosInBCD(), 0);
    EXPECT_EQ(isCmosInBCD(), 0);
    EXPECT_EQ(TakeLog(), Read("0b", "06"));
}

TEST(CmosClock, OutsideOfAnUpdateThereIsNothingToWaitFor) {
    OpenClock("04:05:06", BCD);
    EXPECT_TRUE(WaitInProgress());
    EXPECT_EQ(TakeLog(), Wait());
}

TEST(CmosClock, AnUpdateIsAwaitedWithADelayBetweenPolls) {
    OpenClock("04:05:06", BCD, "cmos-bytes c f0\ncmos-stuck 2");
    EXPECT_TRUE(WaitInProgress());
    Log poll = Read("0a", "a6") + Delays(1);
    EXPECT_EQ(TakeLog(), Read("0c", "f0") + poll + poll + Read("0a", "26"));
}

TEST(CmosClock, TheTimeIsReadHoursFirst) {
    OpenClock("23:59:58", BCD);
    TimeOfDay time = GetTimeOfDay();
    EXPECT_EQ(time.hours, 23);
    EXPECT_EQ(time.minutes, 59);
    EXPECT_EQ(time.seconds, 58);
    EXPECT_EQ(TakeLog(), Read("0b", "02") + Wait() + Read("04", "23") + Read("02", "59") + Read("00", "58"));
}

TEST(CmosClock, TheTimeInSecondsSinceMidnight) {
    for (const char *form : {BCD, BINARY}) {
        OpenClock("00:00:00", form);
        EXPECT_EQ(GetTotalSec(), 0u);
        OpenClock("04:05:06", form);
        EXPECT_EQ(GetTotalSec(), 14706u);
        OpenClock("12:34:56", form);
        EXPECT_EQ(GetTotalSec(), 45296u);
        OpenClock("23:59:59", form);
        EXPECT_EQ(GetTotalSec(), 86399u);
    }
}

// 92h is 12 p.m. there.
TEST(CmosClock, TheHoursOfTheTwelveHourModeAreTakenAsTheyStand) {
    OpenClock("04:05:06", "00", "cmos-bytes 4 92");
    EXPECT_EQ(GetTotalSec(), 92u * 3600 + 5 * 60 + 6);
}

struct Alarm {
    uint32_t seconds;
    const char *hours, *minutes, *second; // as written
    const char *message;
};

static void ExpectAlarm(const Alarm &alarm, const char *registerB, const char *withAlarm) {
    OpenClock("04:05:06", registerB, "cmos-bytes d bf");
    EXPECT_EQ(Printed([&] { SetTotalSec(alarm.seconds); }),
              std::string("SetCmos timer:  ") + alarm.message + "\n");
    EXPECT_EQ(TakeLog(), Read("0b", registerB) + Wait() + Write("01", alarm.second) +
                             Write("03", alarm.minutes) + Write("05", alarm.hours) + Read("0d", "bf") +
                             Write("0d", "80") + Read("0b", registerB) + Write("0b", withAlarm));
}

TEST(CmosClock, TheAlarmOfABcdClock) {
    const Alarm alarms[] = {
        {0, "00", "00", "00", "00:00:00"},
        {14706, "04", "05", "06", "04:05:06"},
        {86399, "23", "59", "59", "23:59:59"},
        {86400, "0c", "00", "00", "0c:00:00"},
        {86399 + 3600, "0c", "59", "59", "0c:59:59"},
        {90000, "0d", "00", "00", "0d:00:00"},
        {359999, "09", "59", "59", "09:59:59"}, // 99 hours: 99h is 153
        {360000, "10", "00", "00", "10:00:00"}, // 100 hours: A0h is 160
    };
    for (const Alarm &alarm : alarms)
        ExpectAlarm(alarm, BCD, "22");
}

TEST(CmosClock, TheAlarmOfABinaryClock) {
    const Alarm alarms[] = {
        {0, "00", "00", "00", "00:00:00"},          {45296, "0c", "22", "38", "12:34:56"},
        {86399, "17", "3b", "3b", "23:59:59"},      {86400, "18", "00", "00", "24:00:00"},
        {129599, "23", "3b", "3b", "35:59:59"},     {129600, "0c", "00", "00", "12:00:00"},
        {921600, "00", "00", "00", "00:00:00"},     // 256 hours
        {0xFFFFFFFF, "0e", "1c", "0f", "14:28:15"}, // 1193046 hours: 86 in 8 bits, less three days
    };
    for (const Alarm &alarm : alarms)
        ExpectAlarm(alarm, BINARY, "26");
}

TEST(CmosClock, OfRegisterDTheAlarmLeavesTheBatterysBitAlone) {
    const char *const contents[][2] = {{"ff", "80"}, {"c0", "80"}, {"7f", "00"}, {"40", "00"}};
    for (const auto &pair : contents) {
        OpenClock("04:05:06", BCD, std::string("cmos-bytes d ") + pair[0]);
        Printed([] { SetTotalSec(14707); });
        const Log log = TakeLog();
        const Log step = Read("0d", pair[0]) + Write("0d", pair[1]);
        EXPECT_NE(std::search(log.begin(), log.end(), step.begin(), step.end()), log.end()) << pair[0];
    }
}

TEST(CmosClock, TheWakeEnableInThePm1BlockComesFirst) {
    OpenClock("04:05:06", BCD);
    PmAddress = {0x1800, 0xCF9, 0x06};
    EXPECT_EQ(Printed([] { SetRtcWakeupTimer2CMOS(14707); }), "SetCmos timer:  04:05:07\n");
    Log log = TakeLog();
    Log wake = {"in16 1800 -> 0001", "out16 1800 0401", "in16 1802 -> 0020", "out16 1802 0420"};
    EXPECT_EQ(Log(log.begin(), log.begin() + 4), wake);
    EXPECT_EQ(Log(log.begin() + 4, log.begin() + 8), Read("0b", "02"));
    EXPECT_EQ(log.back(), "out8 0071 22");
}

TEST(CmosClock, FourteenRegistersAreCopiedInOrder) {
    OpenClock("04:05:06", BCD, "cmos-bytes 1 11\ncmos-bytes 3 33\ncmos-bytes 5 55\ncmos-bytes c f0");
    uint8_t buffer[15];
    buffer[14] = 0xEE;
    EXPECT_EQ(getRTCData(buffer), 14);
    const uint8_t expected[15] = {0x06, 0x11, 0x05, 0x33, 0x04, 0x55, 0x07, 0x03,
                                  0x02, 0x24, 0x26, 0x02, 0x00, 0x80, 0xEE};
    for (int i = 0; i < 15; ++i)
        EXPECT_EQ(buffer[i], expected[i]) << i;
    Log accesses = TakeAccesses();
    ASSERT_EQ(accesses.size(), 16u * 4);
    EXPECT_EQ(accesses[2], "out8 0070 0c");
    EXPECT_EQ(accesses[6], "out8 0070 0a");
    for (size_t i = 0; i < 14; ++i) {
        char line[] = "out8 0070 00";
        line[11] = "0123456789abcd"[i];
        EXPECT_EQ(accesses[8 + 4 * i + 2], line);
    }
}

// A clock that never leaves its update, made of counters alone: 0x10000000 polls of the board would take half
// an hour. While there is one it stands in front of the clock's registers and of the delays.
struct StuckClock {
    uint32_t polls = 0;
    uint32_t delays = 0;
    std::vector<uint32_t> otherReads, writes; // registers
    StuckClock();
    ~StuckClock();
};

static StuckClock *mStuckClock = nullptr;

StuckClock::StuckClock() {
    mStuckClock = this;
    BcdData = 1;
}

StuckClock::~StuckClock() {
    mStuckClock = nullptr;
    BcdData = 0xFF;
}

// The linker puts these in the way of LegacyIoIndexRead8, LegacyIoIndexWrite8 and IoDelay.
extern "C" {
uint32_t __real__Z18LegacyIoIndexRead8jjj(uint32_t indexPort, uint32_t dataPort, uint32_t index);
uint32_t __wrap__Z18LegacyIoIndexRead8jjj(uint32_t indexPort, uint32_t dataPort, uint32_t index);
void __real__Z19LegacyIoIndexWrite8jjjj(uint32_t indexPort, uint32_t dataPort, uint32_t index,
                                        uint32_t value);
void __wrap__Z19LegacyIoIndexWrite8jjjj(uint32_t indexPort, uint32_t dataPort, uint32_t index,
                                        uint32_t value);
void __real__Z7IoDelayj(uint32_t count);
void __wrap__Z7IoDelayj(uint32_t count);
}

uint32_t __wrap__Z18LegacyIoIndexRead8jjj(uint32_t indexPort, uint32_t dataPort, uint32_t index) {
    if (mStuckClock == nullptr)
        return __real__Z18LegacyIoIndexRead8jjj(indexPort, dataPort, index);
    if (index == 0x0A)
        ++mStuckClock->polls;
    else
        mStuckClock->otherReads.push_back(index);
    return 0x80;
}

void __wrap__Z19LegacyIoIndexWrite8jjjj(uint32_t indexPort, uint32_t dataPort, uint32_t index,
                                        uint32_t value) {
    if (mStuckClock == nullptr)
        __real__Z19LegacyIoIndexWrite8jjjj(indexPort, dataPort, index, value);
    else
        mStuckClock->writes.push_back(index);
}

void __wrap__Z7IoDelayj(uint32_t count) {
    if (mStuckClock == nullptr)
        __real__Z7IoDelayj(count);
    else
        mStuckClock->delays += count;
}

typedef std::vector<uint32_t> Registers;

TEST(CmosClock, AnUpdateThatNeverEndsIsGivenUpAfter268435456Polls) {
    StuckClock clock;
    bool ended = true;
    EXPECT_EQ(Printed([&] { ended = WaitInProgress(); }), "RTC wait time out!\n");
    EXPECT_FALSE(ended);
    EXPECT_EQ(clock.polls, 0x10000000u);
    EXPECT_EQ(clock.delays, 0x10000000u);
    EXPECT_EQ(clock.otherReads, Registers{0x0C});
}

TEST(CmosClock, AfterAnUpdateThatNeverEndsTheClockIsReadAndSetAllTheSame) {
    StuckClock clock;
    EXPECT_EQ(Printed([] { GetTotalSec(); }), "RTC wait time out!\n");
    EXPECT_EQ(clock.otherReads, (Registers{0x0C, 0x04, 0x02, 0x00}));
    EXPECT_EQ(Printed([] { SetTotalSec(0); }), "RTC wait time out!\nSetCmos timer:  00:00:00\n");
    EXPECT_EQ(clock.writes, (Registers{0x01, 0x03, 0x05, 0x0D, 0x0B}));
}

// A clock of which each reading is listed: hours, minutes and seconds as they stand in the registers. Behind
// the last one the board answers with zeros, which are midnight.
struct Readings {
    std::vector<uint8_t> bytes;
    explicit Readings(bool bcd) {
        bytes.push_back(bcd ? 0x02 : 0x06); // register B, asked first
    }
    Readings &Then(uint8_t hours, uint8_t minutes, uint8_t seconds) {
        bytes.insert(bytes.end(), {0x00, 0x26, hours, minutes, seconds}); // registers C and A before them
        return *this;
    }
};

// The time that is taken from the readings, as hours * 10000 + minutes * 100 + seconds, after so many of
// them, each with the accesses of an ordinary one.
static void ExpectTaken(const Readings &readings, uint32_t expected, int count) {
    OpenClock("04:05:06", BCD);
    BoardAnswer(ANSWER_OTHER_PORTS, readings.bytes.data(), readings.bytes.size(), 0);
    TimeOfDay time = GetTimeOfDay();
    EXPECT_EQ(time.hours * 10000u + time.minutes * 100u + time.seconds, expected);
    Log ports;
    for (const std::string &line : TakeLog())
        if (line.compare(0, 9, "out8 0070") == 0)
            ports.push_back(line.substr(10));
    Log asked = {"0b"};
    for (int i = 0; i < count; ++i)
        asked = asked + Log{"0c", "0a", "04", "02", "00"};
    EXPECT_EQ(ports, asked);
}

TEST(CmosClock, AReadingThatIsATimeIsTakenAtOnce) {
    ExpectTaken(Readings(true).Then(0x23, 0x59, 0x59).Then(0x11, 0x11, 0x11), 235959, 1);
    ExpectTaken(Readings(true).Then(0x00, 0x00, 0x00).Then(0x11, 0x11, 0x11), 0, 1);
    ExpectTaken(Readings(true).Then(0x19, 0x09, 0x49).Then(0x11, 0x11, 0x11), 190949, 1);
    ExpectTaken(Readings(false).Then(23, 59, 59).Then(11, 11, 11), 235959, 1);
    ExpectTaken(Readings(false).Then(0x0A, 0x3B, 0x1F).Then(11, 11, 11), 105931, 1);
}

TEST(CmosClock, AReadingThatIsNoTimeIsTakenAgainAsAWhole) {
    const TimeOfDay noBcdTimes[] = {
        {0x24, 0x00, 0x00}, {0x1A, 0x00, 0x00}, {0xA0, 0x00, 0x00}, {0xFF, 0x00, 0x00}, {0x92, 0x00, 0x00},
        {0x00, 0x60, 0x00}, {0x00, 0x0A, 0x00}, {0x00, 0x5F, 0x00}, {0x00, 0xFF, 0x00}, {0x00, 0x00, 0x60},
        {0x00, 0x00, 0x3B}, {0x00, 0x00, 0xF0}, {0x00, 0x00, 0x99}, {0x0F, 0x00, 0x00}, {0xFF, 0xFF, 0xFF}};
    for (const TimeOfDay &no : noBcdTimes)
        ExpectTaken(Readings(true).Then(no.hours, no.minutes, no.seconds).Then(0x12, 0x34, 0x56), 123456, 2);
    const TimeOfDay noBinaryTimes[] = {{24, 0, 0}, {0x23, 0, 0}, {0x8C, 0, 0}, {0xFF, 0, 0},
                                       {0, 60, 0}, {0, 255, 0},  {0, 0, 60},   {0, 0, 0xFF}};
    for (const TimeOfDay &no : noBinaryTimes)
        ExpectTaken(Readings(false).Then(no.hours, no.minutes, no.seconds).Then(12, 34, 56), 123456, 2);
}

TEST(CmosClock, AClockThatShowsNoTimeIsReadEightTimesMoreAndTakenAtItsWord) {
    Readings bad(true);
    for (int i = 0; i < 8; ++i)
        bad.Then(0x12, 0x34, 0xFF);
    Readings good = bad;
    ExpectTaken(good.Then(0x12, 0x34, 0x56), 123456, 9);
    Readings worse = bad;
    ExpectTaken(worse.Then(0x92, 0x34, 0x56).Then(0x12, 0x34, 0x56), 923456, 9);
}
