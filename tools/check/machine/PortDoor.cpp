#include "tools/check/machine/PortDoor.h"

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "BasicLib/Driver.h"
#include "tools/check/machine/KernelFiles.h"
#include "tools/check/machine/Note.h"
#include "tools/check/machine/Privilege.h"

static int mError = 0;
static bool mKills = false;

// A filter may end whoever asks: a child asks first. It goes to the kernel itself, as does the filter.
static bool AskingKills() {
    if (!HasCallFilter())
        return false;
    pid_t child = fork();
    if (child == 0) {
        syscall(SYS_iopl, 3);
        _exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child)
        return false;
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGSYS;
}

// The filter refuses or kills where nothing else explains it.
static void NoteFilter() {
    Note(FINDING_SECCOMP, STATE_BAD,
         mKills ? "a filter of system calls ends every program that asks for I/O privilege (SIGSYS)"
                : "a filter of system calls refuses I/O privilege, which nothing else forbids here");
    Remedy(FINDING_SECCOMP,
           "lift the filter: --security-opt seccomp=unconfined or --privileged of a container, "
           "SystemCallFilter= of a systemd unit");
    Note(FINDING_IOPL, STATE_BAD, "I/O privilege (iopl) is refused by a filter of system calls (seccomp)");
    Remedy(FINDING_IOPL, "%s", FindingOf(FINDING_SECCOMP)->remedy);
}

static void NoteMissingCall() {
    bool without = KernelConfig("CONFIG_X86_IOPL_IOPERM") == CONFIG_IS_OFF;
    if (HasCallFilter() && !without)
        return NoteFilter();
    Note(FINDING_IOPL, STATE_BAD, "this kernel has no iopl(2): it %s built without CONFIG_X86_IOPL_IOPERM%s",
         without ? "was" : "seems to be", without ? "" : ", or is none of Linux's (gVisor)");
    Remedy(FINDING_IOPL, "run hwreg under a kernel that has it, as those of Debian");
}

// From what is surest to what is left.
static void NoteRefused() {
    if (mError == ENOSYS)
        return NoteMissingCall();
    FindingName why = FINDING_NONE;
    if (mKills)
        return NoteFilter();
    if (HasCapability(CAPABILITY_RAWIO) == TOLD_NO)
        why = FINDING_PRIVILEGE;
    else if (!InFirstUserNamespace())
        why = FINDING_NAMESPACE;
    else if (IsLockedDown())
        why = FINDING_LOCKDOWN;
    else if (HasCallFilter())
        return NoteFilter();
    if (why == FINDING_NONE) {
        Note(FINDING_IOPL, STATE_BAD,
             "I/O privilege (iopl) is refused: %s; neither capabilities nor lockdown nor a filter explain it",
             strerror(mError));
        return Remedy(FINDING_IOPL,
                      "look for rules of a security module (SELinux, AppArmor) and a lockdown that "
                      "the kernel does not show (is /sys/kernel/security mounted?)");
    }
    Note(FINDING_IOPL, STATE_BAD, "I/O privilege (iopl) is refused: %s; see %s", strerror(mError),
         FindingOf(why)->name);
    Remedy(FINDING_IOPL, "%s", FindingOf(why)->remedy);
}

void FindPortDoor() {
    mKills = AskingKills();
    mError = mKills ? EPERM : ProbeIoPrivilege();
    if (mError != 0)
        return NoteRefused();
    Note(FINDING_IOPL, STATE_GOOD, "I/O privilege is granted");
    if (FindingOf(FINDING_LOCKDOWN)->state == STATE_UNKNOWN)
        Note(FINDING_LOCKDOWN, STATE_GOOD, "the kernel is not locked down: it grants I/O privilege");
    if (HasCallFilter())
        Note(FINDING_SECCOMP, STATE_GOOD, "system calls are filtered, but for those that are needed");
}

int IoplError() {
    return mError;
}
