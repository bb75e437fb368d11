#include "tools/check/lines/Line.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "BasicLib/Place.h"

void Does(Line *line, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(line->answer->does, ANSWER_TEXT, format, args);
    va_end(args);
}

void Shows(Line *line, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(line->answer->shows, ANSWER_TEXT, format, args);
    va_end(args);
}

void Why(Line *line, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(line->answer->why, ANSWER_TEXT, format, args);
    va_end(args);
}

void Mend(Line *line, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(line->answer->remedy, ANSWER_TEXT, format, args);
    va_end(args);
}

void Caution(Line *line, const char *format, ...) {
    size_t place = 0;
    while (place < MOST_CAUTIONS && line->answer->cautions[place][0] != 0)
        ++place;
    if (place == MOST_CAUTIONS)
        return;
    va_list args;
    va_start(args, format);
    vsnprintf(line->answer->cautions[place], ANSWER_TEXT, format, args);
    va_end(args);
}

void FirstCaution(Line *line, const char *format, ...) {
    char(*cautions)[ANSWER_TEXT] = line->answer->cautions;
    memmove(cautions[1], cautions[0], (MOST_CAUTIONS - 1) * ANSWER_TEXT);
    va_list args;
    va_start(args, format);
    vsnprintf(cautions[0], ANSWER_TEXT, format, args);
    va_end(args);
}

void CautionOf(Line *line, FindingName name) {
    const Finding *finding = FindingOf(name);
    if (finding->state == STATE_CAUTION || finding->state == STATE_BAD)
        Caution(line, "%s", finding->found);
}

void Judge(Line *line, Verdict verdict, int status, FindingName because) {
    line->answer->verdict = verdict;
    line->answer->status = status;
    line->answer->because = because;
    Why(line, "%s", FindingOf(because)->found);
    Mend(line, "%s", FindingOf(because)->remedy);
}

void Ends(Line *line, int status) {
    line->answer->status = status;
}

void JudgeNoForm(Line *line, int status) {
    Does(line, "nothing");
    Judge(line, VERDICT_REFUSED, status, FINDING_NONE);
    Shows(line, "ends with status %d and prints nothing", status);
    Why(line, "none of the command's forms is on the line");
    Mend(line, "see the command's forms: /H with the command");
}

void JudgeValue(Line *line, Verdict verdict, FindingName because, AccessWidth width, uint32_t bit,
                uint32_t value) {
    value = width == ACCESS_BIT ? (value >> bit) & 1 : CutToWidth(width, value);
    Judge(line, verdict, static_cast<int>(value & 0xFF), because);
    if (width == ACCESS_BIT)
        Shows(line, "return data:%u", value);
    else
        Shows(line, "return data:0x%0*X", static_cast<int>(2 * AccessBytes(width)), value);
}

void ShowsBytes(Line *line, uint8_t byte) {
    char row[3 * 16 + 1] = "";
    for (size_t i = 0; i < 16; ++i)
        snprintf(row + 3 * i, 4, "%02X ", byte);
    Shows(line, "%s", row);
}

bool JudgeBit(Line *line, const AccessForm *form, uint32_t bit) {
    if (form->width != ACCESS_BIT || bit < 32)
        return false;
    JudgeValue(line, VERDICT_OTHER, FINDING_NONE, ACCESS_BIT, 0, 0);
    Why(line, "bits are counted from 0 to 31: there is no bit %u, and nothing is accessed", bit);
    return true;
}

static const char *const mWidths[ACCESS_WIDTHS] = {"nothing", "a bit", "a byte", "a word", "a dword"};

void DoesAccess(Line *line, const AccessForm *form, AccessOperands operands, const char *place) {
    uint32_t data = operands.data;
    if (form->width == ACCESS_BIT && form->writes)
        Does(line, "%s bit %u of %s and reads it back", operands.value != 0 ? "sets" : "clears", data, place);
    else if (form->width == ACCESS_BIT)
        Does(line, "reads bit %u of %s", data, place);
    else if (form->writes)
        Does(line, "writes %s, %Xh, to %s and reads it back", mWidths[form->width], data, place);
    else
        Does(line, "reads %s of %s", mWidths[form->width], place);
}

uint32_t BytesOfAccess(const AccessForm *form, uint32_t bit) {
    return form->width == ACCESS_BIT ? WidthOfBit(bit) : AccessBytes(form->width);
}
