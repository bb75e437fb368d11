// What was found of this kernel and machine: one finding for each name, with what can be done about it.
#pragma once

#include <cstddef>
#include <cstdint>

enum State : uint8_t { STATE_GOOD, STATE_CAUTION, STATE_BAD, STATE_UNKNOWN };

enum FindingName : uint8_t {
    FINDING_NONE,
    FINDING_PRIVILEGE,
    FINDING_NAMESPACE,
    FINDING_SECCOMP,
    FINDING_CONTAINER,
    FINDING_IOPL,
    FINDING_LOCKDOWN,
    FINDING_SECURE_BOOT,
    FINDING_DEV_MEM,
    FINDING_STRICT_DEVMEM,
    FINDING_IO_STRICT_DEVMEM,
    FINDING_PAT,
    FINDING_MSR_MODULE,
    FINDING_MSR_NODES,
    FINDING_MSR_WRITES,
    FINDING_CONFIG_WINDOW,
    FINDING_SMBUS_HOST,
    FINDING_SMBUS_DRIVER,
    FINDING_RTC_DRIVER,
    FINDING_SUPERIO_DRIVER,
    FINDING_I2C_DRIVER,
    FINDING_SPD,
    FINDING_SMBIOS,
    FINDING_RSDP,
    FINDING_SHUTDOWN,
    FINDING_ALARM,
    FINDINGS
};

struct Finding {
    const char *name; // "iopl", "config-window"; "" for FINDING_NONE
    State state;
    char found[240];
    char remedy[240]; // "" where there is none, or nothing to be remedied
};

// Takes down what was found. What does not fit is cut.
void Note(FindingName name, State state, const char *format, ...) __attribute__((format(printf, 3, 4)));

// What to do about it, as Note.
void Remedy(FindingName name, const char *format, ...) __attribute__((format(printf, 2, 3)));

// What was taken down last; never NULL. Before that it is unknown.
const Finding *FindingOf(FindingName name);
