#include "tools/check/lines/LinePorts.h"

#include <cstdio>

#include "BasicLib/IndexIo.h"
#include "tools/check/lines/Operands.h"

// Ports that are somebody else's, too, or that do more than take data.
struct KnownPort {
    uint16_t first, last;
    bool whenWritten;
    FindingName driver; // the finding that tells who uses them
    const char *text;   // or what there is to say
};

static const KnownPort mKnownPorts[] = {
    {0x70, 0x73, false, FINDING_RTC_DRIVER, nullptr},
    {0x2E, 0x2F, false, FINDING_SUPERIO_DRIVER, nullptr},
    {0x4E, 0x4F, false, FINDING_SUPERIO_DRIVER, nullptr},
    {0xCF9, 0xCF9, true, FINDING_NONE, "a write to port CF9h can restart the machine"},
    {0x64, 0x64, true, FINDING_NONE, "a write to port 64h can restart the machine"},
    {0x92, 0x92, true, FINDING_NONE, "a write to port 92h with bit 0 set restarts the machine"},
    {0xB2, 0xB2, true, FINDING_NONE, "a write to port B2h enters system management mode"},
    {0xCF8, 0xCFF, false, FINDING_NONE,
     "the kernel reaches PCI configuration space through ports CF8h to CFFh"},
};

void CautionOfPorts(Line *line, uint32_t port, uint32_t count, bool writes) {
    FindingName told = FINDING_NONE;
    for (const KnownPort &known : mKnownPorts) {
        bool meets = port <= known.last && port + count > known.first && (writes || !known.whenWritten);
        if (meets && known.text != nullptr)
            Caution(line, "%s", known.text);
        if (meets && known.text == nullptr && told != known.driver)
            CautionOf(line, known.driver);
        if (meets && known.text == nullptr)
            told = known.driver;
    }
}

static void AnswerIoDump(Line *line) {
    uint16_t pos;
    if (!TakeWord(line, "DUMP", &pos))
        return JudgeNoForm(line, 2);
    uint32_t port = NumberAt(line, pos, 1, 16, "port");
    Ends(line, 0);
    if (HasFlag(line->cmd, Flag::NOMSG))
        return Does(line, "reads 256 ports from %Xh on and shows nothing (/NOMSG)", port);
    Does(line, "shows the ports from %Xh to FFFEh, read byte by byte, 256 a page", port);
    Caution(line, "every port on its way is read: status and FIFO ports lose what drivers wait for");
    CautionOfKeys(line);
}

static void AnswerPort(Line *line, AccessForm form) {
    if (form.width == ACCESS_BIT && form.reads)
        form.writes = false; // as the command does it
    NumberedAccess access;
    if (TakeNumbered(line, &form, 16, "port", "port", &access))
        CautionOfPorts(line, access.number, BytesOfAccess(&form, access.operands.data), form.writes);
}

static void AnswerIndexDump(Line *line, uint32_t indexPort, uint32_t dataPort) {
    Ends(line, 0);
    if (HasFlag(line->cmd, Flag::NOMSG))
        Does(line, "reads registers 0 to FFh behind ports %Xh/%Xh and shows nothing (/NOMSG)", indexPort,
             dataPort);
    else
        Does(line, "shows registers 0 to FFh behind ports %Xh/%Xh", indexPort, dataPort);
}

static void AnswerRegister(Line *line, const AccessForm *form, uint32_t indexPort, uint32_t dataPort) {
    uint32_t index = NumberAt(line, form->pos, 3, 32, "register");
    AccessOperands operands = OperandsOf(line, form, 4, 32);
    char place[64];
    snprintf(place, sizeof(place), "register %Xh behind ports %Xh/%Xh", index, indexPort, dataPort);
    DoesAccess(line, form, operands, place);
    if (JudgeBit(line, form, operands.data))
        return;
    if (index >= 0x100)
        Caution(line,
                "the register's number is written as a %s to port %Xh, and so into the ports behind it, too",
                index < 0x10000 ? "word" : "dword", indexPort);
    if (indexPort == CMOS_INDEX)
        Caution(line,
                index & 0x80 ? "bit 7 of the number masks the NMI" : "the NMI is let through, bit 7 being 0");
    CautionOfPorts(line, dataPort, BytesOfAccess(form, operands.data), form->writes);
}

static void AnswerIndex(Line *line) {
    AccessForm form;
    if (!FindFirstForm(line->cmd, &form))
        return JudgeNoForm(line, 2);
    uint32_t indexPort = NumberAt(line, form.pos, 1, 16, "index port");
    uint32_t dataPort = NumberAt(line, form.pos, 2, 16, "data port");
    if (dataPort == 0 && indexPort != 0)
        dataPort = (indexPort + 1) & 0xFFFF;
    if (form.width == ACCESS_NONE) {
        AnswerIndexDump(line, indexPort, dataPort);
        CautionOfPorts(line, dataPort, 1, false);
    } else {
        AnswerRegister(line, &form, indexPort, dataPort);
    }
}

void AnswerIo(Line *line) {
    if (HasFlag(line->cmd, Flag::INDEX))
        return AnswerIndex(line);
    AccessForm form = FindAccess(line->cmd);
    if (form.width == ACCESS_NONE)
        return AnswerIoDump(line);
    AnswerPort(line, form);
}
