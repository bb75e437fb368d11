#include "tools/check/Report.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "tools/check/machine/KernelFiles.h"

constexpr uint32_t COLUMNS = 100;
constexpr uint32_t STATE_COLUMN = 2;
constexpr uint32_t NAME_COLUMN = 11;
constexpr uint32_t TEXT_COLUMN = 29;
constexpr uint32_t WORDS_COLUMN = 11;
constexpr uint32_t DOES_COLUMN = 47;
constexpr uint32_t LABEL_COLUMN = 11; // behind the labels of an answer

const char *NameOfVerdict(Verdict verdict) {
    static const char *const names[] = {"works", "refused", "other"};
    return names[verdict];
}

const char *NameOfState(State state) {
    static const char *const names[] = {"good", "caution", "bad", "unknown"};
    return names[state];
}

// The control characters behind ASCII, U+0080 to U+009F, in UTF-8.
static bool IsLateControl(const char *text) {
    return text[0] == '\xC2' && static_cast<uint8_t>(text[1]) >= 0x80 && static_cast<uint8_t>(text[1]) < 0xA0;
}

// A word may hold anything: what would move a terminal's cursor is shown as "?".
static void PutPlain(const char *text, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        bool late = i + 1 < length && IsLateControl(text + i);
        putchar(late || iscntrl(static_cast<unsigned char>(text[i])) != 0 ? '?' : text[i]);
        i += late ? 1 : 0;
    }
}

// Goes on at a column; a line that has come further is ended first.
static void GoTo(uint32_t *at, uint32_t column) {
    if (*at >= column && column != 0) {
        putchar('\n');
        *at = 0;
    }
    for (; *at < column; ++*at)
        putchar(' ');
}

static void Put(uint32_t *at, const char *text) {
    size_t length = strlen(text);
    PutPlain(text, length);
    *at += static_cast<uint32_t>(length);
}

// From a column on, broken between words. A word that is longer than a line stays whole.
static void PutWrapped(uint32_t *at, uint32_t column, const char *text) {
    GoTo(at, column);
    while (*text != 0) {
        size_t length = strcspn(text, " ");
        if (*at > column && *at + 1 + length > COLUMNS)
            GoTo(at, column);
        else if (*at > column)
            Put(at, " ");
        PutPlain(text, length);
        *at += static_cast<uint32_t>(length);
        text += length + strspn(text + length, " ");
    }
}

static void EndLine(uint32_t *at) {
    putchar('\n');
    *at = 0;
}

static void PutFinding(const Finding *finding) {
    uint32_t at = 0;
    GoTo(&at, STATE_COLUMN);
    Put(&at, finding->state == STATE_BAD ? "BAD" : NameOfState(finding->state));
    GoTo(&at, NAME_COLUMN);
    Put(&at, finding->name);
    PutWrapped(&at, TEXT_COLUMN, finding->found);
    EndLine(&at);
    if (finding->remedy[0] == 0)
        return;
    PutWrapped(&at, TEXT_COLUMN, "remedy:");
    PutWrapped(&at, at + 1, finding->remedy);
    EndLine(&at);
}

void PutFindings() {
    static const State order[] = {STATE_BAD, STATE_CAUTION, STATE_UNKNOWN, STATE_GOOD};
    const Finding *window = FindingOf(FINDING_CONFIG_WINDOW);
    printf("hwreg %s on Linux %s\n\nWhat this machine allows\n", HWREG_VERSION, KernelRelease());
    if (window->state == STATE_BAD)
        PutFinding(window);
    for (State state : order) {
        for (int i = FINDING_NONE + 1; i < FINDINGS; ++i) {
            const Finding *finding = FindingOf(static_cast<FindingName>(i));
            if (finding->state == state && (finding != window || state != STATE_BAD))
                PutFinding(finding);
        }
    }
}

void PutTableHead() {
    puts("\nWhat each command can do here (hwreg-check WORD... tells more about one)");
}

void PutTableLine(const char *words, const Answer *answer) {
    uint32_t at = 0;
    GoTo(&at, STATE_COLUMN);
    Put(&at, answer->verdict == VERDICT_WORKS   ? "works"
             : answer->verdict == VERDICT_OTHER ? "OTHER"
                                                : "REFUSED");
    GoTo(&at, WORDS_COLUMN);
    Put(&at, words);
    PutWrapped(&at, DOES_COLUMN, answer->does);
    EndLine(&at);
    if (answer->verdict == VERDICT_WORKS)
        return;
    const char *name = FindingOf(answer->because)->name;
    PutWrapped(&at, DOES_COLUMN, name[0] == 0 ? "why:" : "see");
    PutWrapped(&at, at + 1, name[0] == 0 ? answer->why : name);
    EndLine(&at);
}

// A label and its text; nothing without the text.
static void PutLabelled(const char *label, const char *text) {
    uint32_t at = 0;
    if (text[0] == 0)
        return;
    Put(&at, label);
    PutWrapped(&at, LABEL_COLUMN, text);
    EndLine(&at);
}

void PutAnswer(int count, char **words, const Answer *answer) {
    char text[2 * ANSWER_TEXT];
    fputs("hwreg", stdout);
    for (int i = 0; i < count; ++i) {
        putchar(' ');
        PutPlain(words[i], strlen(words[i]));
    }
    putchar('\n');
    PutLabelled("verdict", NameOfVerdict(answer->verdict));
    PutLabelled("does", answer->does);
    PutLabelled("shows", answer->shows);
    if (answer->status != STATUS_NOT_FORETOLD)
        snprintf(text, sizeof(text), "%d", answer->status);
    PutLabelled("status", answer->status == STATUS_NOT_FORETOLD ? "" : text);
    const char *name = FindingOf(answer->because)->name;
    snprintf(text, sizeof(text), "%s%s%s", name, name[0] != 0 && answer->why[0] != 0 ? ": " : "",
             answer->why);
    PutLabelled("because", text);
    PutLabelled("remedy", answer->remedy);
    for (const char(&caution)[ANSWER_TEXT] : answer->cautions)
        PutLabelled("caution", caution);
}
