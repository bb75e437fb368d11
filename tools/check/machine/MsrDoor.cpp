#include "tools/check/machine/MsrDoor.h"

#include <cerrno>
#include <cstring>

#include "BasicLib/Cpu.h"
#include "tools/check/machine/Cpus.h"
#include "tools/check/machine/KernelFiles.h"
#include "tools/check/machine/Modprobe.h"
#include "tools/check/machine/Note.h"
#include "tools/check/machine/Privilege.h"

static MsrModule mModule;
static int mFirstError = 0; // of CPU 0's node, by which hwreg judges

static void NoteModule() {
    switch (mModule.state) {
    case MODULE_LOADED:
        return Note(FINDING_MSR_MODULE, STATE_GOOD, "the msr module is loaded");
    case MODULE_BUILT_IN:
        return Note(FINDING_MSR_MODULE, STATE_GOOD, "the msr driver is built into the kernel");
    case MODULE_COMES:
        return Note(FINDING_MSR_MODULE, STATE_GOOD,
                    "the msr module is not loaded; hwreg's own \"modprobe msr\" will do it");
    default:
        if (mFirstError == 0)
            return Note(FINDING_MSR_MODULE, STATE_GOOD, "the msr driver is there");
        Note(FINDING_MSR_MODULE, STATE_BAD, "the msr module is not loaded and will not be: %s", mModule.why);
        Remedy(FINDING_MSR_MODULE, "%s", mModule.remedy);
    }
}

static void NoteNoNodes() {
    if (MsrNodeOf(0) == MSR_NODE_REFUSED) {
        bool rights = HasCapability(CAPABILITY_RAWIO) == TOLD_NO;
        Note(FINDING_MSR_NODES, STATE_BAD, "the node /dev/cpu/0/msr cannot be opened: %s%s: MSRs read 0",
             strerror(mFirstError), rights ? "; see privilege" : "");
        return Remedy(FINDING_MSR_NODES, "%s",
                      rights ? FindingOf(FINDING_PRIVILEGE)->remedy
                             : "look for rules of a security module and of device control groups");
    }
    bool driver = mModule.state == MODULE_LOADED || mModule.state == MODULE_BUILT_IN;
    Note(FINDING_MSR_NODES, STATE_BAD, "there is no /dev/cpu/0/msr%s: MSRs read 0",
         driver ? ", though the driver is there: this /dev is not the kernel's, or CPU 0 is off"
                : "; see msr-module");
    Remedy(FINDING_MSR_NODES, "%s",
           driver ? "run it where the kernel keeps /dev (devtmpfs)" : FindingOf(FINDING_MSR_MODULE)->remedy);
}

// /ALL ends where a CPU is off; those behind it are named by number alone.
static void NoteNodes() {
    uint32_t count = MsrCpus();
    if (count == 0)
        return NoteNoNodes();
    uint32_t behind = 0;
    for (uint32_t cpu = count; cpu < CpuEnd(); ++cpu)
        behind += IsOnline(cpu) ? 1 : 0;
    const char *when = mFirstError == 0 ? "" : " once the module is loaded";
    if (behind == 0)
        return Note(FINDING_MSR_NODES, STATE_GOOD, "%u CPU%s%s nodes%s", count, count == 1 ? "" : "s",
                    count == 1 ? " has" : " have", when);
    Note(FINDING_MSR_NODES, STATE_CAUTION,
         "CPU %u has no node%s: /ALL ends in front of it and leaves out %u CPU%s that %s on", count, when,
         behind, behind == 1 ? "" : "s", behind == 1 ? "is" : "are");
    Remedy(FINDING_MSR_NODES, "switch it on (echo 1 >/sys/devices/system/cpu/cpu%u/online), or name each CPU",
           count);
}

static void NoteWrites() {
    if (IsLockedDown()) {
        Note(FINDING_MSR_WRITES, STATE_BAD, "the kernel is locked down: it takes no writes to MSRs");
        return Remedy(FINDING_MSR_WRITES, "%s", FindingOf(FINDING_LOCKDOWN)->remedy);
    }
    if (MsrCpus() == 0)
        return Note(FINDING_MSR_WRITES, STATE_UNKNOWN, "there are no nodes; see msr-nodes");
    if (!MsrWritesRefused())
        return Note(FINDING_MSR_WRITES, STATE_GOOD, "%s",
                    strcmp(mModule.allowWrites, "on") == 0
                        ? "MSRs can be written"
                        : "MSRs can be written; the kernel logs it and marks itself tainted");
    Note(FINDING_MSR_WRITES, STATE_BAD, "writes to MSRs are dropped: allow_writes=off (%s)",
         mModule.writesFrom);
    Remedy(FINDING_MSR_WRITES,
           "start the kernel with msr.allow_writes=on, or load the module with allow_writes=on");
}

void FindMsrDoor() {
    FindMsrModule(&mModule);
    mFirstError = ProbeMsrNode(0);
    NoteModule();
    NoteNodes();
    NoteWrites();
}

static bool IsRight(int error) {
    return error == EPERM || error == EACCES;
}

MsrNode MsrNodeOf(uint32_t cpu) {
    int error = ProbeMsrNode(cpu);
    if (error == 0)
        return MSR_NODE_THERE;
    if (IsRight(error))
        return MSR_NODE_REFUSED;
    bool loads = mFirstError != 0 && !IsRight(mFirstError) && mModule.state == MODULE_COMES;
    return loads && IsOnline(static_cast<uint16_t>(cpu)) ? MSR_NODE_COMES : MSR_NODE_NEVER;
}

uint32_t MsrCpus() {
    if (mFirstError == 0)
        return static_cast<uint32_t>(GetCpuCount());
    uint32_t count = 0;
    while (count < MOST_CPUS && MsrNodeOf(count) == MSR_NODE_COMES)
        ++count;
    return count;
}

bool MsrWritesRefused() {
    return IsLockedDown() || strcmp(mModule.allowWrites, "off") == 0;
}
