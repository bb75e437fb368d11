#include "tools/capture/Leaves.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "BasicLib/Cpu.h"
#include "tools/capture/CpuList.h"
#include "tools/capture/Options.h"
#include "tools/capture/Sheet.h"

constexpr uint32_t MOST_LEAVES =
    0x80; // of one kind; hypervisors and processors that are unknown may say anything
constexpr uint32_t MOST_SUBLEAVES = 64;
constexpr uint32_t LEAF_SERIAL = 3;
constexpr uint32_t LEAF_HYPERVISOR = 0x40000000;
constexpr uint32_t LEAF_EXTENDED = 0x80000000;

// How the subleaves of a leaf end (Intel SDM volume 2, CPUID; AMD64 APM volume 3, appendix E).
enum SubleafRule : uint8_t {
    SUB_COUNT,    // EAX of subleaf 0 is the last one
    SUB_CACHES,   // with the first whose EAX has no type in bits 4:0
    SUB_LEVELS,   // with the first whose ECX has no type in bits 15:8
    SUB_SECTIONS, // with the first whose EAX has no type in bits 3:0, from subleaf 2 on
    SUB_STATES,   // all 64
    SUB_FOUR,     // 0 to 3
    SUB_SIX,      // 0 to 5
};

struct SubleafRow {
    uint32_t leaf;
    SubleafRule rule;
};

static const SubleafRow mSubleaves[] = {
    {0x04, SUB_CACHES}, {0x07, SUB_COUNT},        {0x0B, SUB_LEVELS},     {0x0D, SUB_STATES},
    {0x0F, SUB_FOUR},   {0x10, SUB_SIX},          {0x12, SUB_SECTIONS},   {0x14, SUB_COUNT},
    {0x17, SUB_COUNT},  {0x18, SUB_COUNT},        {0x1B, SUB_FOUR},       {0x1D, SUB_COUNT},
    {0x1E, SUB_FOUR},   {0x1F, SUB_LEVELS},       {0x20, SUB_COUNT},      {0x23, SUB_SIX},
    {0x24, SUB_COUNT},  {0x8000001D, SUB_CACHES}, {0x80000020, SUB_FOUR}, {0x80000026, SUB_LEVELS},
};

// What one processor gave of a leaf.
struct LeafReading {
    uint32_t cpu;
    uint32_t leaf;
    uint32_t subleaf;
    uint32_t registers[4];
    bool told;
};

static LeafReading *mReadings = nullptr;
static size_t mCount = 0;
static size_t mRoom = 0;
static CpuSet mRead; // processors whose leaves have been read

static LeafReading *Take(uint32_t cpu, uint32_t leaf, uint32_t subleaf) {
    static LeafReading lost;
    LeafReading *reading = &lost;
    if (mCount == mRoom) {
        size_t room = mRoom == 0 ? 256 : 2 * mRoom;
        void *more = realloc(mReadings, room * sizeof(LeafReading));
        if (more != nullptr) {
            mReadings = static_cast<LeafReading *>(more);
            mRoom = room;
        }
    }
    if (mCount < mRoom)
        reading = &mReadings[mCount++];
    *reading = {cpu, leaf, subleaf, {0, 0, 0, 0}, false};
    GetCpuIdSub(leaf, subleaf, reading->registers);
    return reading;
}

static bool IsLast(SubleafRule rule, const LeafReading *reading, uint32_t count) {
    switch (rule) {
    case SUB_COUNT:
        return reading->subleaf >= count;
    case SUB_CACHES:
        return (reading->registers[0] & 0x1F) == 0;
    case SUB_LEVELS:
        return (reading->registers[2] & 0xFF00) == 0;
    case SUB_SECTIONS:
        return reading->subleaf >= 2 && (reading->registers[0] & 0xF) == 0;
    case SUB_FOUR:
        return reading->subleaf == 3;
    case SUB_SIX:
        return reading->subleaf == 5;
    default:
        return false;
    }
}

static void ReadSubleaves(uint32_t cpu, uint32_t leaf, SubleafRule rule) {
    uint32_t count = 0;
    for (uint32_t subleaf = 0; subleaf < MOST_SUBLEAVES; ++subleaf) {
        LeafReading *reading = Take(cpu, leaf, subleaf);
        if (subleaf == 0)
            count = reading->registers[0];
        if (IsLast(rule, reading, count))
            return;
    }
}

static void ReadLeaf(uint32_t cpu, uint32_t leaf) {
    for (const SubleafRow &row : mSubleaves) {
        if (row.leaf == leaf)
            return ReadSubleaves(cpu, leaf, row.rule);
    }
    LeafReading *reading = Take(cpu, leaf, 0);
    if (gOptions.noSerials && leaf == LEAF_SERIAL)
        memset(reading->registers, 0, sizeof(reading->registers));
}

// All leaves of a kind, as its first one counts them.
static void ReadKind(uint32_t cpu, uint32_t first) {
    uint32_t registers[4];
    GetCpuId(first, registers);
    uint32_t last = registers[0] >= first && registers[0] - first < MOST_LEAVES ? registers[0] : first;
    if (registers[0] > last && first != LEAF_HYPERVISOR)
        Put("# missing: cpuid %x-%x on cpus %u: too many\n", last + 1, registers[0], cpu);
    for (uint32_t leaf = first; leaf <= last; ++leaf)
        ReadLeaf(cpu, leaf);
}

static void ReadCpu(uint32_t cpu) {
    CpuSetAdd(&mRead, cpu);
    ReadKind(cpu, 0);
    ReadKind(cpu, LEAF_HYPERVISOR); // also where there is none: the first leaf then says so
    ReadKind(cpu, LEAF_EXTENDED);
}

static bool Alike(const LeafReading *a, const LeafReading *b) {
    return a->leaf == b->leaf && a->subleaf == b->subleaf &&
           memcmp(a->registers, b->registers, sizeof(a->registers)) == 0;
}

// Puts the leaf once for all processors that gave the same.
static void PutGroup(size_t first) {
    static CpuSet same;
    LeafReading *reading = &mReadings[first];
    memset(&same, 0, sizeof(same));
    for (size_t i = first; i < mCount; ++i) {
        if (Alike(&mReadings[i], reading)) {
            CpuSetAdd(&same, mReadings[i].cpu);
            mReadings[i].told = true;
        }
    }
    const uint32_t *registers = reading->registers;
    Put("cpuid %x %x %x %x %x %x", reading->leaf, reading->subleaf, registers[0], registers[1], registers[2],
        registers[3]);
    if (!CpuSetEqual(&same, &mRead))
        Put(" cpus %s", CpuSetText(&same));
    Put("\n");
}

// The groups of one leaf stand together, in the order of the first processor that has it.
static void PutLeaf(size_t first) {
    for (size_t i = first; i < mCount; ++i) {
        const LeafReading *reading = &mReadings[i];
        if (!reading->told && reading->leaf == mReadings[first].leaf &&
            reading->subleaf == mReadings[first].subleaf)
            PutGroup(i);
    }
}

// Tells once of all processors that this process was not let to.
static void PutUnread(int error) {
    static CpuSet unread;
    for (uint32_t cpu = NextCpu(MachineCpus(), 0); cpu < MOST_CPUS; cpu = NextCpu(MachineCpus(), cpu + 1)) {
        if (!CpuSetHas(&mRead, cpu))
            CpuSetAdd(&unread, cpu);
    }
    if (!CpuSetEmpty(&unread))
        Put("# missing: cpuid on cpus %s: %s\n", CpuSetText(&unread), strerror(error));
}

void CaptureLeaves() {
    int lastError = 0;
    Put("# --- cpuid\n");
    for (uint32_t cpu = NextCpu(MachineCpus(), 0); cpu < MOST_CPUS; cpu = NextCpu(MachineCpus(), cpu + 1)) {
        int error = BindToCpu(cpu);
        if (error == 0)
            ReadCpu(cpu);
        else
            lastError = error;
    }
    UnbindFromCpu();
    PutUnread(lastError);
    for (size_t i = 0; i < mCount; ++i) {
        if (!mReadings[i].told)
            PutLeaf(i);
    }
    free(mReadings);
}
