#include "Msr.h"

#include "Arena.h"
#include "Settings.h"
#include "models/Answers.h"

#include <string.h>

namespace {

constexpr int EVERY_CPU = -1;

struct MsrEntry {
    int cpu; // EVERY_CPU: of those without an entry of their own
    uint32_t index;
    uint64_t *values;  // of each CPU
    uint64_t writable; // bits that a write changes
    bool readOnly;     // a write raises #GP
    uint64_t step;     // added after each read
    uint64_t hidden;   // bits that read 0 and do not change while none of keyBits is set in register keyIndex
    uint32_t keyIndex;
    uint64_t keyBits;
    MsrEntry *next;
};

constexpr uint32_t BUCKETS = 65536;

MsrEntry *gMsrs[BUCKETS];

MsrEntry **Bucket(int cpu, uint32_t index) {
    return &gMsrs[(index * 31 + static_cast<uint32_t>(cpu)) % BUCKETS];
}

MsrEntry *Find(int cpu, uint32_t index) {
    for (MsrEntry *entry = *Bucket(cpu, index); entry; entry = entry->next)
        if (entry->cpu == cpu && entry->index == index)
            return entry;
    return nullptr;
}

void Put(const MsrEntry *contents) {
    MsrEntry **bucket = Bucket(contents->cpu, contents->index);
    MsrEntry *entry = Find(contents->cpu, contents->index);
    MsrEntry *next = entry ? entry->next : *bucket;
    if (!entry)
        *bucket = entry = static_cast<MsrEntry *>(ArenaTake(sizeof(MsrEntry)));
    *entry = *contents;
    entry->next = next;
}

uint64_t *NewValues(uint64_t value) {
    uint64_t *values = static_cast<uint64_t *>(ArenaTakeRegisters(MAX_CPUS * sizeof(uint64_t)));
    for (int cpu = 0; cpu < MAX_CPUS; cpu++)
        values[cpu] = value;
    return values;
}

MsrEntry *EntryOf(int cpu, uint32_t index) {
    MsrEntry *entry = Find(cpu, index);
    return entry ? entry : Find(EVERY_CPU, index);
}

uint64_t HiddenBits(int cpu, const MsrEntry *entry) {
    return entry->hidden != 0 && (MsrGet(cpu, entry->keyIndex) & entry->keyBits) == 0 ? entry->hidden : 0;
}

} // namespace

void MsrReset() {
    memset(gMsrs, 0, sizeof gMsrs);
}

void MsrLine(BoardLine *line) {
    MsrEntry entry = {};
    bool cpus[MAX_CPUS] = {};
    bool everyCpu = true;
    entry.index = static_cast<uint32_t>(LineNumber(line, 1, 0xFFFFFFFF));
    entry.values = NewValues(LineNumber(line, 2, UINT64_MAX));
    entry.writable = UINT64_MAX;
    for (int i = 3; i < line->count; i++) {
        if (LineOption(line, i, "ro"))
            entry.readOnly = true;
        else if (LineOption(line, i, "rw"))
            entry.writable = LineNumber(line, ++i, UINT64_MAX);
        else if (LineOption(line, i, "count"))
            entry.step = LineNumber(line, ++i, UINT64_MAX);
        else if (LineOption(line, i, "hidden")) {
            entry.hidden = LineNumber(line, ++i, UINT64_MAX);
            entry.keyIndex = static_cast<uint32_t>(LineNumber(line, ++i, 0xFFFFFFFF));
            entry.keyBits = LineNumber(line, ++i, UINT64_MAX);
        } else if (LineHas(line, i, "cpus")) {
            LineCpuSet(line, ++i, cpus);
            everyCpu = false;
        } else
            LineFail(line, "none of \"ro\", \"rw\", \"count\", \"hidden\", \"cpus\"", line->words[i]);
    }
    if (entry.readOnly && entry.writable != UINT64_MAX)
        LineFail(line, "\"ro\" and \"rw\" contradict each other", nullptr);
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
    MsrEntry *entry = EntryOf(cpu, index);
    if (!entry)
        return false;
    if (AnswerMsr(value))
        return true;
    *value = entry->values[cpu] & ~HiddenBits(cpu, entry);
    entry->values[cpu] += entry->step;
    return true;
}

bool MsrWrite(int cpu, uint32_t index, uint64_t value) {
    MsrEntry *entry = EntryOf(cpu, index);
    if (!entry || entry->readOnly)
        return false;
    uint64_t writable = entry->writable & ~HiddenBits(cpu, entry);
    entry->values[cpu] = (entry->values[cpu] & ~writable) | (value & writable);
    return true;
}

void MsrSet(int cpu, uint32_t index, uint64_t value) {
    MsrEntry *entry = EntryOf(cpu, index);
    if (entry) {
        entry->values[cpu] = value;
        return;
    }
    MsrEntry fresh = {cpu, index, NewValues(value), UINT64_MAX, false, 0, 0, 0, 0, nullptr};
    Put(&fresh);
}

uint64_t MsrGet(int cpu, uint32_t index) {
    MsrEntry *entry = EntryOf(cpu, index);
    return entry ? entry->values[cpu] : 0;
}
