#include "tools/check/machine/Cpus.h"

#include <sched.h>

#include <cctype>
#include <cstdlib>

#include "tools/check/machine/KernelFiles.h"

struct CpuNumbers {
    bool known;
    uint32_t end;
    uint8_t is[MOST_CPUS];
};

static CpuNumbers mOnline, mPresent;

// A list as "0-3,5".
static void TakeList(const char *path, CpuNumbers *numbers) {
    char line[KERNEL_LINE];
    const char *at = line;
    if (!FirstLine(path, line))
        return;
    while (isdigit(static_cast<unsigned char>(*at)) != 0) {
        char *rest = nullptr;
        unsigned long first = strtoul(at, &rest, 10);
        unsigned long last = *rest == '-' ? strtoul(rest + 1, &rest, 10) : first;
        for (unsigned long cpu = first; cpu <= last && cpu < MOST_CPUS; ++cpu) {
            numbers->is[cpu] = 1;
            numbers->end = static_cast<uint32_t>(cpu) + 1;
            numbers->known = true;
        }
        at = *rest == ',' ? rest + 1 : "";
    }
}

static void TakeAllowed(CpuNumbers *numbers) {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof(allowed), &allowed);
    for (uint32_t cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &allowed))
            continue;
        numbers->is[cpu] = 1;
        numbers->end = cpu + 1;
    }
    numbers->known = true;
}

static void FindCpus() {
    if (mOnline.known)
        return;
    TakeList("/sys/devices/system/cpu/online", &mOnline);
    TakeList("/sys/devices/system/cpu/present", &mPresent);
    if (!mOnline.known)
        TakeAllowed(&mOnline);
}

bool IsOnline(uint32_t cpu) {
    FindCpus();
    return cpu < MOST_CPUS && mOnline.is[cpu] != 0;
}

uint32_t CpuEnd() {
    FindCpus();
    return mPresent.end > mOnline.end ? mPresent.end : mOnline.end;
}
