#include "Affinity.h"

#include "Settings.h"

#include <errno.h>
#include <sched.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#define DOOR extern "C" __attribute__((visibility("default")))

namespace {

bool gBound;
cpu_set_t gCpus;

bool OfThisProcess(pid_t process) {
    return gBoard.loaded && (process == 0 || process == static_cast<pid_t>(syscall(SYS_getpid)));
}

// All of the board's CPUs, or those that the process is bound to.
cpu_set_t Allowed() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    for (int cpu = 0; cpu < MAX_CPUS; cpu++)
        if (gBoard.cpuPresent[cpu] && (!gBound || CPU_ISSET(cpu, &gCpus)))
            CPU_SET(cpu, &allowed);
    return allowed;
}

} // namespace

void AffinityReset() {
    gBound = false;
}

int CpuOfProcess() {
    cpu_set_t allowed = Allowed();
    int cpu = 0;
    while (cpu < MAX_CPUS && !CPU_ISSET(cpu, &allowed))
        cpu++;
    return cpu < MAX_CPUS ? cpu : 0;
}

DOOR int sched_setaffinity(pid_t process, size_t size, const cpu_set_t *cpus) noexcept {
    if (!OfThisProcess(process))
        return static_cast<int>(syscall(SYS_sched_setaffinity, process, size, cpus));
    cpu_set_t wanted;
    CPU_ZERO(&wanted);
    memcpy(&wanted, cpus, size < sizeof wanted ? size : sizeof wanted);
    bool before = gBound;
    cpu_set_t bound = gCpus;
    gBound = true;
    gCpus = wanted;
    cpu_set_t allowed = Allowed();
    if (CPU_COUNT(&allowed) != 0)
        return 0;
    gBound = before;
    gCpus = bound;
    errno = EINVAL;
    return -1;
}

DOOR int sched_getaffinity(pid_t process, size_t size, cpu_set_t *cpus) noexcept {
    if (!OfThisProcess(process)) {
        long length = syscall(SYS_sched_getaffinity, process, size, cpus);
        return length < 0 ? -1 : 0;
    }
    cpu_set_t allowed = Allowed();
    memset(cpus, 0, size);
    memcpy(cpus, &allowed, size < sizeof allowed ? size : sizeof allowed);
    return 0;
}
