#include "tools/check/machine/Privilege.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Common/FileLib.h"
#include "tools/check/machine/KernelFiles.h"
#include "tools/check/machine/Note.h"

// Inodes of the machine's first namespaces (PROC_USER_INIT_INO, PROC_PID_INIT_INO of the Linux kernel).
constexpr ino_t FIRST_USER_NAMESPACE = 4026531837;
constexpr ino_t FIRST_PID_NAMESPACE = 4026531836;

static bool mStatusRead = false;
static uint64_t mEffective = 0;
static int mSeccomp = 0;
static bool mFirstUser = true;
static const char *mContainer = nullptr; // what says that this is one
static char mLockdown[32] = "";          // the mode; "" where the kernel does not say

static void ReadStatus() {
    char line[KERNEL_LINE];
    FILE *file = OpenToRead("/proc/self/status");
    while (NextLine(file, line)) {
        if (strncmp(line, "CapEff:", 7) == 0) {
            mEffective = strtoull(line + 7, nullptr, 16);
            mStatusRead = true;
        }
        if (strncmp(line, "Seccomp:", 8) == 0)
            mSeccomp = atoi(line + 8);
    }
    if (file != nullptr)
        Fclose(file);
}

static bool IsNamespace(const char *path, ino_t first) {
    struct stat space;
    return stat(path, &space) != 0 || space.st_ino == first;
}

// The whole range of numbers, mapped on itself: only there is user 0 the machine's root.
static bool HasWholeUserMap() {
    char line[KERNEL_LINE];
    unsigned long inside = 0;
    unsigned long outside = 0;
    unsigned long count = 0;
    if (!FirstLine("/proc/self/uid_map", line) || sscanf(line, "%lu %lu %lu", &inside, &outside, &count) != 3)
        return true;
    return inside == 0 && outside == 0 && count == UINT32_MAX;
}

static void NotePrivilege() {
    if (!mStatusRead)
        return Note(FINDING_PRIVILEGE, STATE_UNKNOWN, "/proc/self/status does not tell the capabilities");
    bool rawio = HasCapability(CAPABILITY_RAWIO) == TOLD_YES;
    bool admin = HasCapability(CAPABILITY_ADMIN) == TOLD_YES;
    const char *who = geteuid() == 0 ? "root" : "not root";
    if (rawio && admin)
        return Note(FINDING_PRIVILEGE, STATE_GOOD, "%s, with CAP_SYS_RAWIO and CAP_SYS_ADMIN", who);
    if (rawio)
        Note(
            FINDING_PRIVILEGE, STATE_CAUTION,
            "%s, with CAP_SYS_RAWIO; without CAP_SYS_ADMIN the kernel hides addresses and most configuration "
            "registers from this check",
            who);
    else
        Note(FINDING_PRIVILEGE, STATE_BAD,
             "%s, without CAP_SYS_RAWIO: no ports, no memory, no MSRs (capabilities %016llx)", who,
             static_cast<unsigned long long>(mEffective));
    Remedy(FINDING_PRIVILEGE, geteuid() == 0 ? "give this root its capabilities: they were taken away"
                                             : "run it as root: sudo hwreg-check ...");
}

static void NoteNamespace() {
    mFirstUser = IsNamespace("/proc/self/ns/user", FIRST_USER_NAMESPACE) && HasWholeUserMap();
    if (mFirstUser)
        return Note(FINDING_NAMESPACE, STATE_GOOD, "the machine's own user namespace");
    Note(FINDING_NAMESPACE, STATE_BAD,
         "a user namespace of its own: its root has no right to ports, memory and MSRs, whatever its "
         "capabilities");
    Remedy(FINDING_NAMESPACE, "run hwreg outside of it (no unshare -r, no rootless container)");
}

static void NoteSeccomp() {
    if (mSeccomp == 0)
        return Note(FINDING_SECCOMP, mStatusRead ? STATE_GOOD : STATE_UNKNOWN, "%s",
                    mStatusRead ? "system calls are not filtered" : "/proc/self/status does not tell");
    Note(FINDING_SECCOMP, STATE_CAUTION, "system calls of this process are filtered (seccomp mode %d)",
         mSeccomp);
}

static void NoteContainer() {
    static char named[KERNEL_LINE];
    if (FirstLine("/run/systemd/container", named))
        mContainer = named;
    else if (FileExists("/.dockerenv"))
        mContainer = "/.dockerenv";
    else if (FileExists("/run/.containerenv"))
        mContainer = "/run/.containerenv";
    else if (!IsNamespace("/proc/self/ns/pid", FIRST_PID_NAMESPACE))
        mContainer = "a namespace of processes";
    if (mContainer == nullptr)
        return Note(FINDING_CONTAINER, STATE_GOOD, "no container");
    Note(FINDING_CONTAINER, STATE_CAUTION,
         "this is a container (%.60s): devices, modules and files of the host may be missing in it",
         mContainer);
    Remedy(FINDING_CONTAINER,
           "run hwreg on the host, or in a container with --privileged and the host's /dev, "
           "/lib/modules and process namespace");
}

// The mode is the word in brackets: "none [integrity] confidentiality".
static void ReadLockdown() {
    char line[KERNEL_LINE];
    const char *mode = FirstLine("/sys/kernel/security/lockdown", line) ? strchr(line, '[') : nullptr;
    if (mode != nullptr)
        snprintf(mLockdown, sizeof(mLockdown), "%.*s", static_cast<int>(strcspn(mode + 1, "]")), mode + 1);
}

static void NoteSecureBoot() {
    uint8_t bytes[5];
    int64_t got = ReadBytes("/sys/firmware/efi/efivars/SecureBoot-8be4df61-93ca-11d2-aa0d-00e098032b8c", 0,
                            bytes, sizeof(bytes));
    if (got != sizeof(bytes) && FileExists("/sys/firmware/efi/fw_platform_size"))
        return Note(FINDING_SECURE_BOOT, STATE_UNKNOWN, "the firmware's variable SecureBoot cannot be read");
    if (got != sizeof(bytes))
        return Note(FINDING_SECURE_BOOT, STATE_GOOD,
                    "the kernel was not started by UEFI, or does not say so");
    if (bytes[4] == 0)
        return Note(FINDING_SECURE_BOOT, STATE_GOOD, "Secure Boot is off");
    bool locked = IsLockedDown();
    Note(FINDING_SECURE_BOOT, locked ? STATE_BAD : STATE_CAUTION,
         locked ? "Secure Boot is on: that is why most distributions lock the kernel down"
                : "Secure Boot is on; this kernel does not lock itself down for it");
    if (locked)
        Remedy(FINDING_SECURE_BOOT, "switch Secure Boot off in the firmware's setup of the board under test");
}

static void NoteLockdown() {
    ReadLockdown();
    if (mLockdown[0] == 0)
        return Note(FINDING_LOCKDOWN, STATE_UNKNOWN, "/sys/kernel/security/lockdown does not tell");
    if (!IsLockedDown())
        return Note(FINDING_LOCKDOWN, STATE_GOOD, "the kernel is not locked down");
    Note(FINDING_LOCKDOWN, STATE_BAD,
         "the kernel is locked down (%s): ports, /dev/mem and writing MSRs are refused to root, too",
         mLockdown);
    Remedy(FINDING_LOCKDOWN, "switch Secure Boot off, or start the kernel without lockdown=%s", mLockdown);
}

void FindPrivilege() {
    ReadStatus();
    NotePrivilege();
    NoteNamespace();
    NoteSeccomp();
    NoteContainer();
    NoteLockdown();
    NoteSecureBoot();
}

Told HasCapability(unsigned capability) {
    if (!mStatusRead)
        return TOLD_NOTHING;
    return (mEffective >> capability) & 1 ? TOLD_YES : TOLD_NO;
}

bool InFirstUserNamespace() {
    return mFirstUser;
}

bool HasCallFilter() {
    return mSeccomp != 0;
}

bool InContainer() {
    return mContainer != nullptr;
}

bool IsLockedDown() {
    return mLockdown[0] != 0 && strcmp(mLockdown, "none") != 0;
}
