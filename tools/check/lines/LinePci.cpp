#include "tools/check/lines/LinePci.h"

#include <cstdio>

#include "BasicLib/PciPorts.h"
#include "BasicLib/PciWindow.h"
#include "Common/Global.h"
#include "tools/check/lines/Operands.h"
#include "tools/check/lines/Pages.h"
#include "tools/check/lines/PciPlaces.h"
#include "tools/check/machine/Window.h"

constexpr uint8_t SCAN_ARGC = 5; // a dump with more words than this names one function
constexpr uint32_t LAST_BUS = 255;

// An access to a register, as the command makes it.
struct PciAccessOf {
    AccessForm form;
    AccessOperands operands;
    uint32_t bytes;
    PciTyped typed;
    PciReached reached;
};

static PciTyped TypedAt(Line *line, uint16_t pos) {
    PciTyped typed = {};
    typed.bus = static_cast<uint16_t>(NumberAt(line, pos, 1, 16, "bus"));
    typed.dev = static_cast<uint16_t>(NumberAt(line, pos, 2, 16, "device"));
    typed.fun = static_cast<uint16_t>(NumberAt(line, pos, 3, 16, "function"));
    return typed;
}

// Another function than the one that was typed. True when it is.
static bool JudgeSpill(Line *line, PciTyped typed, PciReached reached) {
    if (reached.bus > LAST_BUS) {
        Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_NONE);
        Shows(line, "whatever the chipset makes of that address");
        Why(line, "buses go from 0 to 255: there is no bus %u", reached.bus);
        return true;
    }
    if (!IsSpilled(typed, reached))
        return false;
    Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_NONE);
    Shows(line, "the data of %02x:%02x.%x", reached.bus, reached.dev, reached.fun);
    Why(line,
        "devices go from 0 to 31, functions from 0 to 7: bus %u, device %u, function %u is %02x:%02x.%x",
        typed.bus, typed.dev, typed.fun, reached.bus, reached.dev, reached.fun);
    return true;
}

static void CautionOfFunction(Line *line, PciReached reached, bool writes) {
    const PciFunction *list;
    const PciFunction *known = KnownFunction(reached);
    if (known == nullptr && PciFunctions(&list) != 0)
        Caution(line, "the kernel knows no function %02x:%02x.%x: one that is not there reads all ones",
                reached.bus, reached.dev, reached.fun);
    if (known != nullptr && writes && known->driver[0] != 0)
        Caution(line, "the driver %s uses this function", known->driver);
}

// Through CF8h/CFCh the data port of a register follows from its two low bits, but a dword has only the one,
// and behind the last one there are other ports.
static void JudgeAlignment(Line *line, const PciAccessOf *access) {
    uint32_t low = access->typed.offset & 3u;
    if (access->bytes == 4 && low != 0) {
        Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_NONE);
        Shows(line, "the dword at %Xh", access->typed.offset - low);
        Why(line, "through ports CF8h/CFCh a dword begins at a multiple of 4");
    } else if (access->bytes == 2 && low == 3) {
        Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_NONE);
        Shows(line, "the byte at %Xh, and port D00h above it", access->typed.offset);
        Why(line, "through ports CF8h/CFCh a word ends within its dword: this one is read from ports CFFh "
                  "and D00h");
    }
}

// Without a page, or beyond the registers. True when nothing of the window is accessed.
static bool JudgeNoWindow(Line *line, const PciAccessOf *access) {
    AccessWidth width = access->form.width;
    if (access->typed.offset >= PCI_EXTENDED_BYTES) {
        JudgeValue(line, VERDICT_OTHER, FINDING_NONE, width, access->operands.data, 0xFFFFFFFF);
        Why(line, "offsets go from 0 to FFFh: nothing is accessed");
        return true;
    }
    const PciFunction *list;
    bool none = Window()->state == WINDOW_NO_REGISTER && PciFunctions(&list) != 0;
    if (none)
        JudgeValue(line, VERDICT_REFUSED, FINDING_CONFIG_WINDOW, width, access->operands.data, 0xFFFFFFFF);
    return none;
}

// The page can be mapped: whether it is the function's.
static void JudgeWindow(Line *line, const PciAccessOf *access, uint32_t address) {
    const ConfigWindow *window = Window();
    int bus = static_cast<int>(access->reached.bus);
    if (window->state == WINDOW_WRONG) {
        Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_CONFIG_WINDOW);
        Shows(line, "whatever is in memory at %Xh", address);
        if (access->form.writes)
            FirstCaution(line, "IT WRITES TO MEMORY AT %Xh, which is not the function's register", address);
    } else if (window->state == WINDOW_RIGHT && window->lastBus >= 0 &&
               (bus < window->firstBus || bus > window->lastBus)) {
        Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_CONFIG_WINDOW);
        Shows(line, "whatever is in memory at %Xh", address);
        Why(line, "the window holds buses %d to %d", window->firstBus, window->lastBus);
    } else if (access->typed.offset + access->bytes > PCI_EXTENDED_BYTES) {
        Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_NONE);
        Shows(line, "bytes of the next function above those up to FFFh");
        Why(line, "the access goes beyond the function's last register");
    }
}

static void AnswerExtended(Line *line, const PciAccessOf *access) {
    if (JudgeNoWindow(line, access) || CautionOfNoList(line))
        return;
    bool unknown = Window()->state == WINDOW_UNKNOWN;
    if (unknown)
        Caution(line, "whether the window of extended registers is where hwreg looks for it cannot be told");
    if (unknown && Window()->base == 0)
        return;
    PciTyped typed = access->typed;
    uint32_t address = MemPciBase(typed.bus, typed.dev, typed.fun) + typed.offset;
    if (JudgeAccess(line, address, access->form.width, access->operands.data)) {
        if (Window()->state == WINDOW_WRONG)
            CautionOf(line, FINDING_CONFIG_WINDOW);
        return;
    }
    if (IsConventional(access->reached))
        Caution(line, "the function has no PCI Express capability, and perhaps no registers from 100h on");
    JudgeWindow(line, access, address);
}

static void AnswerPciRegister(Line *line, const PciAccessOf *access) {
    char place[64];
    snprintf(place, sizeof(place), "configuration space of %02x:%02x.%x at %Xh", access->reached.bus,
             access->reached.dev, access->reached.fun, access->typed.offset);
    DoesAccess(line, &access->form, access->operands, place);
    if (JudgeBit(line, &access->form, access->operands.data))
        return;
    CautionOfFunction(line, access->reached, access->form.writes);
    bool extended = access->typed.offset >= PCI_CONFIG_BYTES;
    if (extended)
        AnswerExtended(line, access);
    else
        JudgeAlignment(line, access);
    if (line->answer->verdict == VERDICT_WORKS)
        JudgeSpill(line, access->typed, access->reached);
}

// Every word counts, so options make a dump of all functions one of a single function.
static void AnswerPciDump(Line *line) {
    uint16_t pos;
    TakeWord(line, "DUMP", &pos);
    Ends(line, 0);
    bool views = !HasFlag(line->cmd, Flag::NOMSG);
    if (views)
        CautionOfKeys(line);
    if (gCmdArg->Argc <= SCAN_ARGC)
        return Does(line, "lists the functions of all buses%s",
                    views ? ", each with its first 256 bytes" : "");
    PciTyped typed = TypedAt(line, pos);
    PciReached reached = ReachedBy(typed);
    Does(line, "lists the function %02x:%02x.%x%s", reached.bus, reached.dev, reached.fun,
         views ? " with its first 256 bytes" : "");
    if (JudgeSpill(line, typed, reached))
        return Ends(line, 0);
    const PciFunction *list;
    if (PciFunctions(&list) != 0 && KnownFunction(reached) == nullptr)
        Shows(line, "prints nothing, unless there is a function that the kernel does not know");
}

void AnswerPci(Line *line) {
    if (HasFlag(line->cmd, Flag::DUMP))
        return AnswerPciDump(line);
    PciAccessOf access = {};
    if (HasFlag(line->cmd, Flag::READ | Flag::WRITE))
        access.form = FindAccess(line->cmd);
    if (access.form.width == ACCESS_NONE)
        return JudgeNoForm(line, 2);
    access.typed = TypedAt(line, access.form.pos);
    access.typed.offset = static_cast<uint16_t>(NumberAt(line, access.form.pos, 4, 16, "offset"));
    access.operands = OperandsOf(line, &access.form, 5, 8);
    access.reached = ReachedBy(access.typed);
    access.bytes = BytesOfAccess(&access.form, access.operands.data);
    AnswerPciRegister(line, &access);
}
