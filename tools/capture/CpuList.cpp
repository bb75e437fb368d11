#include "tools/capture/CpuList.h"

#include <sched.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "BasicLib/Cpu.h"

// Numbers without a node in a row behind which none is looked for: processors that are off leave gaps.
constexpr uint32_t LAST_GAP = 512;

static CpuSet mCpus;
static int mNodesError = 0;
static cpu_set_t mBefore;
static bool mBound = false;
static char mText[16 * 1024];

void CpuSetAdd(CpuSet *set, uint32_t cpu) {
    set->bits[cpu / 64] |= static_cast<uint64_t>(1) << (cpu % 64);
}

bool CpuSetHas(const CpuSet *set, uint32_t cpu) {
    return cpu < MOST_CPUS && ((set->bits[cpu / 64] >> (cpu % 64)) & 1) != 0;
}

bool CpuSetEqual(const CpuSet *a, const CpuSet *b) {
    return memcmp(a, b, sizeof(*a)) == 0;
}

bool CpuSetEmpty(const CpuSet *set) {
    return NextCpu(set, 0) == MOST_CPUS;
}

uint32_t NextCpu(const CpuSet *set, uint32_t cpu) {
    while (cpu < MOST_CPUS && !CpuSetHas(set, cpu)) {
        bool whole = cpu % 64 == 0 && set->bits[cpu / 64] == 0;
        cpu += whole ? 64 : 1;
    }
    return cpu;
}

const char *CpuSetText(const CpuSet *set) {
    size_t length = 0;
    mText[0] = 0;
    for (uint32_t first = NextCpu(set, 0); first < MOST_CPUS && length + 16 < sizeof(mText);) {
        uint32_t last = first;
        while (CpuSetHas(set, last + 1))
            ++last;
        const char *comma = length == 0 ? "" : ",";
        const char *format = first == last ? "%s%u" : "%s%u-%u";
        length +=
            static_cast<size_t>(snprintf(mText + length, sizeof(mText) - length, format, comma, first, last));
        first = NextCpu(set, last + 1);
    }
    return mText;
}

static void FindNodes() {
    uint32_t gap = 0;
    for (uint32_t cpu = 0; cpu < MOST_CPUS && gap < LAST_GAP; ++cpu) {
        int error = ProbeMsrNode(cpu);
        gap = error == 0 ? 0 : gap + 1;
        if (error == 0)
            CpuSetAdd(&mCpus, cpu);
        else if (cpu == 0)
            mNodesError = error;
    }
}

void FindCpus() {
    FindNodes();
    if (!CpuSetEmpty(&mCpus)) {
        mNodesError = 0;
        return;
    }
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof(allowed), &allowed);
    for (uint32_t cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &allowed))
            CpuSetAdd(&mCpus, cpu);
    }
}

const CpuSet *MachineCpus() {
    return &mCpus;
}

int MsrNodesError() {
    return mNodesError;
}

int BindToCpu(uint32_t cpu) {
    if (!mBound && sched_getaffinity(0, sizeof(mBefore), &mBefore) != 0)
        return errno;
    mBound = true;
    if (cpu >= CPU_SETSIZE)
        return EINVAL;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(cpu, &one);
    return sched_setaffinity(0, sizeof(one), &one) == 0 ? 0 : errno;
}

void UnbindFromCpu() {
    if (mBound)
        sched_setaffinity(0, sizeof(mBefore), &mBefore);
}
