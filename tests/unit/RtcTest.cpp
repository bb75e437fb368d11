#include "Project/Rtc.h"

#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Signals.h"
#include "Common/FileLib.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Platform/CmosClock.h"
#include "TestHelp.h"
#include "sim/Board.h"

TEST(Rtc, TheOperatingSystemsShutdown) {
    OpenBoard("intel");
    EXPECT_EQ(OsShutdown(1), 1u);
    EXPECT_EQ(OsShutdown(2), 1u);
    EXPECT_EQ(TakeLog(), (Log{"system shutdown -P now", "system shutdown -P now"}));
    EXPECT_EQ(OsShutdown(4), 1u);
    EXPECT_EQ(TakeLog(), (Log{"system shutdown -r now"}));
}

TEST(Rtc, OtherKindsOfShutdownDoNothing) {
    OpenBoard("intel");
    for (uint32_t kind : {0u, 3u, 5u, 6u, 0xFFFFFFFFu})
        EXPECT_EQ(OsShutdown(kind), 0u) << kind;
    EXPECT_EQ(TakeLog(), Log{});
}

// An empty folder as the current directory until the end of the test.
struct Folder {
    char before[PATH_MAX];
    char path[32] = "/tmp/hwreg_unit.XXXXXX";
    Folder() {
        EXPECT_NE(getcwd(before, sizeof before), nullptr);
        EXPECT_NE(mkdtemp(path), nullptr);
        EXPECT_EQ(chdir(path), 0);
    }
    ~Folder() {
        unlink("LOG");
        EXPECT_EQ(chdir(before), 0);
        EXPECT_EQ(rmdir(path), 0);
    }
};

static void PutFile(const std::string &bytes) {
    FILE *file = fopen("LOG", "wb");
    ASSERT_NE(file, nullptr);
    fwrite(bytes.data(), 1, bytes.size(), file);
    fclose(file);
}

static std::string FileBytes() {
    char bytes[16];
    FILE *file = fopen("LOG", "rb");
    if (file == nullptr)
        return "no file";
    size_t count = fread(bytes, 1, sizeof bytes, file);
    fclose(file);
    return std::string(bytes, count);
}

static void ExpectCount(uint32_t count, const std::string &message) {
    uint32_t shown = 0;
    unsigned open = OpenDescriptors();
    EXPECT_EQ(Printed([&] { shown = DisplayLogCount("LOG"); }), message);
    EXPECT_EQ(OpenDescriptors(), open);
    EXPECT_EQ(shown, count);
}

TEST(Rtc, ACountIsFourBytesTheLowestFirst) {
    Folder folder;
    ExpectCount(0, "Have no LOG file!\n");
    EXPECT_EQ(FileBytes(), "no file");
    PutFile(std::string("\x78\x56\x34\x12", 4));
    ExpectCount(0x12345678, "LOG count is: 305419896\n");
    PutFile("\xFF\xFF\xFF\xFF");
    ExpectCount(0xFFFFFFFF, "LOG count is: 4294967295\n");
    PutFile("\x02\x01");
    ExpectCount(0x102, "LOG count is: 258\n");
    PutFile("");
    ExpectCount(0, "LOG count is: 0\n");
}

static std::string Written(uint32_t count) {
    EXPECT_EQ(Printed([&] { EXPECT_EQ(RtcLogAndRtcCount("LOG", count), 1); }), "");
    return FileBytes();
}

TEST(Rtc, TheNextCountIsWritten) {
    Folder folder;
    EXPECT_EQ(Written(0), std::string("\1\0\0\0", 4));
    EXPECT_EQ(Written(0xFF), std::string("\0\1\0\0", 4));
    EXPECT_EQ(Written(0xFFFFFFFC), "\xFD\xFF\xFF\xFF");
    EXPECT_EQ(Written(0xFFFFFFFD), "\xFE\xFF\xFF\xFF");
    EXPECT_EQ(Written(0xFFFFFFFE), std::string("\1\0\0\0", 4));
    EXPECT_EQ(Written(0xFFFFFFFF), std::string("\0\0\0\0", 4));
}

TEST(Rtc, TheCountIsPutOnTheDisk) {
    Folder folder;
    OpenBoard("intel");
    EXPECT_EQ(RtcLogAndRtcCount("LOG", 5), 1);
    EXPECT_EQ(TakeLog(), (Log{"fsync LOG 4 -> ok", "fsync folder -> ok"}));
}

TEST(Rtc, ACountThatCannotBeWrittenGivesZero) {
    EXPECT_EQ(Printed([] { EXPECT_EQ(RtcLogAndRtcCount("/nowhere/LOG", 1), 0); }),
              "/nowhere/LOG write fail!\n");
}

TEST(Rtc, OfAFileThatMustNotGrowZeroIsAllThatIsSaid) {
    Folder folder;
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    rlimit none = {0, before.rlim_max};
    IgnoreFileSizeSignal();
    int written = 1;
    std::string text = Printed([&] {
        setrlimit(RLIMIT_FSIZE, &none);
        written = RtcLogAndRtcCount("LOG", 1);
        setrlimit(RLIMIT_FSIZE, &before);
    });
    RestoreFileSizeSignal();
    EXPECT_EQ(written, 0);
    EXPECT_EQ(text, "");
}

// The clock of this board runs with the delays that the polls themselves make.
static void OpenRunningClock(const std::string &time) {
    OpenBoard("intel", "cmos-time 2024-02-03 " + time + "\ncmos-run delays 2000");
    BcdData = 0xFF;
}

static double SecondsPassed() {
    return static_cast<double>(BoardMicroseconds()) * 0x2000 / 1e6;
}

TEST(Rtc, ACountdownOfNothingTouchesNothing) {
    OpenRunningClock("04:05:06");
    EXPECT_EQ(Printed([] { EXPECT_EQ(TimeOut(0), 1); }), "");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(Rtc, ACountdownEndsWithItsLastSecond) {
    FeedInput("");
    for (const char *time :
         {"04:05:06", "23:59:55", "23:59:56", "23:59:57", "23:59:58", "23:59:59", "00:00:00"}) {
        OpenRunningClock(time);
        EXPECT_EQ(Printed([] { EXPECT_EQ(TimeOut(4), 1); }),
                  std::string("\n...timeout: 4 seconds (press ESC to break out)...\nTime: ") + time + "\n");
        EXPECT_NEAR(SecondsPassed(), 4, 0.3) << time;
    }
}

TEST(Rtc, EscapeAloneBreaksACountdownOfThisDay) {
    FeedInput("ab\n");
    OpenRunningClock("04:05:06");
    EXPECT_EQ(Printed([] { EXPECT_EQ(TimeOut(2), 1); }).size(), 66u);
    FeedInput("ab\x1b"
              "c");
    OpenRunningClock("04:05:06");
    Printed([] { EXPECT_EQ(TimeOut(2), 0); });
    EXPECT_LT(SecondsPassed(), 1.5);
    EXPECT_EQ(InputLeft(), "c");
}

TEST(Rtc, BeforeMidnightAnyKeyBreaksACountdownAcrossItAndStaysToBeRead) {
    FeedInput("ab");
    OpenRunningClock("23:59:58");
    Printed([] { EXPECT_EQ(TimeOut(3), 0); });
    EXPECT_EQ(InputLeft(), "ab");
}

TEST(Rtc, ACountdownThatBeginsAtMidnightIsNotAcrossIt) {
    FeedInput("ab");
    OpenRunningClock("00:00:00");
    Printed([] { EXPECT_EQ(TimeOut(3), 1); });
}

// A clock that goes as the test says: it may be set meanwhile, or a second may go by unseen. While there are
// times it stands in front of the board's.
static std::vector<uint32_t> mTimes;
static size_t mLooks;

static uint32_t NextLook() {
    if (mLooks >= mTimes.size()) {
        ADD_FAILURE() << "the countdown goes on";
        return mTimes.back() + static_cast<uint32_t>(mLooks++ - mTimes.size()) % 2; // lets it end
    }
    return mTimes[mLooks++];
}

// The linker puts this one in the way of GetTotalSec.
extern "C" uint32_t __real__Z11GetTotalSecv();
extern "C" uint32_t __wrap__Z11GetTotalSecv();

uint32_t __wrap__Z11GetTotalSecv() {
    return mTimes.empty() ? __real__Z11GetTotalSecv() : NextLook();
}

// The countdown must end at the last of these looks at the clock. The first two are for its end and its
// start.
static void ExpectEnd(uint32_t seconds, const std::vector<uint32_t> &times) {
    OpenBoard("intel");
    FeedInput("");
    BcdData = 0xFF;
    mTimes = times;
    mLooks = 0;
    Printed([&] { EXPECT_EQ(TimeOut(seconds), 1); });
    mTimes.clear();
    EXPECT_EQ(mLooks, times.size());
}

TEST(Rtc, ACountdownEndsAtItsTimeOfDay) {
    ExpectEnd(3, {100, 100, 100, 101, 101, 102, 103});
    ExpectEnd(1, {86398, 86398, 86398, 86399});
}

TEST(Rtc, ACountdownAcrossMidnightEndsAtItsTimeOfTheNextDay) {
    ExpectEnd(2, {86399, 86399, 86399, 0, 0, 1});
    ExpectEnd(1, {86399, 86399, 86399, 0});
    ExpectEnd(3, {86398, 86398, 86399, 0, 0, 0, 1});
}

TEST(Rtc, ACountdownEndsWhenTheClockIsSetBeyondItsEnd) {
    ExpectEnd(60, {100, 100, 101, 160});
    ExpectEnd(60, {100, 100, 101, 5000});
    ExpectEnd(10, {86398, 86398, 86399, 0, 1, 50});
}

TEST(Rtc, ACountdownEndsAfterItsSecondsWhenTheClockIsSetBack) {
    ExpectEnd(5, {100, 100, 101, 102, 50, 50, 51, 52});
    ExpectEnd(3, {100, 101, 101, 50, 51, 52}); // a second begins while the start is printed
}

TEST(Rtc, ACountdownEndsAfterItsSecondsWhenItsEndGoesByUnseen) {
    ExpectEnd(9, {86390, 86390, 86391, 3, 4, 5, 6, 7, 8, 9, 10});
}

TEST(Rtc, ACountdownAcrossMidnightEndsAfterItsSecondsWhenMidnightGoesByUnseen) {
    ExpectEnd(6, {86396, 86396, 86397, 2, 2, 3, 4, 5, 6});
}

TEST(Rtc, ACountdownOfMoreThanADayEndsAfterItsSeconds) {
    std::vector<uint32_t> times = {86000, 86000};
    for (uint32_t i = 1; i <= 90000; ++i)
        times.push_back((86000 + i) % 86400);
    times.insert(times.begin() + 2 + 400,
                 0); // midnight is looked at twice: it ends the one part and begins the other
    ExpectEnd(90000, times);
}
