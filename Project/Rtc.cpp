#include "Project/Rtc.h"

#include <signal.h>

#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Console.h"
#include "Common/ComFunc/Shell.h"
#include "Common/FileLib.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Platform/CmosClock.h"
#include "Platform/PmBase.h"

constexpr uint32_t LAST_SECOND = 86399;
constexpr uint32_t DAY_SECONDS = 86400;
constexpr uint32_t SHORTEST_TIMER = 7; // an alarm that comes before the machine is off never wakes it
constexpr uint32_t LAST_COUNT = 0xFFFFFFFE;

static const char *const mRebootLog = "RBTLOG";
static const char *const mTimerLog = "RTCLOG";

// A log must hold this run's lines when the machine goes down; a reader that has gone must not keep it up.
static void HandOverOutput() {
    void (*before)(int) = signal(SIGPIPE, SIG_IGN);
    fflush(stdout);
    signal(SIGPIPE, before);
}

uint32_t OsShutdown(uint32_t kind) {
    switch (kind) {
    case SHUTDOWN_POWER_OFF:
    case SHUTDOWN_POWER_OFF_TOO:
        HandOverOutput();
        ExecuteSystemCmd("shutdown -P now");
        return 1;
    case SHUTDOWN_RESTART:
        HandOverOutput();
        ExecuteSystemCmd("shutdown -r now");
        return 1;
    default:
        return 0;
    }
}

uint32_t DisplayLogCount(const char *name) {
    FILE *file = OpenToRead(name);
    if (file == nullptr) {
        Printf("Have no %s file!\n", name);
        return 0;
    }
    uint32_t count = 0;
    Fread(&count, 1, sizeof(count), file);
    Fclose(file);
    Printf("%s count is: %ld\n", name, Wide(count));
    return count;
}

int RtcLogAndRtcCount(const char *name, uint32_t count) {
    FILE *file = OpenAnew(name);
    if (file == nullptr) {
        Printf("%s write fail!\n", name);
        return 0;
    }
    ++count;
    if (count > LAST_COUNT)
        count = 1;
    size_t written = Fwrite(&count, 1, sizeof(count), file);
    SyncFile(file); // the machine may hang while it goes down
    bool full = ferror(file) != 0;
    bool closed = Fclose(file) == 0;
    return written == sizeof(count) && !full && closed ? 1 : 0;
}

// A countdown: the clock's last second and the seconds still to go, for clocks that are set meanwhile.
struct Countdown {
    uint32_t last;
    uint32_t remaining;
};

// Reads the clock, and counts when its second has changed. Returns the time.
static uint32_t Tick(Countdown *countdown) {
    uint32_t now = GetTotalSec();
    if (now != countdown->last) {
        countdown->last = now;
        --countdown->remaining;
    }
    return now;
}

// Until midnight any key breaks. False when one did.
static bool WaitForMidnight(Countdown *countdown) {
    while (Tick(countdown) != 0 && countdown->remaining > 0) {
        if (isKeyBoardHit())
            return false;
    }
    return true;
}

// Until a time of this day ESC alone breaks. False when it did.
static bool WaitForTime(Countdown *countdown, uint32_t end) {
    while (countdown->remaining > 0 && Tick(countdown) < end && countdown->remaining > 0) {
        if (GetKBKey() == KEY_ESC)
            return false;
    }
    return true;
}

int TimeOut(uint32_t seconds) {
    if (seconds == 0)
        return 1;
    uint32_t end = seconds + GetTotalSec();
    Printf("\n...timeout: %d seconds (press ESC to break out)...\n", seconds);
    TimeOfDay time = GetTimeOfDay();
    Printf("Time: %02d:%02d:%02d\n", time.hours, time.minutes, time.seconds);
    Countdown countdown = {GetTotalSec(), seconds};
    if (end > LAST_SECOND) {
        if (!WaitForMidnight(&countdown))
            return 0;
        end -= DAY_SECONDS;
    }
    return WaitForTime(&countdown, end) ? 1 : 0;
}

static EFI_STATUS ShowRtcHelp() {
    Printf(" /RTC [seconds]: Set wakeup timer. If seconds==0, reset.\n");
    Printf(" /RTC [seconds] /T [seconds2]: Set wakeup timer and delay seconds2\n");
    Printf(" /SHUTDOWN: Shutdown system right now\n");
    return EFI_INVALID_PARAMETER;
}

// Finds a switch word and reads the operand behind it.
static bool FindNumber(const char *key, uint32_t *value) {
    uint16_t pos;
    if (!CmdFind({key}, &pos))
        return false;
    *value = OperandDword(pos, 1);
    return true;
}

// The countdown that /T asks for, with its cycle counted when it ran to the end. False when a key broke it.
static bool CountCycle(const char *log) {
    uint32_t delay;
    if (!FindNumber("T", &delay))
        return true;
    uint32_t count = DisplayLogCount(log);
    if (!TimeOut(delay))
        return false;
    RtcLogAndRtcCount(log, count);
    return true;
}

static EFI_STATUS RebootCycle(bool global) {
    if (CountCycle(mRebootLog))
        OsShutdown(global ? SHUTDOWN_GLOBAL_RESET : SHUTDOWN_RESTART);
    return EFI_ABORTED;
}

static EFI_STATUS TimerCycle(uint32_t seconds, bool forced) {
    if (!forced && seconds < SHORTEST_TIMER) {
        Printf("Warnning, set wakeup timer 0(0 is reset) or more than %d seconds!\n\n", SHORTEST_TIMER);
        return EFI_INVALID_PARAMETER;
    }
    Printf("RTC wake up after %ld seconds!\n", Wide(seconds));
    if (!CountCycle(mTimerLog))
        return EFI_ABORTED;
    SetRtcWakeupTimer2CMOS(GetTotalSec() + seconds);
    return OsShutdown(SHUTDOWN_POWER_OFF) != 0 ? EFI_SUCCESS : EFI_ABORTED;
}

// The countdown that /T asks for; false when a key broke it.
static bool Delay() {
    uint32_t delay;
    return !FindNumber("T", &delay) || TimeOut(delay) != 0;
}

EFI_STATUS RtcAndShutdownEntry() {
    CmdType cmd = CmdWord();
    if (HasFlag(cmd, Flag::HELP))
        return ShowRtcHelp();
    uint32_t seconds;
    if (FindNumber("RTC", &seconds)) {
        if (HasFlag(cmd, Flag::RESET) || seconds == 0)
            return RebootCycle(HasFlag(cmd, Flag::GRESET));
        EFI_STATUS status = TimerCycle(seconds, HasFlag(cmd, Flag::F));
        if (status != EFI_SUCCESS)
            return status;
    }
    if (CmdFind({"SHUTDOWN"}, nullptr)) {
        if (!Delay() || OsShutdown(SHUTDOWN_POWER_OFF) == 0)
            return EFI_ABORTED;
    }
    if (CmdFind({"TIMEOUT"}, nullptr) && !Delay())
        return EFI_ABORTED;
    return EFI_SUCCESS;
}
