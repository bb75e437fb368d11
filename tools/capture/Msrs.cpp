#include "tools/capture/Msrs.h"

#include <cstdio>
#include <cstring>

#include "Base/Memory.h"
#include "BasicLib/Chipset.h"
#include "BasicLib/Cpu.h"
#include "tools/capture/CpuList.h"
#include "tools/capture/MsrNames.h"
#include "tools/capture/Options.h"
#include "tools/capture/Sheet.h"

constexpr uint32_t MOST_BANKS = 32;
constexpr uint64_t FIXED_PPIN = 0x0123456789ABCDEF;

// What one processor gave of a register.
struct Reading {
    uint32_t cpu;
    int error;
    uint64_t value;
};

static Reading *mReadings = nullptr;
static uint32_t mCount = 0;
static CpuSet mSame;

// Readings for all processors. False without memory or processors.
static bool Begin() {
    for (uint32_t cpu = NextCpu(MachineCpus(), 0); cpu < MOST_CPUS; cpu = NextCpu(MachineCpus(), cpu + 1))
        ++mCount;
    mReadings = static_cast<Reading *>(Malloc(mCount * sizeof(Reading)));
    return mCount != 0 && mReadings != nullptr;
}

static void ReadEverywhere(uint32_t index) {
    Reading *reading = mReadings;
    for (uint32_t cpu = NextCpu(MachineCpus(), 0); cpu < MOST_CPUS; cpu = NextCpu(MachineCpus(), cpu + 1)) {
        *reading = {cpu, 0, 0};
        reading->error = TryReadMsr(cpu, index, &reading->value);
        bool serial = index == MSR_PPIN || index == MSR_AMD_PPIN;
        if (gOptions.noSerials && serial && reading->value != 0)
            reading->value = FIXED_PPIN;
        ++reading;
    }
}

static bool Alike(const Reading *a, const Reading *b) {
    return a->error == b->error && a->value == b->value;
}

// Whether an earlier reading stood for this one already.
static bool IsTold(const Reading *reading) {
    for (const Reading *other = mReadings; other != reading; ++other) {
        if (Alike(other, reading))
            return true;
    }
    return false;
}

static void PutGroup(uint32_t index, const char *name, const Reading *first) {
    memset(&mSame, 0, sizeof(mSame));
    for (uint32_t i = 0; i < mCount; ++i) {
        if (Alike(&mReadings[i], first))
            CpuSetAdd(&mSame, mReadings[i].cpu);
    }
    bool everywhere = CpuSetEqual(&mSame, MachineCpus());
    if (first->error != 0) {
        Put("# missing: msr %x: not there on cpus %s (%s)%s%s\n", index, CpuSetText(&mSame),
            strerror(first->error), name == nullptr ? "" : ": ", name == nullptr ? "" : name);
        return;
    }
    Put("msr %x %llx", index, static_cast<unsigned long long>(first->value));
    if (!everywhere)
        Put(" cpus %s", CpuSetText(&mSame));
    if (name != nullptr)
        Put("    # %s", name);
    Put("\n");
}

static void CaptureMsr(uint32_t index, const char *name) {
    ReadEverywhere(index);
    for (uint32_t i = 0; i < mCount; ++i) {
        if (!IsTold(&mReadings[i]))
            PutGroup(index, name, &mReadings[i]);
    }
}

// Whether the machine can have a register of that maker: by its processor, or else by its chipset. What is
// neither may have all of them.
static bool IsOf(MsrMaker maker) {
    uint32_t registers[4];
    GetCpuId(0, registers);
    uint16_t vendor = ChipsetLpcIdentify();
    bool intel = memcmp(&registers[1], "Genu", 4) == 0 || vendor == VENDOR_INTEL;
    bool amd = memcmp(&registers[1], "Auth", 4) == 0 || memcmp(&registers[1], "Hygo", 4) == 0 ||
               vendor == VENDOR_AMD || vendor == VENDOR_HYGON;
    return maker == MSR_BOTH || (maker == MSR_INTEL && intel) || (maker == MSR_AMD && amd) ||
           (!intel && !amd);
}

static void CaptureBanks() {
    static const char *const registers[] = {"CTL", "STATUS", "ADDR", "MISC"};
    uint64_t capabilities = 0;
    TryReadMsr(NextCpu(MachineCpus(), 0), MSR_MCG_CAP, &capabilities);
    uint32_t banks = capabilities & 0xFF;
    for (uint32_t i = 0; i < 4 * (banks < MOST_BANKS ? banks : MOST_BANKS); ++i) {
        char name[32];
        snprintf(name, sizeof(name), "IA32_MC%u_%s", i / 4, registers[i % 4]);
        CaptureMsr(MSR_MC0_CTL + i, name);
    }
}

void CaptureMsrs() {
    Put("# --- msrs\n");
    if (MsrNodesError() != 0) {
        Put("# missing: msrs: %s; the module msr brings their nodes\n", strerror(MsrNodesError()));
        return;
    }
    if (!Begin()) {
        Put("# missing: msrs: no memory\n");
        return;
    }
    for (const MsrName *row = gMsrNames; row->name != nullptr; ++row) {
        if (IsOf(row->maker))
            CaptureMsr(row->index, row->name);
    }
    CaptureBanks();
    for (uint32_t i = 0; i < gOptions.msrs.count; ++i) {
        const AskedRange *asked = &gOptions.msrs.ranges[i];
        for (uint64_t index = asked->first; index <= asked->last; ++index)
            CaptureMsr(static_cast<uint32_t>(index), nullptr);
    }
    Free(mReadings);
}
