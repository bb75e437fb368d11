#include "tools/check/machine/Power.h"

#include <cstring>

#include "tools/check/machine/KernelFiles.h"
#include "tools/check/machine/Note.h"
#include "tools/check/machine/Path.h"

static bool mShutdown = false;

static void NoteShutdown() {
    char where[KERNEL_LINE];
    mShutdown = InPath("shutdown", where, sizeof(where));
    if (mShutdown)
        return Note(FINDING_SHUTDOWN, STATE_GOOD, "%.200s is what switches off and restarts", where);
    Note(FINDING_SHUTDOWN, STATE_BAD,
         "there is no shutdown in PATH: /SHUTDOWN and /RTC neither switch off nor restart");
    Remedy(FINDING_SHUTDOWN, "install systemd-sysv (or sysvinit-core), or add its folder to PATH: /usr/sbin");
}

static void NoteAlarm() {
    char wakeup[KERNEL_LINE];
    char alarm[KERNEL_LINE] = "";
    bool told = FirstLine("/sys/class/rtc/rtc0/device/power/wakeup", wakeup);
    FirstLine("/sys/class/rtc/rtc0/wakealarm", alarm);
    if (alarm[0] != 0) {
        Note(FINDING_ALARM, STATE_CAUTION,
             "the kernel has an alarm of its own pending (%.20s): it takes the place of hwreg's", alarm);
        return Remedy(FINDING_ALARM, "echo 0 >/sys/class/rtc/rtc0/wakealarm");
    }
    if (!told)
        return Note(FINDING_ALARM, STATE_UNKNOWN,
                    "the kernel does not tell whether the clock may wake the machine");
    if (strcmp(wakeup, "enabled") == 0)
        return Note(FINDING_ALARM, STATE_GOOD,
                    "the clock may wake the machine, and the kernel has no alarm of its own");
    Note(FINDING_ALARM, STATE_CAUTION,
         "the kernel has switched off that the clock wakes the machine (wakeup: %.20s)", wakeup);
    Remedy(FINDING_ALARM, "echo enabled >/sys/class/rtc/rtc0/device/power/wakeup");
}

void FindPower() {
    NoteShutdown();
    NoteAlarm();
}

bool HasShutdown() {
    return mShutdown;
}
