#include "tools/check/machine/Note.h"

#include <cstdarg>
#include <cstdio>

static Finding mFindings[FINDINGS] = {
    {"", STATE_UNKNOWN, "", ""},
    {"privilege", STATE_UNKNOWN, "", ""},
    {"namespace", STATE_UNKNOWN, "", ""},
    {"seccomp", STATE_UNKNOWN, "", ""},
    {"container", STATE_UNKNOWN, "", ""},
    {"iopl", STATE_UNKNOWN, "", ""},
    {"lockdown", STATE_UNKNOWN, "", ""},
    {"secure-boot", STATE_UNKNOWN, "", ""},
    {"dev-mem", STATE_UNKNOWN, "", ""},
    {"strict-devmem", STATE_UNKNOWN, "", ""},
    {"io-strict-devmem", STATE_UNKNOWN, "", ""},
    {"pat", STATE_UNKNOWN, "", ""},
    {"msr-module", STATE_UNKNOWN, "", ""},
    {"msr-nodes", STATE_UNKNOWN, "", ""},
    {"msr-writes", STATE_UNKNOWN, "", ""},
    {"config-window", STATE_UNKNOWN, "", ""},
    {"smbus-host", STATE_UNKNOWN, "", ""},
    {"smbus-driver", STATE_UNKNOWN, "", ""},
    {"rtc-driver", STATE_UNKNOWN, "", ""},
    {"superio-driver", STATE_UNKNOWN, "", ""},
    {"i2c-driver", STATE_UNKNOWN, "", ""},
    {"spd", STATE_UNKNOWN, "", ""},
    {"smbios", STATE_UNKNOWN, "", ""},
    {"rsdp", STATE_UNKNOWN, "", ""},
    {"shutdown", STATE_UNKNOWN, "", ""},
    {"alarm", STATE_UNKNOWN, "", ""},
};

void Note(FindingName name, State state, const char *format, ...) {
    va_list args;
    va_start(args, format);
    mFindings[name].state = state;
    vsnprintf(mFindings[name].found, sizeof(mFindings[name].found), format, args);
    va_end(args);
}

void Remedy(FindingName name, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(mFindings[name].remedy, sizeof(mFindings[name].remedy), format, args);
    va_end(args);
}

const Finding *FindingOf(FindingName name) {
    return &mFindings[name];
}
