#include "tools/check/lines/LineChips.h"

#include <cstdio>

#include "Common/ComFunc/CmdLine.h"
#include "Platform/SioChip.h"
#include "Platform/Smn.h"
#include "tools/check/lines/LinePorts.h"
#include "tools/check/lines/Operands.h"
#include "tools/check/lines/PciPlaces.h"

constexpr uint32_t LAST_DIE = 16;
constexpr uint32_t SMU_RESERVED_ID = 0xFF;

// An access of the line, in the order in which the command makes them; the last one is reported.
struct SioWord {
    const char *word;
    const char *text; // what it does
    bool writes, bits;
};

static const SioWord mSioWords[] = {
    {"WB", "writes and reads back", true, false},
    {"WI", "writes and reads back a bit of", true, true},
    {"RB", "reads", false, false},
    {"RI", "reads a bit of", false, true},
};

static void JudgeSioBit(Line *line, uint32_t bit) {
    if (bit < 8)
        return;
    Judge(line, VERDICT_OTHER, 0, FINDING_NONE);
    Shows(line, bit < 32 ? "a bit of port 50h" : "data = 0x0");
    Why(line, "registers have 8 bits: there is no bit %u", bit);
}

static void JudgeSioRegister(Line *line, uint32_t index) {
    if (index < SIO_REGISTERS)
        return;
    Judge(line, VERDICT_OTHER, 0, FINDING_NONE);
    Shows(line, "the data of register %Xh", index & 0xFF);
    Why(line,
        "registers go from 0 to FFh: the rest of the number is written into port 4Fh, and so into register "
        "%Xh",
        index & 0xFF);
}

static uint32_t AnswerSioWords(Line *line) {
    uint32_t count = 0;
    for (const SioWord &known : mSioWords) {
        uint16_t pos;
        if (!TakeWord(line, known.word, &pos))
            continue;
        uint32_t index = NumberAt(line, pos, 1, 32, "register");
        uint32_t operand = known.writes || known.bits
                               ? NumberAt(line, pos, 2, known.bits ? 32 : 8, known.bits ? "bit" : "data")
                               : 0;
        if (known.writes && known.bits)
            NumberAt(line, pos, 3, 32, "value");
        Does(line, "%s register %Xh of the Super I/O%s", known.text, index,
             count == 0 ? "" : ", behind other accesses");
        JudgeSioRegister(line, index);
        if (known.bits)
            JudgeSioBit(line, operand);
        ++count;
    }
    return count;
}

void AnswerSio(Line *line) {
    Ends(line, 0);
    CautionOfPorts(line, SIO_INDEX, 2, true);
    if (HasFlag(line->cmd, Flag::READ | Flag::WRITE)) {
        if (AnswerSioWords(line) != 0)
            return;
        Does(line, "unlocks the Super I/O, reads nothing and locks it");
        Judge(line, VERDICT_OTHER, 0, FINDING_NONE);
        Shows(line, HasFlag(line->cmd, Flag::RD) ? "SIO Read from 0x0, data = 0x0, "
                                                 : "SIO Write Data to 0x0, data = 0x0");
        return Why(line, "registers are bytes, which /RB and /WB take, and /RI and /WI their bits");
    }
    if (HasFlag(line->cmd, Flag::DUMP)) {
        bool shows = !HasFlag(line->cmd, Flag::NOMSG);
        Does(line, "%s the registers of nine logical devices of the Super I/O%s", shows ? "shows" : "reads",
             shows ? "" : " and shows nothing (/NOMSG)");
        if (shows)
            CautionOfKeys(line);
        return;
    }
    JudgeNoForm(line, 0);
    Does(line, "unlocks the Super I/O and locks it");
}

// True on a machine without the network. Asks the chipset's table and CPUID.
static bool JudgeSmu(Line *line) {
    if (CautionOfNoList(line) || InitSmuService() == EFI_SUCCESS)
        return false;
    Judge(line, VERDICT_REFUSED, 15, FINDING_NONE);
    Shows(line, "InitSmuService error: 8000000F");
    Why(line, "served are AMD and Hygon processors of family 17h models 00h to 0Fh and family 18h models 00h "
              "to 0Fh");
    return true;
}

// The network is looked for before a form is.
static void JudgeNoSmuForm(Line *line) {
    JudgeNoForm(line, 0);
    JudgeSmu(line);
}

// Which width is looked for first: another order than that of FindAccess.
static const AccessWidth mSmnOrder[] = {ACCESS_BYTE, ACCESS_WORD, ACCESS_DWORD, ACCESS_BIT};

static AccessForm FindSmnAccess(Line *line) {
    for (AccessWidth width : mSmnOrder) {
        uint16_t pos;
        if (FindWidth(width, &pos))
            return AccessOfWord(line->cmd, CmdArgText(pos, 0), pos);
    }
    return {};
}

// A byte or word that is typed as a write and is read.
static void JudgeUnconfirmed(Line *line, const AccessForm *form, bool asked) {
    if (!asked || form->writes)
        return;
    Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_NONE);
    Shows(line, "SMN %s %s", HasFlag(line->cmd, Flag::RD) ? "Read" : "Write",
          form->width == ACCESS_BYTE ? "Byte" : "Word");
    Why(line, "bytes and words are written only with /WD on the line: what is shown is what was there");
    Mend(line, "add /WD behind the data");
}

static void JudgeDie(Line *line, uint32_t die) {
    if (die <= LAST_DIE)
        return;
    Judge(line, VERDICT_REFUSED, 2, FINDING_NONE);
    Shows(line, "Invalid parameter");
    Why(line, "dies go from 0 to 16");
}

static void AnswerSmn(Line *line) {
    AccessForm form = FindSmnAccess(line);
    if (form.width == ACCESS_NONE)
        return JudgeNoSmuForm(line);
    bool asked = form.writes;
    if (form.width != ACCESS_BIT)
        form.writes = HasFlag(line->cmd, Flag::WD);
    uint32_t die = NumberAt(line, form.pos, 1, 32, "die");
    uint32_t reg = NumberAt(line, form.pos, 2, 32, "register");
    AccessOperands operands = {0, 0};
    if (form.width == ACCESS_BIT) {
        operands.data = NumberAt(line, form.pos, 3, 32, "bit");
        operands.value = form.writes ? NumberAt(line, form.pos, 4, 32, "value") : 0;
    } else if (asked || form.writes) {
        operands.data = NumberAt(line, form.pos, 3, 8 * AccessBytes(form.width), "data");
    }
    char place[48];
    snprintf(place, sizeof(place), "SMN register %Xh of die %u", reg, die);
    DoesAccess(line, &form, operands, place);
    if (JudgeSmu(line))
        return;
    if (form.width == ACCESS_BIT && operands.data > 31) {
        Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_NONE);
        Shows(line, "return data:0");
        Why(line, "bits are counted from 0 to 31: there is no bit %u", operands.data);
    }
    JudgeUnconfirmed(line, &form, asked);
    JudgeDie(line, die);
}

static void AnswerSmu(Line *line) {
    uint16_t pos;
    if (!CmdFind({"WD", "RD"}, &pos))
        return JudgeNoSmuForm(line);
    uint32_t message = NumberAt(line, pos, 1, 32, "message");
    for (unsigned k = 0; k < SMU_ARGUMENTS && CmdArgText(pos, 2 + k) != nullptr; ++k)
        NumberAt(line, pos, 2 + k, 32, "argument");
    Does(line, "sends message %Xh to the SMU and shows its answer", message);
    if (JudgeSmu(line))
        return;
    Ends(line, 0);
    if (message == SMU_RESERVED_ID) {
        Judge(line, VERDICT_OTHER, 0, FINDING_NONE);
        Shows(line, "RxSmuMessageResponse Status=1");
        return Why(line, "message FFh is never sent");
    }
    Caution(
        line,
        "an SMU that does not answer is waited for without end; a fatal answer prints an assertion without "
        "end");
}

void AnswerNbio(Line *line) {
    if (HasFlag(line->cmd, Flag::SMN))
        AnswerSmn(line);
    else
        AnswerSmu(line);
}
