// A command line while it is answered: its words as hwreg takes them, and the texts of its answer.
#pragma once

#include "Main/Commands.h"
#include "Project/AccessForm.h"
#include "tools/check/lines/Verdict.h"

constexpr size_t MOST_WORDS = 256;

struct Line {
    char **typed; // the words before hwreg makes capitals of them
    CmdType cmd;
    Command command;
    bool used[MOST_WORDS]; // words that are somebody's operand, or a switch of the command alone
    Answer *answer;
};

// Texts of the answer, as printf makes them; what does not fit is cut.
void Does(Line *line, const char *format, ...) __attribute__((format(printf, 2, 3)));
void Shows(Line *line, const char *format, ...) __attribute__((format(printf, 2, 3)));
void Why(Line *line, const char *format, ...) __attribute__((format(printf, 2, 3)));
void Mend(Line *line, const char *format, ...) __attribute__((format(printf, 2, 3)));

// One more caution, behind the others or before them. Those that have no room are left out.
void Caution(Line *line, const char *format, ...) __attribute__((format(printf, 2, 3)));
void FirstCaution(Line *line, const char *format, ...) __attribute__((format(printf, 2, 3)));

// The caution of a finding that is not good: a driver that uses the same hardware, say.
void CautionOf(Line *line, FindingName name);

// The verdict, with the text and the remedy of the finding that explains it, if there is one. The status is
// what hwreg ends with.
void Judge(Line *line, Verdict verdict, int status, FindingName because);

// It does what was typed and ends with that status.
void Ends(Line *line, int status);

// The same for words that hwreg makes no command of: it prints nothing and ends with that status.
void JudgeNoForm(Line *line, int status);

// The value that is shown in place of the register's; of a bit its number is given. Its low byte is the
// status.
void JudgeValue(Line *line, Verdict verdict, FindingName because, AccessWidth width, uint32_t bit,
                uint32_t value);

// The rows of a view whose bytes are all the same.
void ShowsBytes(Line *line, uint8_t byte);

// A bit number above 31: nothing is accessed. True when it is one.
bool JudgeBit(Line *line, const AccessForm *form, uint32_t bit);

// What stands behind the place of an access: data, or the number of a bit and its value.
struct AccessOperands {
    uint32_t data; // 0 for a read of data
    uint32_t value;
};

// Says what an access does at a place ("port 80h").
void DoesAccess(Line *line, const AccessForm *form, AccessOperands operands, const char *place);

// Bytes that the access takes; the number of a bit chooses them.
uint32_t BytesOfAccess(const AccessForm *form, uint32_t bit);
