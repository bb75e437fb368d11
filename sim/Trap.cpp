#include "Trap.h"

#include "Arena.h"
#include "Changes.h"
#include "Cpuid.h"
#include "Decode.h"
#include "Lies.h"
#include "Log.h"
#include "Memory.h"
#include "Mistake.h"
#include "Ports.h"
#include "SentSignal.h"
#include "Settings.h"

#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

namespace {

constexpr greg_t PAGE_FAULT_WRITE = 2;
constexpr greg_t EFLAGS_TF = 0x100;
constexpr uint64_t PAGE = 4096;
constexpr uint64_t MEMORY_COSTS = 10; // port accesses that take the time of one in memory

typedef void (*SignalHandler)(int, siginfo_t *, void *);

// The kernel's own sigaction: libc's could be a sanitizer's.
struct KernelSigaction {
    uintptr_t handler; // a SignalHandler or one of the two below
    unsigned long flags;
    void (*restorer)();
    uint64_t mask;
};
constexpr unsigned long KERNEL_SA_RESTORER = 0x04000000;
constexpr uintptr_t HANDLER_DEFAULT = 0;
constexpr uintptr_t HANDLER_IGNORE = 1;

bool gArmed;
bool gNoStep; // HWBOARD_NO_STEP: an emulated processor that has no trap flag

// Who had the signals that the board takes.
struct Taken {
    int signal;
    KernelSigaction before;
};
Taken gTaken[] = {{SIGSEGV, {}}, {SIGTRAP, {}}, {SIGILL, {}}};

// The one instruction that runs with its pages open.
struct Step {
    bool active;
    bool string;
    uint64_t signalMask; // of the program
    int operandCount;
    struct {
        uint64_t physical;
        unsigned width;
        bool written;
    } operands[2];
    int pageCount;
    uintptr_t pages[4];
};
Step gStep;

extern "C" void BoardSignalReturn();
__asm__(".text\n"
        ".type BoardSignalReturn, @function\n"
        "BoardSignalReturn:\n"
        "  mov $15, %eax\n" // rt_sigreturn
        "  syscall\n"
        ".size BoardSignalReturn, . - BoardSignalReturn\n");

bool SetSignal(int signal, const KernelSigaction *action, KernelSigaction *before) {
    return syscall(SYS_rt_sigaction, signal, action, before, sizeof(uint64_t)) == 0;
}

greg_t *Registers(ucontext_t *context) {
    return context->uc_mcontext.gregs;
}

// Not ours: the previous handler has it, or the default action when the instruction runs again.
void PassOn(int signal, siginfo_t *info, void *context) {
    const Taken *taken = gTaken;
    while (taken->signal != signal)
        taken++;
    const KernelSigaction *before = &taken->before;
    if (before->handler > HANDLER_IGNORE) {
        reinterpret_cast<SignalHandler>(before->handler)(signal, info, context);
        return;
    }
    KernelSigaction fatal = {HANDLER_DEFAULT, 0, nullptr, 0};
    SetSignal(signal, &fatal, nullptr);
    // A fault comes again with its instruction; a signal that somebody sent does not.
    if (signal == SIGTRAP || info->si_code <= 0)
        syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), signal);
}

void LogPort(const char *name, unsigned width, uint16_t port, const char *arrow, uint32_t value) {
    if (!PortLogged(port) || LogPauses()) {
        CountAccesses(1);
        return;
    }
    LogLine line;
    LogBegin(&line, name);
    LogAdd(&line, width == 1 ? "8 " : width == 2 ? "16 " : "32 ");
    LogAddHex(&line, port, 4);
    LogAdd(&line, arrow);
    LogAddHex(&line, value, static_cast<int>(2 * width));
    LogEnd(&line);
}

void PortIn(const Instruction *instruction, greg_t *rax) {
    uint32_t value = LoggedPortRead(instruction->port, instruction->width);
    // 8 and 16 bits leave the rest of RAX alone, 32 bits clear it.
    uint64_t kept = instruction->width == 1   ? uint64_t(*rax) & ~static_cast<uint64_t>(0xFF)
                    : instruction->width == 2 ? uint64_t(*rax) & ~static_cast<uint64_t>(0xFFFF)
                                              : 0;
    *rax = greg_t(kept | value);
}

void PortOut(const Instruction *instruction, greg_t rax) {
    uint32_t value = static_cast<uint32_t>(rax);
    if (instruction->width < 4)
        value &= (1u << (8 * instruction->width)) - 1;
    LoggedPortWrite(instruction->port, instruction->width, value);
}

// True when the instruction was one of the board's and has been carried out.
bool OnGeneralProtection(ucontext_t *context) {
    greg_t *registers = Registers(context);
    const uint8_t *code = reinterpret_cast<const uint8_t *>(registers[REG_RIP]);
    Instruction instruction = DecodeInstruction(code, registers);
    if (gBoard.privilege < 3)
        return false;
    else if (instruction.kind == INSTRUCTION_PORT_IN)
        PortIn(&instruction, &registers[REG_RAX]);
    else if (instruction.kind == INSTRUCTION_PORT_OUT)
        PortOut(&instruction, registers[REG_RAX]);
    else if (instruction.kind == INSTRUCTION_PORT_STRING)
        BoardFail("a string port instruction (ins, outs) at %p is not simulated",
                  reinterpret_cast<const void *>(code));
    else
        return false;
    registers[REG_RIP] += instruction.length;
    return true;
}

void OpenPage(uintptr_t at, int protection) {
    uintptr_t page = at & ~(PAGE - 1);
    for (int i = 0; i < gStep.pageCount; i++)
        if (gStep.pages[i] == page)
            return;
    syscall(SYS_mprotect, page, PAGE, protection);
    gStep.pages[gStep.pageCount++] = page;
}

void ClosePages() {
    for (int i = 0; i < gStep.pageCount; i++)
        syscall(SYS_mprotect, gStep.pages[i], PAGE, PROT_NONE);
    gStep.pageCount = 0;
}

// Makes ready what the instruction will touch at this operand.
void PrepareOperand(const MemoryOperand *operand) {
    uint64_t physical;
    int protection;
    const uintptr_t ends[2] = {operand->address, operand->address + operand->width - 1};
    for (uintptr_t at : ends)
        if (FindMapping(at, &physical, &protection) && PageTrapped(physical))
            OpenPage(at, protection);
    if (!FindMapping(operand->address, &physical, &protection) || !AccessTrapped(physical, operand->width))
        return;
    if (operand->read) {
        LoadFromDevices(physical, operand->width);
        LogMemory(gStep.string, false, physical, operand->width);
    }
    gStep.operands[gStep.operandCount++] = {physical, operand->width, operand->written};
}

// The memory goes first: valgrind would search its 4 GiB for pointers to lost blocks, half a minute long.
void LeaveUnstepped(uint64_t address) {
    syscall(SYS_munmap, MemoryAt(0, 1), static_cast<uint64_t>(1) << 32);
    BoardFail("device memory at %lx: it cannot be stepped through", static_cast<unsigned long>(address));
}

bool OnPageFault(ucontext_t *context) {
    greg_t *registers = Registers(context);
    uintptr_t fault = uintptr_t(registers[REG_CR2]);
    uint64_t physical;
    int protection;
    int wanted = (registers[REG_ERR] & PAGE_FAULT_WRITE) ? PROT_WRITE : PROT_READ;
    if (!FindMapping(fault, &physical, &protection) || !PageTrapped(physical) || !(protection & wanted))
        return false;

    const uint8_t *code = reinterpret_cast<const uint8_t *>(registers[REG_RIP]);
    Instruction instruction = DecodeInstruction(code, registers);
    bool explained = false;
    for (int i = 0; i < instruction.operandCount; i++)
        explained = explained || fault - instruction.operands[i].address < instruction.operands[i].width;
    if (!explained)
        BoardFail(
            "the instruction %02x %02x %02x %02x %02x %02x %02x %02x at %p, which touches device memory "
            "at %lx, is not known",
            code[0], code[1], code[2], code[3], code[4], code[5], code[6], code[7],
            reinterpret_cast<const void *>(code), static_cast<unsigned long>(physical));

    if (gNoStep)
        LeaveUnstepped(physical);

    gStep.string = instruction.kind == INSTRUCTION_MEMORY_STRING;
    gStep.operandCount = 0;
    for (int i = 0; i < instruction.operandCount; i++)
        PrepareOperand(&instruction.operands[i]);
    // Nothing else may run while the pages are open.
    memcpy(&gStep.signalMask, &context->uc_sigmask, sizeof gStep.signalMask);
    uint64_t all = ~(static_cast<uint64_t>(1) << (SIGTRAP - 1) | static_cast<uint64_t>(1) << (SIGSEGV - 1));
    memcpy(&context->uc_sigmask, &all, sizeof all);
    registers[REG_EFL] |= EFLAGS_TF;
    gStep.active = true;
    return true;
}

void EndStep(ucontext_t *context) {
    gStep.active = false;
    ClosePages();
    memcpy(&context->uc_sigmask, &gStep.signalMask, sizeof gStep.signalMask);
    Registers(context)[REG_EFL] &= ~EFLAGS_TF;
}

void OnSegmentationFault(int signal, siginfo_t *info, void *opaque) {
    ucontext_t *context = static_cast<ucontext_t *>(opaque);
    bool stepping = gStep.active;
    if (stepping) // the instruction was let through and faults once more: its other operand is the program's
                  // mistake
        EndStep(context);
    // Told apart by the signal's code. A signal that was sent has neither.
    bool generalProtection = info->si_code == SI_KERNEL;
    bool pageFault = info->si_code == SEGV_MAPERR || info->si_code == SEGV_ACCERR;
    if (gBoard.loaded && !stepping &&
        ((generalProtection && OnGeneralProtection(context)) || (pageFault && OnPageFault(context))))
        return;
    PassOn(signal, info, opaque);
}

void OnTrap(int signal, siginfo_t *info, void *opaque) {
    if (!gStep.active) {
        PassOn(signal, info, opaque);
        return;
    }
    EndStep(static_cast<ucontext_t *>(opaque));
    for (int i = 0; i < gStep.operandCount; i++) {
        if (!gStep.operands[i].written)
            continue;
        LogMemory(gStep.string, true, gStep.operands[i].physical, gStep.operands[i].width);
        StoreToDevices(gStep.operands[i].physical, gStep.operands[i].width);
    }
}

void OnIllegalInstruction(int signal, siginfo_t *info, void *opaque) {
    if (info->si_code <= 0 || !CarryOutCpuid(Registers(static_cast<ucontext_t *>(opaque))))
        PassOn(signal, info, opaque);
}

void OnInstruction(int signal, siginfo_t *info, void *opaque) {
    SentSignalHold(true);
    if (signal == SIGSEGV)
        OnSegmentationFault(signal, info, opaque);
    else if (signal == SIGTRAP)
        OnTrap(signal, info, opaque);
    else
        OnIllegalInstruction(signal, info, opaque);
    SentSignalHold(false);
}

} // namespace

void LogMemory(bool string, bool written, uint64_t address, unsigned width) {
    static const uint8_t NOTHING_THERE[64] = {};
    const uint8_t *bytes = MemoryAt(address, width);
    unsigned bits = 8 * width;
    const char digits[4] = {static_cast<char>('0' + bits / 100), static_cast<char>('0' + bits / 10 % 10),
                            static_cast<char>('0' + bits % 10), 0};
    LogLine line;
    CountAccesses((Direct() ? 1 : MEMORY_COSTS) - 1);
    LogBegin(&line, string ? "ms" : written ? "mw" : "mr");
    LogAdd(&line, digits + (bits < 10 ? 2 : bits < 100 ? 1 : 0));
    LogAdd(&line, " ");
    LogAddHex(&line, address, 8);
    LogAdd(&line, written ? " " : " -> ");
    LogAddBytes(&line, bytes ? bytes : NOTHING_THERE, width);
    LogEnd(&line);
}

uint32_t LoggedPortRead(uint16_t port, unsigned width) {
    uint32_t value = static_cast<uint32_t>(LieOr(LIE_PORT, port, width, PortRead(port, width)));
    LogPort("in", width, port, " -> ", value);
    return value;
}

void LoggedPortWrite(uint16_t port, unsigned width, uint32_t value) {
    LogPort("out", width, port, " ", value);
    PortWrite(port, width, value);
}

// An emulated processor may find no room for a signal below what the program uses of its stack.
static void TakeStackForSignals() {
    static char stack[65536];
    stack_t place = {stack, 0, sizeof stack};
    syscall(SYS_sigaltstack, &place, nullptr);
}

void TrapArm() {
    if (gArmed || Direct())
        return;
    gArmed = true;
    gNoStep = getenv("HWBOARD_NO_STEP") != nullptr;
    if (gNoStep)
        TakeStackForSignals();
    SignalHandler handler = OnInstruction;
    for (Taken &taken : gTaken) {
        KernelSigaction action = {reinterpret_cast<uintptr_t>(handler),
                                  SA_SIGINFO | SA_ONSTACK | SA_RESTART | KERNEL_SA_RESTORER,
                                  BoardSignalReturn, 0};
        SetSignal(taken.signal, &action, &taken.before);
    }
}
