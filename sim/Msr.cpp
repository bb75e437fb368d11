#include "Msr.h"

#include "Arena.h"
#include "Settings.h"
#include "models/Answers.h"

#include <string.h>

namespace {

constexpr int EVERY_CPU = -1;

struct MsrEntry {
    int cpu; // EVERY_CPU: what a CPU without an entry of its own starts from
    uint32_t index;
    uint64_t value;
    uint64_t writable; // bits that a write changes
    bool readOnly;     // a write raises #GP
    uint64_t step;     // added after each read
    uint64_t hidden;   // bits that read 0 and do not change while none of keyBits is set in register keyIndex
    uint32_t keyIndex;
    uint64_t keyBits;
    MsrEntry *next;
};

MsrEntry *gMsrs;

MsrEntry *Find(int cpu, uint32_t index) {
    for (MsrEntry *entry = gMsrs; entry; entry = entry->next)
        if (entry->cpu == cpu && entry->index == index)
            return entry;
    return nullptr;
}

MsrEntry *Put(const MsrEntry *contents) {
    MsrEntry *entry = Find(contents->cpu, contents->index);
    MsrEntry *next = entry ? entry->next : gMsrs;
    if (!entry)
        gMsrs = entry = static_cast<MsrEntry *>(ArenaTake(sizeof(MsrEntry)));
    *entry = *contents;
    entry->next = next;
    return entry;
}

// The CPU's own register, made from the common one at its first use.
MsrEntry *OwnEntry(int cpu, uint32_t index) {
    MsrEntry *entry = Find(cpu, index);
    if (entry)
        return entry;
    entry = Find(EVERY_CPU, index);
    if (!entry)
        return nullptr;
    MsrEntry own = *entry;
    own.cpu = cpu;
    return Put(&own);
}

uint64_t HiddenBits(int cpu, const MsrEntry *entry) {
    return entry->hidden != 0 && (MsrGet(cpu, entry->keyIndex) & entry->keyBits) == 0 ? entry->hidden : 0;
}

} // namespace

void MsrReset() {
    gMsrs = nullptr;
}

void MsrLine(BoardLine *line) {
    MsrEntry entry = {};
    bool cpus[MAX_CPUS] = {};
    bool everyCpu = true;
    entry.index = static_cast<uint32_t>(LineNumber(line, 1, 0xFFFFFFFF));
    entry.value = LineNumber(line, 2, UINT64_MAX);
    entry.writable = UINT64_MAX;
    for (int i = 3; i < line->count; i++) {
        if (LineHas(line, i, "ro"))
            entry.readOnly = true;
        else if (LineHas(line, i, "rw"))
            entry.writable = LineNumber(line, ++i, UINT64_MAX);
        else if (LineHas(line, i, "count"))
            entry.step = LineNumber(line, ++i, UINT64_MAX);
        else if (LineHas(line, i, "hidden")) {
            entry.hidden = LineNumber(line, ++i, UINT64_MAX);
            entry.keyIndex = static_cast<uint32_t>(LineNumber(line, ++i, 0xFFFFFFFF));
            entry.keyBits = LineNumber(line, ++i, UINT64_MAX);
        } else if (LineHas(line, i, "cpus")) {
            LineCpuSet(line, ++i, cpus);
            everyCpu = false;
        } else
            LineFail(line, "none of \"ro\", \"rw\", \"count\", \"hidden\", \"cpus\"", line->words[i]);
    }
    entry.cpu = EVERY_CPU;
    if (everyCpu)
        Put(&entry);
    for (int cpu = 0; cpu < MAX_CPUS; cpu++) {
        entry.cpu = cpu;
        if (cpus[cpu])
            Put(&entry);
    }
}

bool MsrRead(int cpu, uint32_t index, uint64_t *value) {
    MsrEntry *entry = OwnEntry(cpu, index);
    if (!entry)
        return false;
    if (AnswerMsr(value))
        return true;
    *value = entry->value & ~HiddenBits(cpu, entry);
    entry->value += entry->step;
    return true;
}

bool MsrWrite(int cpu, uint32_t index, uint64_t value) {
    MsrEntry *entry = OwnEntry(cpu, index);
    if (!entry || entry->readOnly)
        return false;
    uint64_t writable = entry->writable & ~HiddenBits(cpu, entry);
    entry->value = (entry->value & ~writable) | (value & writable);
    return true;
}

void MsrSet(int cpu, uint32_t index, uint64_t value) {
    MsrEntry *entry = OwnEntry(cpu, index);
    MsrEntry fresh = {cpu, index, value, UINT64_MAX, false, 0, 0, 0, 0, nullptr};
    if (entry)
        entry->value = value;
    else
        Put(&fresh);
}

uint64_t MsrGet(int cpu, uint32_t index) {
    MsrEntry *entry = OwnEntry(cpu, index);
    return entry ? entry->value : 0;
}
