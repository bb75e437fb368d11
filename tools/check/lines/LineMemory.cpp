#include "tools/check/lines/LineMemory.h"

#include "Common/ComFunc/HexView.h"
#include "tools/check/lines/Operands.h"
#include "tools/check/lines/Pages.h"

static void AnswerMemoryDump(Line *line) {
    uint16_t pos;
    TakeWord(line, "DUMP", &pos);
    uint32_t address = NumberAt(line, pos, 1, 32, "address");
    Ends(line, 0);
    bool silent = HasFlag(line->cmd, Flag::NOMSG);
    if (silent)
        Does(line, "reads 256 bytes of memory from %Xh on and shows nothing (/NOMSG)", address);
    else
        Does(line, "shows memory from %Xh to FFFFFFFFh, 256 bytes a page", address);
    uint32_t left = 0 - address;
    uint32_t count = address != 0 && left < VIEW_PAGE_BYTES ? left : VIEW_PAGE_BYTES;
    uint8_t filler;
    bool none = JudgeCopy(line, address, count, 0, &filler);
    if (silent)
        return Shows(line, "%s", "");
    if (none)
        ShowsBytes(line, filler);
    Caution(line, "registers on its way are read, too; pages that are refused show FFh");
    CautionOfKeys(line);
}

static void AnswerSearch(Line *line) {
    uint16_t pos;
    if (!HasFlag(line->cmd, Flag::S) || !TakeWord(line, "S", &pos))
        return JudgeNoForm(line, 2);
    uint32_t address = NumberAt(line, pos, 1, 32, "address");
    uint32_t length = NumberAt(line, pos, 2, 32, "length");
    const char *text = TextAt(line, pos, 3);
    Does(line, "looks for \"%s\" in %Xh bytes of memory from %Xh on", text == nullptr ? "" : text, length,
         address);
    if (text == nullptr || *text == 0) {
        Judge(line, VERDICT_REFUSED, text != nullptr && length == 0 ? 21 : 2, FINDING_NONE);
        Shows(line, "<- (Ctrl+C: abort!)  searching: %s ->", text == nullptr ? "" : text);
        return Why(line, "there is no text to be looked for");
    }
    if (length == 0) {
        Judge(line, VERDICT_REFUSED, 14, FINDING_NONE);
        Shows(line, "<- (Ctrl+C: abort!)  searching: %s ->", text == nullptr ? "" : text);
        return Why(line, "the length is 0");
    }
    if (static_cast<uint64_t>(address) + length > 0x100000000)
        Caution(line, "the range goes beyond 4 GiB and on at 0");
    uint8_t filler;
    if (JudgeCopy(line, address, length, 14, &filler))
        Shows(line, "<- (Ctrl+C: abort!)  searching: %s ->", text);
    else if (line->answer->verdict == VERDICT_OTHER)
        Ends(line, STATUS_NOT_FORETOLD);
    Caution(line, "of each 4 KiB from the address on only the first hit is shown");
}

void AnswerMemory(Line *line) {
    if (HasFlag(line->cmd, Flag::DUMP))
        return AnswerMemoryDump(line);
    AccessForm form = FindAccess(line->cmd);
    if (form.width == ACCESS_NONE)
        return AnswerSearch(line);
    NumberedAccess access;
    if (TakeNumbered(line, &form, 32, "address", "memory at", &access))
        JudgeAccess(line, access.number, form.width, access.operands.data);
}
