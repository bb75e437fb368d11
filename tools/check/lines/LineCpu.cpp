#include "tools/check/lines/LineCpu.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "BasicLib/Cpu.h"
#include "Common/ComFunc/CmdLine.h"
#include "tools/check/lines/Operands.h"
#include "tools/check/machine/Cpus.h"
#include "tools/check/machine/Leaves.h"
#include "tools/check/machine/MsrDoor.h"

static const char *const mZero = "return MSR: 0x00000000_00000000";

static FindingName ReasonOfNode(MsrNode node) {
    if (node != MSR_NODE_REFUSED && FindingOf(FINDING_MSR_MODULE)->state == STATE_BAD)
        return FINDING_MSR_MODULE;
    return FINDING_MSR_NODES;
}

// A CPU whose register cannot be had. True when it is one.
static bool JudgeNode(Line *line, int16_t cpu) {
    MsrNode node = MsrNodeOf(static_cast<uint32_t>(cpu));
    if (node == MSR_NODE_THERE || node == MSR_NODE_COMES)
        return false;
    bool other =
        cpu != 0 && MsrNodeOf(0) != MSR_NODE_NEVER && node == MSR_NODE_NEVER; // it is the number's fault
    Judge(line, VERDICT_REFUSED, 0, other ? FINDING_NONE : ReasonOfNode(node));
    Shows(line, "%s", mZero);
    if (other)
        Why(line, "there is no CPU %d, or it is offline", cpu);
    return true;
}

// What the CPU says to a read of the register; 0 where it cannot be asked yet.
static int RegisterError(uint32_t cpu, uint32_t index) {
    uint64_t value;
    return MsrNodeOf(cpu) == MSR_NODE_THERE ? TryReadMsr(cpu, index, &value) : 0;
}

// Nothing is read before hwreg has loaded the module.
static void CautionOfModule(Line *line, uint32_t cpu) {
    if (MsrNodeOf(cpu) == MSR_NODE_COMES)
        Caution(line, "whether the CPU has the register cannot be told before the msr module is loaded");
}

static void JudgeRegister(Line *line, Verdict verdict, uint32_t index, int error) {
    Judge(line, verdict, verdict == VERDICT_REFUSED ? 0 : STATUS_NOT_FORETOLD, FINDING_NONE);
    Shows(line, "%s", mZero);
    if (error == EIO)
        Why(line, "the CPU has no register %Xh, or none that can be read", index);
    else
        Why(line, "register %Xh cannot be read: %s", index, strerror(error));
}

static void JudgeWrites(Line *line) {
    if (!MsrWritesRefused())
        return CautionOf(line, FINDING_MSR_WRITES);
    Judge(line, VERDICT_REFUSED, STATUS_NOT_FORETOLD, FINDING_MSR_WRITES);
    Shows(line, "return MSR: the value that was there before");
}

static void AnswerOneMsr(Line *line, int16_t cpu, uint32_t index, bool writes) {
    if (JudgeNode(line, cpu))
        return;
    CautionOfModule(line, static_cast<uint32_t>(cpu));
    int error = RegisterError(static_cast<uint32_t>(cpu), index);
    if (error == 0 && writes)
        return JudgeWrites(line);
    if (error == 0)
        return;
    JudgeRegister(line, writes && !MsrWritesRefused() ? VERDICT_OTHER : VERDICT_REFUSED, index, error);
    if (writes)
        Ends(line, 0);
}

static void JudgeGap(Line *line, uint32_t count) {
    uint32_t behind = 0;
    for (uint32_t cpu = count; cpu < CpuEnd(); ++cpu)
        behind += IsOnline(cpu) ? 1 : 0;
    if (behind == 0)
        return;
    Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_MSR_NODES);
    Shows(line, "CPUs 0 to %u, and not the %u behind", count - 1, behind);
}

// low is what is written; the command ends with it, as if it had read it back, when there is no CPU.
static void AnswerAllMsrs(Line *line, uint32_t index, bool writes, uint32_t low) {
    uint32_t count = MsrCpus();
    if (count == 0) {
        Judge(line, VERDICT_REFUSED, static_cast<int>(low & 0xFF), ReasonOfNode(MsrNodeOf(0)));
        return Shows(line, "ends with status %u and prints nothing", low & 0xFF);
    }
    if (writes)
        Caution(line, "a CPU is written what was read back from the one before it");
    CautionOfModule(line, 0);
    uint32_t refused = 0;
    int error = 0;
    for (uint32_t cpu = 0; cpu < count; ++cpu) {
        int found = RegisterError(cpu, index);
        refused += found != 0 ? 1 : 0;
        error = found != 0 ? found : error;
    }
    if (refused != 0)
        return JudgeRegister(line, refused == count && !writes ? VERDICT_REFUSED : VERDICT_OTHER, index,
                             error);
    JudgeGap(line, count);
    if (writes)
        JudgeWrites(line);
}

// In the order in which the command looks for its word. The word of all CPUs may stand anywhere, the
// register's number behind the place of a CPU's.
static void AnswerMsr(Line *line) {
    uint16_t pos;
    if (!CmdFind({"WD", "RD", "WQ", "RQ"}, &pos))
        return JudgeNoForm(line, 2);
    bool all = TakeWord(line, "ALL", nullptr) || TakeWord(line, "A", nullptr);
    int16_t cpu = 0;
    if (!all)
        cpu = static_cast<int16_t>(NumberAt(line, pos, 1, 16, "CPU"));
    uint32_t index = NumberAt(line, pos, 2, 32, "register");
    bool writes = HasFlag(line->cmd, Flag::WRITE);
    char which[32] = "every CPU";
    if (!all)
        snprintf(which, sizeof(which), "CPU %d", cpu);
    uint32_t low = 0;
    if (writes) {
        uint32_t high = NumberAt(line, pos, 3, 32, "high half");
        low = NumberAt(line, pos, 4, 32, "low half");
        Does(line, "writes %08X_%08Xh to MSR %Xh of %s and reads it back", high, low, index, which);
    } else {
        Does(line, "reads MSR %Xh of %s", index, which);
    }
    if (all)
        AnswerAllMsrs(line, index, writes, low);
    else
        AnswerOneMsr(line, cpu, index, writes);
}

static void AnswerCpuid(Line *line) {
    uint16_t pos;
    if (!CmdFind({"RD", "RQ"}, &pos))
        return JudgeNoForm(line, 2);
    uint32_t leaf = NumberAt(line, pos, 1, 32, "leaf");
    Does(line, "shows CPUID leaf %Xh of the CPU on which it happens to run", leaf);
    if (HasLeaf(leaf))
        return;
    char text[64];
    DescribeNoLeaf(leaf, text, sizeof(text));
    Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_NONE);
    Shows(line, "%s", text);
    Why(line, "the processor has no leaf %Xh", leaf);
}

void AnswerCpu(Line *line) {
    if (HasFlag(line->cmd, Flag::MSR))
        AnswerMsr(line);
    else
        AnswerCpuid(line);
}
