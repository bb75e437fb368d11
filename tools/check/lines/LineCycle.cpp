#include "tools/check/lines/LineCycle.h"

#include <cstdio>
#include <cstring>

#include "BasicLib/Chipset.h"
#include "Platform/AcpiTables.h"
#include "Platform/CmosClock.h"
#include "tools/check/lines/MakeFile.h"
#include "tools/check/lines/Operands.h"
#include "tools/check/lines/PciPlaces.h"
#include "tools/check/machine/KernelFiles.h"
#include "tools/check/machine/MemoryMap.h"
#include "tools/check/machine/Power.h"
#include "tools/check/machine/Tables.h"

constexpr uint32_t SHORTEST_TIMER = 7;
constexpr uint32_t DAY_SECONDS = 86400;
constexpr uint16_t CLASS_POWER_MANAGEMENT = 0x0580;
constexpr uint64_t USUAL_PM_BLOCK = 0x1800;

// What the line asks for beside the command.
struct Cycle {
    bool counts; // /T
    uint32_t delay;
    char countdown[48]; // "counts 5 seconds down, then "
};

static Cycle TakeCycle(Line *line) {
    Cycle cycle = {};
    uint16_t pos;
    cycle.counts = TakeWord(line, "T", &pos);
    if (cycle.counts)
        cycle.delay = NumberAt(line, pos, 1, 32, "delay");
    if (cycle.delay > UINT32_MAX - DAY_SECONDS)
        FirstCaution(
            line, "THE COUNTDOWN MAY END AT ONCE: the clock's seconds and those to be counted pass 32 bits");
    if (cycle.delay != 0)
        snprintf(cycle.countdown, sizeof(cycle.countdown), "counts %u seconds down, then ", cycle.delay);
    return cycle;
}

// The clock's time, as far as its driver tells it. False when it does not.
static bool ClockTime(uint32_t *seconds) {
    char text[KERNEL_LINE];
    unsigned hours, minutes, rest;
    if (!FirstLine("/sys/class/rtc/rtc0/name", text) || strncmp(text, "rtc_cmos", 8) != 0 ||
        !FirstLine("/sys/class/rtc/rtc0/time", text) ||
        sscanf(text, "%u:%u:%u", &hours, &minutes, &rest) != 3)
        return false;
    *seconds = (hours * 3600 + minutes * 60 + rest) % DAY_SECONDS;
    return true;
}

// Whether the clock's driver says "no" to this: "BCD", or "24hr". PCs that do not tell have both.
static bool ClockHasNo(const char *format) {
    char text[KERNEL_LINE];
    FILE *file = fopen("/proc/driver/rtc", "re");
    bool no = false;
    while (NextLine(file, text)) {
        if (strncmp(text, format, strlen(format)) == 0)
            no = strstr(text, "no") != nullptr;
    }
    if (file != nullptr)
        fclose(file);
    return no;
}

static bool IsHour(uint8_t hour, bool bcd) {
    return bcd ? (hour & 0x0F) <= 9 && hour <= 0x23 : hour <= 23;
}

// An alarm for a time that it cannot be set for.
static void JudgeAlarm(Line *line, uint32_t delay, uint32_t seconds) {
    if (ClockHasNo("24hr")) {
        Judge(line, VERDICT_OTHER, 0, FINDING_NONE);
        Shows(line, "an alarm that need not come: the machine may stay off");
        return Why(line, "the clock counts twelve hours, and hwreg takes it for one of 24");
    }
    uint32_t now;
    if (!ClockTime(&now))
        return Caution(line,
                       "an alarm past the clock's next midnight goes wrong; the clock's time cannot be told");
    now = static_cast<uint32_t>((static_cast<uint64_t>(now) + delay) % DAY_SECONDS);
    bool bcd = !ClockHasNo("BCD");
    TimeOfDay alarm = AlarmRegisters(now + seconds, bcd);
    uint32_t due = static_cast<uint32_t>((static_cast<uint64_t>(now) + seconds) % DAY_SECONDS);
    bool right = seconds < DAY_SECONDS && alarm.hours == AlarmRegisters(due, bcd).hours;
    if (right)
        return;
    Judge(line, VERDICT_OTHER, 0, FINDING_NONE);
    Shows(line, bcd ? "SetCmos timer:  %02x:%02x:%02x" : "SetCmos timer:  %02d:%02d:%02d", alarm.hours,
          alarm.minutes, alarm.seconds);
    if (!IsHour(alarm.hours, bcd))
        Why(line, "the alarm is past midnight, and its hour is one that the clock never shows: the machine "
                  "stays off");
    else
        Why(line, "the alarm is past midnight, or a day and more ahead, and comes at another time");
    Mend(line, "less than %u seconds do not reach midnight", DAY_SECONDS - now);
}

// True when the kernel knows the block, and not where chipsets usually have it.
static bool IsWakeBlockElsewhere() {
    const Resource *list;
    uint32_t count = PortMap(&list);
    for (uint32_t i = 0; i < count; ++i) {
        if (strcmp(list[i].name, "ACPI PM1a_EVT_BLK") == 0)
            return list[i].first != USUAL_PM_BLOCK;
    }
    return false;
}

// Where hwreg looks for the block in which the alarm's enable bit is: the FADT, else registers of the
// chipset. False when there is none, and nothing wakes the machine.
static bool JudgeWakeBlock(Line *line) {
    PmAddressRecord record = {};
    bool told = RsdpState() == TABLE_RIGHT && AcpiGetPMAddress(&record) == EFI_SUCCESS;
    if (told && record.pm1EventBlock == 0) {
        Judge(line, VERDICT_OTHER, 0, FINDING_NONE);
        Shows(line, "ports 0 to 3, those of the DMA controller, written in the block's place");
        Why(line, "the FADT names no power management block (a hardware-reduced platform)");
        return false;
    }
    if (told || CautionOfNoList(line))
        return true;
    if (ThisChipset()->pmBlock == HOME_NONE) {
        Judge(line, VERDICT_REFUSED, 0, FINDING_RSDP);
        Shows(line, "the machine goes off, and no alarm wakes it");
        Why(line, "neither a FADT nor the chipset tells hwreg where the alarm is to be enabled");
        return false;
    }
    if (ThisChipset()->pmBlock != HOME_PCI || FunctionOfClass(CLASS_POWER_MANAGEMENT) != nullptr)
        return true;
    if (IsWakeBlockElsewhere()) {
        Judge(line, VERDICT_OTHER, 0, FINDING_RSDP);
        Shows(line, "Error: cannot get PMBase");
        Why(line, "no FADT is found, and ports 1800h to 1803h are taken for the block in which the alarm is "
                  "to be enabled: the machine goes off, and no alarm wakes it");
        return false;
    }
    Caution(line, "where the alarm is to be enabled is not told: ports 1800h to 1803h are taken for it");
    return true;
}

// The machine cannot be made to go down. True then.
static bool JudgeShutdown(Line *line, int status) {
    if (HasShutdown())
        return false;
    Judge(line, VERDICT_REFUSED, status, FINDING_SHUTDOWN);
    Shows(line, "the machine stays on");
    return true;
}

static void CautionOfCounter(Line *line, const Cycle *cycle, const char *name) {
    char reason[FILE_REASON];
    if (cycle->counts && !CanMakeFile(name, false, reason))
        Caution(line, "the cycles are not counted: %s", reason);
}

static void AnswerRestart(Line *line, const Cycle *cycle) {
    Ends(line, 21);
    CautionOfCounter(line, cycle, "RBTLOG");
    if (!HasFlag(line->cmd, Flag::GRESET)) {
        Does(line, "%srestarts the machine (shutdown -r now)", cycle->countdown);
        JudgeShutdown(line, 21);
        return;
    }
    Does(line, "%snothing", cycle->countdown);
    Judge(line, VERDICT_REFUSED, 21, FINDING_NONE);
    Shows(line, "the machine stays on");
    Why(line, "nothing follows the countdown of /GRESET");
}

static void AnswerTimer(Line *line, const Cycle *cycle, uint32_t seconds) {
    Does(line, "%ssets the clock's alarm %u seconds ahead and switches the machine off (shutdown -P now)",
         cycle->countdown, seconds);
    if (seconds < SHORTEST_TIMER && !HasFlag(line->cmd, Flag::F)) {
        Judge(line, VERDICT_REFUSED, 2, FINDING_NONE);
        Shows(line, "Warnning, set wakeup timer 0(0 is reset) or more than 7 seconds!");
        Why(line, "an alarm that comes before the machine is off never wakes it: 7 seconds are the least");
        return Mend(line, "7 seconds or more, or /F for a system that stops at once");
    }
    Ends(line, 0);
    CautionOfCounter(line, cycle, "RTCLOG");
    if (JudgeShutdown(line, 0))
        return;
    if (JudgeWakeBlock(line))
        JudgeAlarm(line, cycle->delay, seconds);
    CautionOf(line, FINDING_ALARM);
    CautionOf(line, FINDING_RTC_DRIVER);
}

// Behind an alarm, if there is one.
static void AnswerRest(Line *line, const Cycle *cycle, bool alarm) {
    bool off = TakeWord(line, "SHUTDOWN", nullptr);
    bool counts = TakeWord(line, "TIMEOUT", nullptr);
    if (alarm && (off || counts))
        return Caution(line, "behind the alarm %s is carried out, too", off ? "/SHUTDOWN" : "/TIMEOUT");
    if (alarm)
        return;
    Ends(line, 0);
    if (off) {
        Does(line, "%sswitches the machine off (shutdown -P now)%s", cycle->countdown,
             cycle->delay == 0 ? ", at once" : "");
        JudgeShutdown(line, 0);
    } else if (cycle->delay == 0) {
        Does(line, "nothing: there are no seconds behind /T to be counted down");
    } else {
        Does(line, "counts %u seconds down", cycle->delay);
    }
}

void AnswerCycle(Line *line) {
    Cycle cycle = TakeCycle(line);
    uint16_t pos;
    bool alarm = TakeWord(line, "RTC", &pos);
    if (alarm) {
        uint32_t seconds = NumberAt(line, pos, 1, 32, "number of seconds");
        if (HasFlag(line->cmd, Flag::RESET) || seconds == 0)
            return AnswerRestart(line, &cycle);
        AnswerTimer(line, &cycle, seconds);
    }
    if (line->answer->status != 2)
        AnswerRest(line, &cycle, alarm);
}
