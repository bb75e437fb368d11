#include "tools/check/lines/LineFile.h"

#include <unistd.h>

#include <cstring>

#include "Common/ComFunc/CmdLine.h"
#include "tools/check/lines/LinePorts.h"
#include "tools/check/lines/MakeFile.h"
#include "tools/check/lines/Operands.h"
#include "tools/check/lines/Pages.h"

// What the line copies, as the command takes it.
struct Copy {
    const char *path; // NULL without one
    const char *typed;
    uint32_t address;
    uint32_t length;
};

static Copy TakeCopy(Line *line, uint16_t pos) {
    Copy copy;
    copy.path = TextAt(line, pos, 1);
    copy.typed = copy.path == nullptr ? nullptr : line->typed[pos + 1];
    copy.address = NumberAt(line, pos, 2, 32, HasFlag(line->cmd, Flag::MEM) ? "address" : "port");
    copy.length = NumberAt(line, pos, 3, 32, "length");
    return copy;
}

static void DoesCopy(Line *line, const Copy *copy) {
    const char *path = copy->path == nullptr ? "" : copy->path;
    if (HasFlag(line->cmd, Flag::MEM))
        Does(line, "copies %Xh bytes of memory from %Xh on into the file %.100s", copy->length, copy->address,
             path);
    else if (HasFlag(line->cmd, Flag::IO))
        Does(line, "copies %Xh ports from %Xh on into the file %.100s", copy->length, copy->address & 0xFFFF,
             path);
    else
        Does(line, "writes %Xh zeros into the file %.100s", copy->length, path);
}

// The command counts from the last byte of the range, and so takes a length of 0 for the whole of 4 GiB. True
// when it does not begin.
static bool JudgeRange(Line *line, const Copy *copy) {
    bool ends = copy->length == 0 ? copy->address == 0 : copy->length - 1 <= 0xFFFFFFFF - copy->address;
    if (ends)
        return false;
    Judge(line, VERDICT_REFUSED, 21, FINDING_NONE);
    Shows(line, "StartAddr error!");
    Why(line, copy->length == 0 ? "the length is 0" : "the range goes beyond 4 GiB");
    return true;
}

// True when there will be no file.
static bool JudgeFile(Line *line, const Copy *copy) {
    char reason[FILE_REASON];
    if (copy->path != nullptr && CanMakeFile(copy->path, true, reason))
        return false;
    Judge(line, VERDICT_REFUSED, 21, FINDING_NONE);
    Shows(line, "FileOpen fail!");
    Why(line, "%s", copy->path == nullptr ? "there is no name of a file" : reason);
    if (copy->path != nullptr && strcmp(copy->path, copy->typed) != 0)
        Mend(line, "the name is turned into capitals: put /S before it to keep it as it is typed");
    return true;
}

static void CautionOfName(Line *line, const Copy *copy) {
    if (strcmp(copy->path, copy->typed) != 0)
        Caution(line, "the name becomes %.80s: put /S before it to keep it as it is typed", copy->path);
    if (access(copy->path, F_OK) == 0)
        Caution(line, "the file %.80s is there and is replaced", copy->path);
}

void AnswerFile(Line *line) {
    uint16_t pos;
    TakeWord(line, "RF", &pos);
    Copy copy = TakeCopy(line, pos);
    DoesCopy(line, &copy);
    if (JudgeRange(line, &copy) || JudgeFile(line, &copy))
        return;
    Ends(line, 0);
    CautionOfName(line, &copy);
    if (copy.length == 0)
        return Caution(line, "the length is 0, and so is the file's");
    if (HasFlag(line->cmd, Flag::MEM)) {
        uint8_t filler;
        if (JudgeCopy(line, copy.address, copy.length, 0, &filler))
            Shows(line, filler == 0 ? "the file holds zeros" : "the file holds bytes of FFh");
    } else if (HasFlag(line->cmd, Flag::IO)) {
        Caution(line, "every port in the range is read: status and FIFO ports lose what drivers wait for");
        if ((copy.address & 0xFFFF) + static_cast<uint64_t>(copy.length) > 0x10000)
            Caution(line, "behind port FFFFh it goes on at 0");
    } else {
        Judge(line, VERDICT_OTHER, 0, FINDING_NONE);
        Shows(line, "the file holds zeros");
        Why(line, "neither /MEM nor /IO is on the line");
    }
}
