#include "Cpuid.h"

#include "Affinity.h"
#include "Arena.h"
#include "Encoding.h"
#include "Functions.h"
#include "Mistake.h"
#include "Settings.h"

#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

const uint8_t CPUID[2] = {0x0F, 0xA2};
const uint8_t UD2[2] = {0x0F, 0x0B};
constexpr uint8_t CPUID_OPCODE = 0xA2; // in the map behind 0F
constexpr size_t MAX_PLACES = 256;
constexpr uintptr_t PAGE = 4096;

struct Place {
    const uint8_t *start;  // of the instruction, which may have prefixes
    const uint8_t *behind; // the two bytes before this are replaced
    int protection;        // of the pages
};
Place gPlaces[MAX_PLACES];
size_t gPlaceCount;
bool gSearched;
bool gReplaced;

// The instructions of a function. The two bytes may also be a part of others, so all of it is decoded; when
// that does not come out even, it holds more than code, and none is taken for what it looks like.
void SearchFunction(const CodeRange *function, int protection) {
    size_t before = gPlaceCount;
    unsigned length;
    for (const uint8_t *at = function->start; at < function->end; at += length) {
        Encoding encoding;
        length = InstructionLength(at, function->end, &encoding);
        if (length == 0) {
            gPlaceCount = before;
            return;
        }
        if (encoding.map != 1 || encoding.vector || encoding.opcode != CPUID_OPCODE)
            continue;
        if (gPlaceCount == MAX_PLACES)
            BoardFail("the program has more than %zu CPUID instructions", MAX_PLACES);
        gPlaces[gPlaceCount++] = {at, at + length, protection};
    }
}

// Only functions that have the two bytes somewhere are looked at.
void SearchSegment(const FunctionTable *functions, const uint8_t *start, const uint8_t *end, int protection) {
    while (const void *found = memmem(start, static_cast<size_t>(end - start), CPUID, sizeof CPUID)) {
        const uint8_t *at = static_cast<const uint8_t *>(found);
        CodeRange function = FunctionAround(functions, at);
        SearchFunction(&function, protection);
        start = function.end > at ? function.end : at + 1;
    }
}

void SearchProgram() {
    LoadedFile program = MainProgram();
    FunctionTable functions = FindFunctionTable(&program);
    for (size_t i = 0; i < program.headerCount; i++) {
        const ElfW(Phdr) *header = &program.headers[i];
        if (header->p_type != PT_LOAD || !(header->p_flags & PF_X) || !(header->p_flags & PF_R))
            continue;
        const uint8_t *start = reinterpret_cast<const uint8_t *>(program.base + header->p_vaddr);
        int protection = PROT_READ | PROT_EXEC | ((header->p_flags & PF_W) ? PROT_WRITE : 0);
        SearchSegment(&functions, start, start + header->p_filesz, protection);
    }
}

void Protect(const Place *place, int protection) {
    uintptr_t first = reinterpret_cast<uintptr_t>(place->behind - sizeof UD2) & ~(PAGE - 1);
    uintptr_t end = reinterpret_cast<uintptr_t>(place->behind);
    if (syscall(SYS_mprotect, first, end - first, protection) != 0)
        BoardFail("the program's CPUID at %p cannot be replaced", static_cast<const void *>(place->start));
}

const CpuidLeaf *FindLeaf(uint32_t leaf, uint32_t subleaf) {
    int cpu = CpuOfProcess();
    const CpuidLeaf *found = gBoard.cpuidLeaves;
    while (found &&
           (found->leaf != leaf || found->subleaf != subleaf || (found->someCpus && !found->cpus[cpu])))
        found = found->next;
    return found;
}

// Intel's processors answer a leaf beyond their highest ones with the data of the highest basic one (Intel
// SDM volume 2, CPUID), others with zeros.
const CpuidLeaf *FindLeafBeyond(uint32_t leaf, uint32_t subleaf) {
    constexpr uint32_t EXTENDED = 0x80000000;
    constexpr uint32_t INTEL[] = {0x756E6547, 0x6C65746E, 0x49656E69}; // EBX, ECX, EDX
    const CpuidLeaf *basic = FindLeaf(0, 0);
    const CpuidLeaf *extended = FindLeaf(EXTENDED, 0);
    if (!basic || memcmp(basic->registers + 1, INTEL, sizeof INTEL) != 0)
        return nullptr;
    if (leaf >= EXTENDED ? extended && leaf <= extended->registers[0] : leaf <= basic->registers[0])
        return nullptr;
    return FindLeaf(basic->registers[0], subleaf);
}

} // namespace

void ReplaceCpuid(bool replaced) {
    if (replaced == gReplaced)
        return;
    gReplaced = replaced;
    if (!gSearched)
        SearchProgram();
    gSearched = true;
    // Meanwhile the pages cannot be executed, so no handler of the program may run; SIGABRT is BoardFail's.
    uint64_t all = ~(static_cast<uint64_t>(1) << (SIGABRT - 1)), before;
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, &all, &before, sizeof all);
    for (size_t i = 0; i < gPlaceCount; i++) {
        Protect(&gPlaces[i], PROT_READ | PROT_WRITE);
        memcpy(const_cast<uint8_t *>(gPlaces[i].behind) - sizeof UD2, replaced ? UD2 : CPUID, sizeof UD2);
        Protect(&gPlaces[i], gPlaces[i].protection);
    }
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, &before, nullptr, sizeof before);
}

void AnswerCpuid(uint32_t leaf, uint32_t subleaf, uint32_t registers[4]) {
    const CpuidLeaf *found = FindLeaf(leaf, subleaf);
    if (!found)
        found = FindLeafBeyond(leaf, subleaf);
    for (int i = 0; i < 4; i++)
        registers[i] = found ? found->registers[i] : 0;
}

bool CarryOutCpuid(greg_t *registers) {
    const Place *place = gPlaces;
    const Place *behind = gPlaces + gPlaceCount;
    while (place < behind && reinterpret_cast<greg_t>(place->start) != registers[REG_RIP])
        place++;
    if (!gReplaced || place == behind)
        return false;
    uint32_t values[4];
    AnswerCpuid(static_cast<uint32_t>(registers[REG_RAX]), static_cast<uint32_t>(registers[REG_RCX]), values);
    registers[REG_RAX] = greg_t(values[0]);
    registers[REG_RBX] = greg_t(values[1]);
    registers[REG_RCX] = greg_t(values[2]);
    registers[REG_RDX] = greg_t(values[3]);
    registers[REG_RIP] = reinterpret_cast<greg_t>(place->behind);
    return true;
}
