#include "tools/check/lines/LineTables.h"

#include "tools/check/lines/Operands.h"
#include "tools/check/machine/MemoryDoor.h"
#include "tools/check/machine/Tables.h"

// True when there is no table. The status is that of a run that has something for one.
static bool JudgeTable(Line *line, int status) {
    switch (SmbiosState()) {
    case TABLE_RIGHT:
        Ends(line, status);
        return false;
    case TABLE_WRONG:
        Judge(line, VERDICT_OTHER, status, FINDING_SMBIOS);
        Shows(line, "what stands in memory at %Xh, as if it were structures", SmbiosAddress());
        return false;
    case TABLE_UNKNOWN:
        CautionOf(line, FINDING_SMBIOS);
        return false;
    case TABLE_REFUSED:
        if (MemoryError() != 0)
            break;
        Judge(line, VERDICT_REFUSED, status, FINDING_SMBIOS);
        ShowsBytes(line, 0xFF);
        return false;
    default:
        break;
    }
    Judge(line, VERDICT_REFUSED, 7, FINDING_SMBIOS);
    Shows(line, "ends with status 7 and prints nothing");
    return true;
}

static void AnswerSmbiosSearch(Line *line) {
    uint16_t pos;
    TakeWord(line, "S", &pos);
    const char *text = TextAt(line, pos, 1);
    Does(line, "looks for \"%s\" in the SMBIOS table, in capitals first", text == nullptr ? "" : text);
    if (JudgeTable(line, STATUS_NOT_FORETOLD))
        return;
    if (text == nullptr) {
        Judge(line, VERDICT_REFUSED, 14, FINDING_NONE);
        Why(line, "there is no text to be looked for");
    }
    if (line->answer->verdict != VERDICT_REFUSED)
        return;
    Ends(line, 14);
    Shows(line, "ERROR: Cannot find %s in SMBIOS!", text == nullptr ? "" : text);
}

// Of several words the first of this order counts.
void AnswerSmbios(Line *line) {
    uint16_t pos;
    if (HasFlag(line->cmd, Flag::S))
        return AnswerSmbiosSearch(line);
    if (HasFlag(line->cmd, Flag::DUMP) && !HasFlag(line->cmd, Flag::NOMSG)) {
        Does(line, "shows the SMBIOS table as it stands in memory");
    } else if (HasFlag(line->cmd, Flag::TYPE)) {
        TakeWord(line, "TYPE", &pos);
        Does(line, "shows the SMBIOS structures of type %u", NumberAt(line, pos, 1, 8, "type"));
        if (!JudgeTable(line, 0) && line->answer->verdict == VERDICT_REFUSED)
            Shows(line, "ends with status 0 and prints nothing");
        return;
    } else {
        Does(line, "lists and shows the SMBIOS structures");
    }
    if (!JudgeTable(line, 0))
        CautionOfKeys(line);
}

void AnswerAcpi(Line *line) {
    bool shows = HasFlag(line->cmd, Flag::DUMP) && !HasFlag(line->cmd, Flag::NOMSG);
    Does(line, shows ? "shows the ACPI root pointer" : "looks for the ACPI root pointer and shows nothing");
    if (RsdpState() == TABLE_NONE || RsdpState() == TABLE_REFUSED) {
        Judge(line, VERDICT_REFUSED, 14, FINDING_RSDP);
        return Shows(line, "ends with status 14 and prints nothing");
    }
    Ends(line, 0);
    if (RsdpState() == TABLE_WRONG) {
        Judge(line, VERDICT_OTHER, 0, FINDING_RSDP);
        Shows(line, "40 bytes from that text on");
    } else if (RsdpState() == TABLE_UNKNOWN) {
        Ends(line, STATUS_NOT_FORETOLD);
    }
    if (shows)
        CautionOfKeys(line);
}
